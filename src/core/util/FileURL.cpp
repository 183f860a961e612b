#include "util/FileURL.h"

#include <vector>

namespace brenvo {

namespace {

bool keptAsIs(unsigned char c) {
    if ((c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9')) return true;
    static constexpr std::string_view others = "-._~!$&'()*+,;=:@/";
    return others.find(static_cast<char>(c)) != std::string_view::npos;
}

int hexValue(char c) {
    if (c >= '0' && c <= '9') return c - '0';
    if (c >= 'a' && c <= 'f') return c - 'a' + 10;
    if (c >= 'A' && c <= 'F') return c - 'A' + 10;
    return -1;
}

} // namespace

std::string fileURL(std::string_view path, bool isDirectory) {
    static const char digits[] = "0123456789ABCDEF";
    std::string out = "file://";
    for (unsigned char c : path) {
        if (keptAsIs(c)) {
            out.push_back(static_cast<char>(c));
        } else {
            out.push_back('%');
            out.push_back(digits[c >> 4]);
            out.push_back(digits[c & 15]);
        }
    }
    if (isDirectory && (out.size() == 7 || out.back() != '/')) out.push_back('/');
    return out;
}

std::optional<std::string> pathFromFileURL(std::string_view url) {
    if (!url.starts_with("file://")) return std::nullopt;
    url.remove_prefix(7);
    if (url.starts_with("localhost/")) url.remove_prefix(9);
    if (!url.starts_with("/")) return std::nullopt;
    std::string path;
    for (size_t i = 0; i < url.size(); ++i) {
        if (url[i] != '%') {
            path.push_back(url[i]);
            continue;
        }
        if (i + 2 >= url.size()) return std::nullopt;
        int high = hexValue(url[i + 1]), low = hexValue(url[i + 2]);
        if (high < 0 || low < 0) return std::nullopt;
        path.push_back(static_cast<char>(high * 16 + low));
        i += 2;
    }
    if (path.size() > 1 && path.back() == '/') path.pop_back();
    return path;
}

std::string standardizePath(std::string_view path) {
    const bool absolute = path.starts_with('/');
    std::vector<std::string_view> parts;
    size_t at = 0;
    while (at <= path.size()) {
        size_t slash = path.find('/', at);
        if (slash == std::string_view::npos) slash = path.size();
        std::string_view part = path.substr(at, slash - at);
        at = slash + 1;
        if (part.empty() || part == ".") continue;
        if (part == "..") {
            if (!parts.empty() && parts.back() != "..") parts.pop_back();
            else if (!absolute) parts.push_back(part);
            continue;
        }
        parts.push_back(part);
    }
    std::string out = absolute ? "/" : "";
    for (size_t i = 0; i < parts.size(); ++i) {
        if (i > 0) out.push_back('/');
        out.append(parts[i]);
    }
    return out.empty() ? std::string(".") : out;
}

} // namespace brenvo
