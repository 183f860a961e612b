#include "AtomicFile.h"

#include <cerrno>
#include <fcntl.h>
#include <filesystem>
#include <unistd.h>
#include <vector>

namespace brenvo {

std::FILE* openTemporaryIn(const std::string& folder, std::string& name) {
    std::error_code error;
    std::filesystem::create_directories(folder, error);
    if (error) {
        errno = error.value();
        return nullptr;
    }
    std::string pattern = folder + "/.brenvo-XXXXXX";
    std::vector<char> buffer(pattern.begin(), pattern.end());
    buffer.push_back(0);
    const int fd = ::mkostemp(buffer.data(), O_CLOEXEC);
    if (fd < 0) return nullptr;
    name = buffer.data();
    std::FILE* file = ::fdopen(fd, "wb");
    if (!file) {
        const int saved = errno;
        ::close(fd);
        ::unlink(name.c_str());
        errno = saved;
    }
    return file;
}

bool closeTemporary(std::FILE* file, const std::string& name, bool durable) {
    bool ok = std::fflush(file) == 0 && !std::ferror(file);
    int saved = ok ? 0 : errno;
    if (ok && durable && ::fsync(::fileno(file)) != 0) {
        ok = false;
        saved = errno;
    }
    if (std::fclose(file) != 0 && ok) {
        ok = false;
        saved = errno;
    }
    if (!ok) {
        ::unlink(name.c_str());
        errno = saved ? saved : EIO;
    }
    return ok;
}

bool writeFileAtomically(const std::string& path, std::string_view text, bool durable) {
    const std::string folder = std::filesystem::path(path).parent_path().string();
    std::string temporary;
    std::FILE* file = openTemporaryIn(folder.empty() ? "." : folder, temporary);
    if (!file) return false;
    if (std::fwrite(text.data(), 1, text.size(), file) != text.size()) {
        const int saved = errno;
        std::fclose(file);
        ::unlink(temporary.c_str());
        errno = saved ? saved : EIO;
        return false;
    }
    if (!closeTemporary(file, temporary, durable)) return false;
    if (::rename(temporary.c_str(), path.c_str()) != 0) {
        const int saved = errno;
        ::unlink(temporary.c_str());
        errno = saved;
        return false;
    }
    return true;
}

} // namespace brenvo
