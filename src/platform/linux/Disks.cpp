// The user's other disks, from the kernel's mount table.
#include "MountTable.h"
#include "platform/Platform.h"

#include <fcntl.h>
#include <fstream>
#include <sstream>
#include <sys/stat.h>

namespace brenvo::platform {

std::vector<std::string> mountedDisks() {
    std::ifstream in("/proc/self/mountinfo");
    std::stringstream text;
    text << in.rdbuf();
    return MountTable::disksFrom(text.str(), [](const std::string& path) {
        // Cached attributes and no automount: a server that has gone away must not hold up the answer.
        struct statx info {};
        return statx(AT_FDCWD, path.c_str(), AT_NO_AUTOMOUNT | AT_STATX_DONT_SYNC, STATX_TYPE, &info) == 0 &&
               S_ISDIR(info.stx_mode);
    });
}

} // namespace brenvo::platform
