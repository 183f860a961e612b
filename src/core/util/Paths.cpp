#include "Paths.h"

namespace brenvo {

bool isBelow(std::string_view path, std::string_view folder) {
    if (folder.empty()) return false;
    if (folder == "/") return path.size() > 1 && path.front() == '/';
    return path.size() > folder.size() + 1 && path.starts_with(folder) && path[folder.size()] == '/';
}

bool isInside(std::string_view path, std::string_view folder) {
    return !folder.empty() && (path == folder || isBelow(path, folder));
}

std::string parentPath(std::string_view path) {
    const auto slash = path.rfind('/');
    if (slash == std::string_view::npos || path == "/") return {};
    return slash == 0 ? std::string("/") : std::string(path.substr(0, slash));
}

std::string withoutDataVolumePrefix(std::string path) {
    static constexpr std::string_view prefix = "/System/Volumes/Data/";
    if (path.starts_with(prefix)) path.erase(0, prefix.size() - 1);
    return path;
}

} // namespace brenvo
