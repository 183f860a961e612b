#include "util/Files.h"

#include <algorithm>
#include <dirent.h>
#include <string_view>
#include <sys/stat.h>

namespace brenvo {

bool itemExists(const std::string& path) {
    struct stat info {};
    return ::lstat(path.c_str(), &info) == 0;
}

bool targetExists(const std::string& path) {
    struct stat info {};
    return ::stat(path.c_str(), &info) == 0;
}

std::vector<std::string> folderNames(const std::string& folder) {
    std::vector<std::string> names;
    DIR* dir = ::opendir(folder.c_str());
    if (!dir) return names;
    while (const dirent* entry = ::readdir(dir)) {
        const std::string_view name = entry->d_name;
        if (name != "." && name != "..") names.emplace_back(name);
    }
    ::closedir(dir);
    std::sort(names.begin(), names.end());
    return names;
}

} // namespace brenvo
