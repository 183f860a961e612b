#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace brenvo::DeleteWords {

// The confirmation's words, the same in the window and on the command line.

// "Delete “name” permanently?" for one item, "Delete 3 items permanently?" for more.
std::string question(int64_t count, std::string_view firstName);
// What the deletion frees and how long it can be undone; an unknown size (something inside couldn't be
// read) is said to be unknown rather than counted as nothing.
std::string promise(std::optional<int64_t> size, double undoSeconds);
// The protected items of a selection, which stay where they are.
std::string protectedLeft(int64_t count);
// A number of seconds as people write it: "8", "0.5".
std::string seconds(double value);

} // namespace brenvo::DeleteWords
