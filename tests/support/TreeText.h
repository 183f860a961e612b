#pragma once

#include "tree/FileNode.h"

#include <string>

namespace brenvo::test {

// A tree as indented lines, one node a line: name, kind, size, count and marks, children in order.
// Two trees are equal when their texts are; a failing comparison shows where they part.
//   docs/ 300 2
//     a.txt 200 1
//     b.txt 100 1
// A folder ends in "/", a package in "[pkg]", an aggregate in "[+]"; "!" marks could-not-read and
// "(reason)" a skipped folder. Sizes are given in the unit passed (bytes by default).
std::string treeText(const FileNode& root, long long unit = 1);

} // namespace brenvo::test
