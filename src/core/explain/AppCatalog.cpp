#include "explain/AppCatalog.h"

#include "plist/PlistValue.h"
#include "tree/FileNode.h"
#include "util/Files.h"
#include "util/Utf8.h"

#include <algorithm>
#include <cstdlib>
#include <charconv>
#include <cstdint>
#include <dirent.h>
#include <fcntl.h>
#include <map>
#include <sys/stat.h>
#include <unistd.h>
#include <unicode/uchar.h>

namespace brenvo {

namespace {

// Info.plists and desktop entries are small; anything bigger is not one.
constexpr std::size_t kMaxFileBytes = 4 << 20;
// Subfolders of an applications folder looked into; deeper ones would only be loops or accidents.
constexpr int kMaxDesktopDepth = 4;

// A regular file's bytes; never blocks on a pipe or device that merely has the right name.
std::optional<std::string> readSmallFile(const std::string& path) {
    int fd = ::open(path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
    if (fd < 0) return std::nullopt;
    struct stat info {};
    std::optional<std::string> out;
    if (::fstat(fd, &info) == 0 && S_ISREG(info.st_mode) && static_cast<std::size_t>(info.st_size) <= kMaxFileBytes) {
        std::string bytes(static_cast<std::size_t>(info.st_size), '\0');
        std::size_t done = 0;
        while (done < bytes.size()) {
            ssize_t n = ::read(fd, bytes.data() + done, bytes.size() - done);
            if (n <= 0) break;
            done += static_cast<std::size_t>(n);
        }
        bytes.resize(done);
        out = std::move(bytes);
    }
    ::close(fd);
    return out;
}

bool isDirectory(const std::string& path, bool follow) {
    struct stat info {};
    int result = follow ? ::stat(path.c_str(), &info) : ::lstat(path.c_str(), &info);
    return result == 0 && S_ISDIR(info.st_mode);
}

bool isRegularFile(const std::string& path) {
    struct stat info {};
    return ::stat(path.c_str(), &info) == 0 && S_ISREG(info.st_mode);
}

// The text after the last "." of a file name; a leading dot starts a hidden name, not an extension.
std::string_view extension(std::string_view name) {
    auto dot = name.rfind('.');
    return dot == std::string_view::npos || dot == 0 ? std::string_view{} : name.substr(dot + 1);
}

std::string_view withoutExtension(std::string_view name) {
    auto dot = name.rfind('.');
    return dot == std::string_view::npos || dot == 0 ? name : name.substr(0, dot);
}

std::size_t codePointCount(std::string_view text) {
    return static_cast<std::size_t>(
        std::count_if(text.begin(), text.end(), [](char c) { return (static_cast<unsigned char>(c) & 0xC0) != 0x80; }));
}

bool isLetterOrNumber(char32_t c) { return u_isalnum(static_cast<UChar32>(c)); }
bool isNumber(char32_t c) { return u_isdigit(static_cast<UChar32>(c)); }

std::string lowerCased(std::u32string_view text) {
    std::string out;
    for (char32_t c : text) utf8::appendCodePoint(out, static_cast<char32_t>(u_tolower(static_cast<UChar32>(c))));
    return out;
}

std::vector<std::string_view> split(std::string_view text, char separator) {
    std::vector<std::string_view> pieces;
    std::size_t start = 0;
    while (start <= text.size()) {
        auto end = text.find(separator, start);
        if (end == std::string_view::npos) end = text.size();
        if (end > start) pieces.push_back(text.substr(start, end - start));
        start = end + 1;
    }
    return pieces;
}

// The last piece of an identifier, normalized, unless it is a word every kind of application ends in.
std::optional<std::string> identifierKey(std::string_view identifier) {
    auto pieces = split(identifier, '.');
    if (pieces.empty()) return std::nullopt;
    std::u32string last = utf8::decodeEscaped(pieces.back());
    if (AppCatalog::genericBundleSuffixes().contains(lowerCased(last))) return std::nullopt;
    return AppCatalog::normalize(pieces.back());
}

std::set<std::string> longKeys(std::set<std::string> keys) {
    std::erase_if(keys, [](const std::string& key) { return codePointCount(key) <= 2; });
    return keys;
}

// ---- Desktop entries ----

// The escapes of a desktop entry's string values.
std::string unescapeValue(std::string_view value) {
    std::string out;
    for (std::size_t i = 0; i < value.size(); ++i) {
        if (value[i] != '\\' || i + 1 == value.size()) {
            out += value[i];
            continue;
        }
        switch (value[++i]) {
        case 's': out += ' '; break;
        case 'n': out += '\n'; break;
        case 't': out += '\t'; break;
        case 'r': out += '\r'; break;
        case '\\': out += '\\'; break;
        default: out += '\\', out += value[i];
        }
    }
    return out;
}

// Exec's arguments: blanks separate, double quotes group with backslash escapes inside, and field
// codes (%U, %f, …) stand for what the launcher fills in, so they go.
std::vector<std::string> execArguments(std::string_view exec) {
    std::vector<std::string> args;
    std::string current;
    bool inWord = false, quoted = false;
    for (std::size_t i = 0; i < exec.size(); ++i) {
        char c = exec[i];
        if (quoted) {
            if (c == '"')
                quoted = false;
            else if (c == '\\' && i + 1 < exec.size())
                current += exec[++i];
            else
                current += c;
        } else if (c == ' ' || c == '\t' || c == '\n') {
            if (inWord) args.push_back(std::move(current)), current.clear();
            inWord = false;
            continue;
        } else if (c == '"') {
            quoted = true;
        } else {
            current += c;
        }
        inWord = true;
    }
    if (inWord) args.push_back(std::move(current));

    std::vector<std::string> out;
    for (const auto& arg : args) {
        std::string kept;
        for (std::size_t i = 0; i < arg.size(); ++i) {
            if (arg[i] != '%' || i + 1 == arg.size()) {
                kept += arg[i];
            } else if (arg[++i] == '%') {
                kept += '%';
            }
        }
        if (!kept.empty()) out.push_back(std::move(kept));
    }
    return out;
}

bool isExecutablePath(const std::string& path) { return isRegularFile(path) && ::access(path.c_str(), X_OK) == 0; }

// The first release version in an AppStream metainfo file: releases are listed newest first.
std::optional<std::string> metainfoVersion(std::string_view xml) {
    for (std::size_t at = xml.find("<release"); at != std::string_view::npos; at = xml.find("<release", at + 1)) {
        std::size_t after = at + 8;
        if (after >= xml.size() || (xml[after] != ' ' && xml[after] != '\t' && xml[after] != '\n' && xml[after] != '\r'))
            continue;
        std::string_view tag = xml.substr(at, xml.find('>', at) - at);
        for (std::size_t v = tag.find("version"); v != std::string_view::npos; v = tag.find("version", v + 1)) {
            char before = tag[v - 1];
            std::size_t q = v + 7;
            while (q < tag.size() && (tag[q] == ' ' || tag[q] == '=')) ++q;
            if ((before != ' ' && before != '\t' && before != '\n') || q >= tag.size()) continue;
            if (tag[q] != '"' && tag[q] != '\'') continue;
            auto close = tag.find(tag[q], q + 1);
            if (close == std::string_view::npos) return std::nullopt;
            std::string version(tag.substr(q + 1, close - q - 1));
            if (version.empty()) return std::nullopt;
            return version;
        }
        return std::nullopt;
    }
    return std::nullopt;
}

// A Flatpak export folder sits at <installation>/exports/share/applications; the application's own
// files are under <installation>/app/<id>/current/active.
std::optional<std::string> flatpakVersion(const std::string& folder, const std::string& appID) {
    std::string_view base = folder;
    while (base.size() > 1 && base.back() == '/') base.remove_suffix(1);
    constexpr std::string_view exports = "/exports/share/applications";
    if (!base.ends_with(exports) || appID.empty() || appID.find('/') != std::string::npos) return std::nullopt;
    std::string active = std::string(base.substr(0, base.size() - exports.size())) + "/app/" + appID +
                         "/current/active/files/share/";
    for (const std::string& candidate : {"metainfo/" + appID + ".metainfo.xml", "metainfo/" + appID + ".appdata.xml",
                                         "appdata/" + appID + ".appdata.xml", "appdata/" + appID + ".metainfo.xml"}) {
        if (auto xml = readSmallFile(active + candidate)) return metainfoVersion(*xml);
    }
    return std::nullopt;
}

std::string basename(std::string_view path) { return std::string(lastPathComponent(path)); }

// The file with desktop-file id `rest` below `dir`, where each "-" may stand for a subfolder.
std::optional<std::string> locateDesktopFile(const std::string& dir, std::string_view rest, int depth) {
    std::string direct = joinPath(dir, std::string(rest) + ".desktop");
    if (isRegularFile(direct)) return direct;
    if (depth >= kMaxDesktopDepth) return std::nullopt;
    for (auto dash = rest.find('-'); dash != std::string_view::npos; dash = rest.find('-', dash + 1)) {
        std::string sub = joinPath(dir, rest.substr(0, dash));
        if (dash == 0 || !isDirectory(sub, true)) continue;
        if (auto found = locateDesktopFile(sub, rest.substr(dash + 1), depth + 1)) return found;
    }
    return std::nullopt;
}

template <typename Visit>
void walkDesktopFiles(const std::string& dir, const std::string& prefix, int depth, std::set<std::string>& seen,
                      const Visit& visit) {
    for (const auto& name : folderNames(dir)) {
        std::string path = joinPath(dir, name);
        if (isDirectory(path, true)) {
            if (depth < kMaxDesktopDepth) walkDesktopFiles(path, prefix + name + "-", depth + 1, seen, visit);
        } else if (name.size() > 8 && name.ends_with(".desktop") && isRegularFile(path)) {
            std::string id = prefix + name.substr(0, name.size() - 8);
            // An id found once hides every later file with that id, readable or not.
            if (seen.insert(id).second) visit(path, std::move(id));
        }
    }
}

} // namespace

AppCatalog::AppCatalog(std::vector<InstalledApp> apps, std::vector<std::string> extraNoiseWords)
    : apps_(std::move(apps)), extraNoiseWords_(std::move(extraNoiseWords)) {}

std::shared_ptr<const AppCatalog> AppCatalog::empty() {
    static const auto none = std::make_shared<const AppCatalog>();
    return none;
}

std::shared_ptr<const AppCatalog> AppCatalog::load(const Profile& profile) {
    auto apps = profile.isMac() ? loadBundles(profile.applicationFolders)
                                : loadDesktopEntries(profile.applicationFolders);
    return std::make_shared<const AppCatalog>(std::move(apps), profile.extraNoiseWords);
}

const std::set<std::string>& AppCatalog::noiseWords() {
    static const std::set<std::string> words = {
        "installer", "install", "setup",  "darwin", "mac",    "macos",  "osx",      "arm",   "arm64",
        "aarch64",   "x64",     "x86",    "amd64",  "universal", "intel", "apple",   "silicon", "latest",
        "release",   "stable",  "final",  "signed", "full",   "app",    "dmg",      "pkg",   "download",
    };
    return words;
}

const std::set<std::string>& AppCatalog::genericBundleSuffixes() {
    static const std::set<std::string> words = {"app", "mac", "macos", "osx", "desktop", "client", "main"};
    return words;
}

std::string AppCatalog::normalize(std::string_view text) {
    std::u32string kept;
    for (char32_t c : utf8::decodeEscaped(text)) {
        // Bytes outside UTF-8 arrive as lone surrogates, which are neither letters nor numbers.
        if (isLetterOrNumber(c)) kept += c;
    }
    return lowerCased(kept);
}

InstallerName AppCatalog::parseInstallerName(std::string_view fileName,
                                             const std::vector<std::string>& extraNoiseWords) {
    std::u32string base = utf8::decodeEscaped(withoutExtension(lastPathComponent(fileName)));

    std::vector<std::u32string> tokens;
    std::u32string current;
    for (char32_t c : base) {
        if (isLetterOrNumber(c) || c == U'.') {
            current += c;
        } else if (!current.empty()) {
            tokens.push_back(std::move(current));
            current.clear();
        }
    }
    if (!current.empty()) tokens.push_back(std::move(current));

    auto isNoise = [&](const std::string& piece) {
        return noiseWords().contains(piece) ||
               std::find(extraNoiseWords.begin(), extraNoiseWords.end(), piece) != extraNoiseWords.end();
    };

    InstallerName out;
    std::vector<std::string> words;
    for (const auto& token : tokens) {
        std::u32string_view candidate = token;
        if (candidate.front() == U'v' || candidate.front() == U'V') candidate.remove_prefix(1);
        bool versionLike = !candidate.empty() && isNumber(candidate.front()) &&
                           std::all_of(candidate.begin(), candidate.end(),
                                       [](char32_t c) { return isNumber(c) || c == U'.'; });
        if (versionLike) {
            // A number without a dot (a year, a build, a copy count) isn't taken for a version.
            if (!out.version && candidate.find(U'.') != std::u32string_view::npos) {
                auto first = candidate.find_first_not_of(U'.');
                auto last = candidate.find_last_not_of(U'.');
                out.version = utf8::encodeEscaped(candidate.substr(first, last - first + 1));
            }
            continue;
        }
        std::size_t start = 0;
        while (start <= token.size()) {
            auto end = token.find(U'.', start);
            if (end == std::u32string::npos) end = token.size();
            std::u32string_view piece = std::u32string_view(token).substr(start, end - start);
            start = end + 1;
            if (piece.empty() || std::all_of(piece.begin(), piece.end(), isNumber)) continue;
            std::string word = lowerCased(piece);
            if (!isNoise(word)) words.push_back(std::move(word));
        }
    }

    std::string joined;
    for (const auto& word : words) joined += word;
    out.key = normalize(joined);
    // A name glued to its suffix ("mailsetup") loses it, as long as at least 3 characters stay.
    for (std::string_view suffix : {"installer", "setup", "install"}) {
        if (out.key.ends_with(suffix) && suffix.size() + 2 < codePointCount(out.key))
            out.key.erase(out.key.size() - suffix.size());
    }
    if (!words.empty()) out.firstWord = normalize(words.front());
    return out;
}

std::strong_ordering AppCatalog::compareVersions(std::string_view a, std::string_view b) {
    auto numbers = [](std::string_view text) {
        std::vector<std::int64_t> out;
        for (std::string_view piece : split(text, '.')) {
            std::u32string cps = utf8::decodeEscaped(piece);
            std::size_t run = 0;
            while (run < cps.size() && isNumber(cps[run])) ++run;
            std::int64_t value = 0;
            // Digits of other scripts count as numbers but don't parse: like a piece without digits, 0.
            bool ascii = std::all_of(cps.begin(), cps.begin() + static_cast<std::ptrdiff_t>(run),
                                     [](char32_t c) { return c >= U'0' && c <= U'9'; });
            if (run > 0 && ascii) {
                auto [end, error] = std::from_chars(piece.data(), piece.data() + run, value);
                if (error != std::errc() || end != piece.data() + run) value = 0;
            }
            out.push_back(value);
        }
        return out;
    };
    auto left = numbers(a), right = numbers(b);
    for (std::size_t i = 0; i < std::max(left.size(), right.size()); ++i) {
        std::int64_t x = i < left.size() ? left[i] : 0;
        std::int64_t y = i < right.size() ? right[i] : 0;
        if (x != y) return x <=> y;
    }
    return std::strong_ordering::equal;
}

std::optional<InstalledApp> AppCatalog::appRunning(std::string_view path) const {
    for (const auto& app : apps_)
        if (!app.program.empty() && app.program == path) return app;
    return std::nullopt;
}

std::optional<InstalledApp> AppCatalog::app(std::string_view installerName) const {
    InstallerName parsed = parseInstallerName(installerName, extraNoiseWords_);
    auto answering = [&](const std::string& key) {
        std::vector<const InstalledApp*> matches;
        for (const auto& app : apps_) {
            if (app.keys.contains(key)) matches.push_back(&app);
        }
        return matches;
    };
    if (auto found = unique(answering(parsed.key))) return found;
    // A name with extra words may still be known by its first word, if that is long enough to trust.
    if (!parsed.firstWord || *parsed.firstWord == parsed.key || codePointCount(*parsed.firstWord) < 4)
        return std::nullopt;
    return unique(answering(*parsed.firstWord));
}

std::optional<InstalledApp> AppCatalog::unique(const std::vector<const InstalledApp*>& matches) {
    if (matches.empty()) return std::nullopt;
    auto identity = [](const InstalledApp* app) { return app->bundleID.value_or(app->path); };
    const std::string first = identity(matches.front());
    for (const auto* match : matches) {
        if (identity(match) != first) return std::nullopt;
    }
    return *matches.front();
}

// ---- Application bundles ----

InstalledApp AppCatalog::readBundle(const std::string& path) {
    InstalledApp app;
    app.path = path;
    app.name = std::string(withoutExtension(lastPathComponent(path)));
    std::optional<plist::Value> info;
    if (auto bytes = readSmallFile(joinPath(path, "Contents/Info.plist"))) info = plist::parse(*bytes);
    // An unreadable or malformed Info.plist leaves only the name to go by.
    if (!info || !info->dict()) info = plist::Value(plist::Value::Dict{});

    std::set<std::string> keys = {normalize(app.name)};
    if (const std::string* id = info->findString("CFBundleIdentifier")) app.bundleID = *id;
    for (const char* field : {"CFBundleName", "CFBundleDisplayName"}) {
        if (const std::string* text = info->findString(field)) keys.insert(normalize(*text));
    }
    if (app.bundleID) {
        if (auto key = identifierKey(*app.bundleID)) keys.insert(*key);
    }
    if (const std::string* version = info->findString("CFBundleShortVersionString")) app.version = *version;
    app.keys = longKeys(std::move(keys));
    return app;
}

std::vector<InstalledApp> AppCatalog::loadBundles(const std::vector<std::string>& folders) {
    std::set<std::string> seen;
    std::vector<InstalledApp> apps;
    auto add = [&](const std::string& path) {
        // A folder listed on its own and again as another's child ("Utilities") gives its apps once.
        if (extension(lastPathComponent(path)) != "app" || !seen.insert(path).second) return;
        apps.push_back(readBundle(path));
    };
    for (const auto& folder : folders) {
        for (const auto& name : folderNames(folder)) {
            std::string child = joinPath(folder, name);
            if (extension(name) == "app") {
                add(child);
            } else if (isDirectory(child, false)) {
                // A vendor's folder; anything deeper isn't looked at.
                for (const auto& inner : folderNames(child)) add(joinPath(child, inner));
            }
        }
    }
    return apps;
}

// ---- Desktop entries ----

std::optional<DesktopEntry> AppCatalog::readDesktopEntry(const std::string& path, std::string id,
                                                         const std::string& folder) {
    auto text = readSmallFile(path);
    if (!text) return std::nullopt;

    std::map<std::string, std::string, std::less<>> values;
    bool found = false, inGroup = false;
    for (std::string_view line : split(*text, '\n')) {
        if (line.ends_with('\r')) line.remove_suffix(1);
        auto start = line.find_first_not_of(" \t");
        if (start == std::string_view::npos || line[start] == '#') continue;
        line.remove_prefix(start);
        if (line.front() == '[') {
            inGroup = line.starts_with("[Desktop Entry]");
            found = found || inGroup;
            continue;
        }
        auto eq = line.find('=');
        if (!inGroup || eq == std::string_view::npos) continue;
        std::string_view key = line.substr(0, eq), value = line.substr(eq + 1);
        while (!key.empty() && (key.back() == ' ' || key.back() == '\t')) key.remove_suffix(1);
        while (!value.empty() && (value.front() == ' ' || value.front() == '\t')) value.remove_prefix(1);
        // Localised keys (Name[de]) aren't wanted; a repeated key keeps its first value.
        values.emplace(std::string(key), unescapeValue(value));
    }
    if (!found) return std::nullopt;

    auto value = [&](std::string_view key) -> std::string {
        auto it = values.find(key);
        return it == values.end() ? std::string() : it->second;
    };
    DesktopEntry entry;
    entry.id = std::move(id);
    entry.path = path;
    entry.name = value("Name");
    entry.icon = value("Icon");
    entry.application = value("Type") == "Application";
    entry.hidden = value("Hidden") == "true";

    std::vector<std::string> args = execArguments(value("Exec"));
    std::size_t at = 0;
    // `env VAR=value … program` sets up the environment; the program is what follows.
    if (at < args.size() && basename(args[at]) == "env") {
        for (++at; at < args.size() && (args[at].find('=') != std::string::npos || args[at].starts_with('-'));) ++at;
    }
    if (at < args.size()) entry.program = args[at];
    if (basename(entry.program) == "flatpak") {
        // `flatpak run [options] <app id> [arguments]`
        std::size_t i = at + 1;
        while (i < args.size() && args[i] != "run") ++i;
        for (++i; i < args.size() && args[i].starts_with('-');) ++i;
        if (i < args.size()) entry.flatpakID = args[i];
    }
    if (std::string flatpak = value("X-Flatpak"); !flatpak.empty()) entry.flatpakID = flatpak;

    if (entry.flatpakID) {
        entry.version = flatpakVersion(folder, *entry.flatpakID);
    } else {
        // Only absolute paths are checked: a bare name would need the user's PATH, which is no concern here.
        std::string tryExec = value("TryExec");
        entry.missingProgram = (tryExec.starts_with('/') && !isExecutablePath(tryExec)) ||
                               (entry.program.starts_with('/') && !isExecutablePath(entry.program));
    }
    return entry;
}

InstalledApp AppCatalog::installedApp(const DesktopEntry& entry) {
    InstalledApp app;
    app.path = entry.path;
    app.name = entry.name.empty() ? entry.id : entry.name;
    app.version = entry.version;
    app.bundleID = entry.id;
    std::set<std::string> keys = {normalize(app.name)};
    if (auto key = identifierKey(entry.id)) keys.insert(*key);
    if (entry.flatpakID) {
        // The program is flatpak itself; the application is the one it runs.
        if (auto key = identifierKey(*entry.flatpakID)) keys.insert(*key);
    } else if (!entry.program.empty()) {
        if (entry.program.starts_with('/')) {
            if (char* real = ::realpath(entry.program.c_str(), nullptr)) {
                app.program = real;
                std::free(real);
            }
        }
        std::string program = basename(entry.program);
        std::string_view ext = extension(program);
        if (ext.size() == 8 && normalize(ext) == "appimage") program = std::string(withoutExtension(program));
        keys.insert(normalize(program));
    }
    app.keys = longKeys(std::move(keys));
    return app;
}

std::vector<InstalledApp> AppCatalog::loadDesktopEntries(const std::vector<std::string>& folders) {
    std::set<std::string> seen;
    std::vector<InstalledApp> apps;
    for (const auto& folder : folders) {
        walkDesktopFiles(folder, "", 0, seen, [&](const std::string& path, std::string id) {
            auto entry = readDesktopEntry(path, std::move(id), folder);
            if (entry && entry->usable()) apps.push_back(installedApp(*entry));
        });
    }
    return apps;
}

std::optional<DesktopEntry> AppCatalog::findDesktopEntry(const std::vector<std::string>& folders,
                                                         std::string_view id) {
    if (id.empty() || id.find('/') != std::string_view::npos) return std::nullopt;
    for (const auto& folder : folders) {
        if (auto path = locateDesktopFile(folder, id, 0)) return readDesktopEntry(*path, std::string(id), folder);
    }
    return std::nullopt;
}

} // namespace brenvo
