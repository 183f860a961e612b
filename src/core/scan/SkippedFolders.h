#pragma once

#include "platform/Profile.h"
#include "scan/DiskScanner.h"

#include <string>
#include <vector>

namespace brenvo {

// The folders a scan doesn't enter, with the reason shown: the profile's Library folder and the folders
// the user excluded (whose reason wins for a path in both). Keys are real paths, one per folder however it
// was spelt; a folder that isn't there is left out.
DiskScanner::Skipped skippedFolders(const Profile& profile, const std::vector<std::string>& excluded);

} // namespace brenvo
