// make-tree: writes a deterministic, home-folder-like directory tree that the
// benchmarks scan.
//
//   make-tree DIR [--files N] [--seed S] [--jobs J]
//
// The layout is planned up front from the seed alone; every folder then gets
// its own random stream derived from (seed, folder index), so the result does
// not depend on how many worker threads create it.
//
// Large files are sparse (a 4 KiB header, then ftruncate), small files hold
// real bytes, so a million-file tree costs only a few GB of disk.

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <cmath>
#include <condition_variable>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <mutex>
#include <string>
#include <string_view>
#include <thread>
#include <unordered_set>
#include <utility>
#include <vector>

namespace {

using u32 = std::uint32_t;
using u64 = std::uint64_t;

constexpr u64 KiB = 1024;
constexpr u64 MiB = 1024 * KiB;
constexpr u64 kFullWriteLimit = 16 * KiB; // files up to this size hold real bytes throughout
constexpr u64 kHeaderBytes = 4 * KiB;     // larger files get a real header, the rest is a hole

[[noreturn]] void die(const std::string& what, int err = errno) {
    std::fprintf(stderr, "make-tree: %s: %s\n", what.c_str(), std::strerror(err));
    std::_Exit(1);
}

[[noreturn]] void usage(const char* msg) {
    std::fprintf(stderr,
                 "make-tree: %s\n"
                 "usage: make-tree DIR [--files N] [--seed S] [--jobs J]\n"
                 "  DIR must not exist yet, or be an empty folder.\n"
                 "  --files N  regular files to create (default 1000000, min 1000);\n"
                 "             folders, links and special folders scale with it\n"
                 "  --seed S   random seed (default 1); same seed and N give the same tree\n"
                 "  --jobs J   worker threads (default: number of CPUs, max 8)\n",
                 msg);
    std::exit(2);
}

// splitmix64: tiny, fast and identical on every platform, unlike <random>'s
// distributions, so a seed reproduces the same tree everywhere.
struct Rng {
    u64 s;
    explicit Rng(u64 seed) : s(seed) {}
    u64 next() {
        u64 z = (s += 0x9E3779B97F4A7C15ull);
        z = (z ^ (z >> 30)) * 0xBF58476D1CE4E5B9ull;
        z = (z ^ (z >> 27)) * 0x94D049BB133111EBull;
        return z ^ (z >> 31);
    }
    double uni() { return static_cast<double>(next() >> 11) * 0x1.0p-53; }
    u64 below(u64 n) { return n == 0 ? 0 : next() % n; }
    int range(int lo, int hi) { return lo + static_cast<int>(below(static_cast<u64>(hi - lo + 1))); }
    bool chance(double p) { return uni() < p; }
    double normal() {
        double u1 = std::max(uni(), 1e-300);
        return std::sqrt(-2.0 * std::log(u1)) * std::cos(6.283185307179586 * uni());
    }
    double logUniform(double lo, double hi) { return lo * std::pow(hi / lo, uni()); }
    template <class C> const auto& pick(const C& c) { return c[below(std::size(c))]; }
};

u64 mixSeed(u64 seed, u64 stream) {
    Rng r(seed ^ (stream * 0xD1B54A32D192ED03ull + 0x8CB92BA72F3D8DD7ull));
    r.next();
    return r.next();
}

// ---------------------------------------------------------------- names

enum Kind : std::uint8_t {
    KGeneric,
    KDocs,
    KDownloads,
    KPictures,
    KMusic,
    KVideos,
    KCode,
    KCache,
    KConfig,
    KMail,
    KThumbs,
    KCamera,
    KMaildir,
    KPackage,
    KJava,
    KNode,
};

using SV = std::string_view;

constexpr SV kWords[] = {
    "alpha",   "backup",   "build",     "cache",   "config",  "data",   "docs",    "draft",   "export",
    "final",   "images",   "lib",       "logs",    "misc",    "notes",  "old",     "output",  "photos",
    "project", "report",   "resources", "samples", "scripts", "temp",   "test",    "tools",   "utils",
    "vendor",  "assets",   "archive",   "budget",  "invoice", "letter", "meeting", "summary", "plan",
    "review",  "results",  "thesis",    "chapter", "slides",  "todo",   "ideas",   "recipes", "travel",
    "tax",     "contract", "scan",      "receipt", "manual",  "readme", "index",   "main",    "server",
    "client",  "common",   "shared",    "legacy",  "stable",  "beta",   "release", "debug",   "sync",
    "import",  "upload",   "kitchen",   "garden",  "family",  "school", "work",    "private", "public",
    "team",    "v1",       "v2",
};
constexpr SV kUtf8Words[] = {
    "café",   "naïve",    "Ångström", "München", "Привет",       "日本語", "résumé", "Übersicht",
    "façade", "中文资料", "ελληνικά", "Ærø",     "smörgåsbord",  "señal",  "Zürich", "Kraków",
    "Ελλάδα", "Москва",   "東京",     "piñata",  "crème brûlée", "Straße", "Œuvres", "🎉 party",
};
constexpr SV kDotDirs[] = {".git",  ".cache", ".vscode", ".idea",     ".config", ".svn",
                           ".venv", ".tox",   ".gradle", ".settings", ".hidden", ".github"};
constexpr SV kDotFiles[] = {".gitignore",  ".env",   ".eslintrc.json", ".DS_Store",     ".editorconfig",
                            ".prettierrc", ".npmrc", ".babelrc",       ".dockerignore", ".hidden",
                            ".directory",  ".nvmrc", ".clang-format",  ".keep"};
constexpr SV kCodeDirs[] = {"src",          "lib",       "test",       "tests",      "dist",    "build",
                            "node_modules", "include",   "docs",       "examples",   "scripts", "utils",
                            "internal",     "core",      "api",        "vendor",     "bin",     "obj",
                            "__pycache__",  "assets",    "components", "objects",    "refs",    "pack",
                            "cmd",          "pkg",       "fixtures",   "migrations", "models",  "views",
                            "static",       "templates", "target",     "debug",      "release", "deps",
                            "third_party",  "generated", "proto"};
constexpr SV kCodeExt[] = {".js", ".js",   ".js",    ".ts",  ".py",   ".py",   ".json",  ".json", ".o",
                           ".o",  ".c",    ".h",     ".h",   ".cpp",  ".hpp",  ".md",    ".txt",  ".go",
                           ".rs", ".java", ".class", ".map", ".d.ts", ".pyc",  ".so",    ".a",    ".yml",
                           ".sh", ".html", ".css",   ".svg", ".lock", ".toml", ".cmake", ""};
constexpr SV kDocExt[] = {".txt",  ".txt", ".pdf", ".pdf", ".docx", ".odt", ".xlsx", ".md",
                          ".pptx", ".csv", ".tex", ".log", ".rtf",  ".ods", ".epub", ".jpg"};
constexpr SV kDownloadExt[] = {".zip",  ".tar.gz",   ".deb", ".iso", ".dmg",  ".exe",
                               ".pdf",  ".AppImage", ".jpg", ".png", ".mp4",  ".torrent",
                               ".json", ".txt",      ".msi", ".7z",  ".epub", ".csv"};
constexpr SV kPictureExt[] = {".jpg", ".jpg", ".jpg",  ".JPG", ".png",  ".png", ".heic",
                              ".CR2", ".gif", ".webp", ".xmp", ".jpeg", ".tiff"};
constexpr SV kMusicExt[] = {".mp3", ".mp3", ".mp3", ".flac", ".m4a", ".ogg", ".wav"};
constexpr SV kVideoExt[] = {".mp4", ".mp4", ".mkv", ".mov", ".avi", ".srt", ".webm", ".nfo"};
constexpr SV kConfigFiles[] = {
    "settings.json",      "config",           "config.yaml",    "prefs.js",      "state.json",
    "recently-used.xbel", "keybindings.json", "user-dirs.dirs", "mimeapps.list", "history",
    "cookies.sqlite",     "places.sqlite",    "Local State",    "Preferences",   "storage.json"};
constexpr SV kConfigExt[] = {".conf",   ".ini", ".xml",  ".yaml", ".json", ".plist", ".db",
                             ".sqlite", ".log", ".lock", ".toml", ".cfg",  ""};
constexpr SV kConfigDirs[] = {"Code",
                              "google-chrome",
                              "Default",
                              "Cache",
                              "Local Storage",
                              "IndexedDB",
                              "autostart",
                              "fontconfig",
                              "gtk-3.0",
                              "pulse",
                              "share",
                              "applications",
                              "Trash",
                              "recently-used",
                              "keyrings",
                              "Application Support",
                              "Preferences",
                              "Caches",
                              "Containers",
                              "Logs",
                              "Saved Application State",
                              "Mozilla",
                              "Profiles",
                              "extensions",
                              "storage",
                              "sessionstore-backups"};
constexpr SV kNpm[] = {"lodash",        "debug",          "ms",        "chalk",           "ansi-styles",
                       "color-convert", "supports-color", "has-flag",  "semver",          "minimist",
                       "mkdirp",        "glob",           "minimatch", "brace-expansion", "balanced-match",
                       "once",          "wrappy",         "inherits",  "readable-stream", "string_decoder",
                       "safe-buffer",   "core-util-is",   "isarray",   "util-deprecate",  "@babel",
                       "yargs",         "cliui",          "wrap-ansi", "strip-ansi",      "ansi-regex",
                       "emoji-regex"};
constexpr SV kArtists[] = {"The Beatles", "Björk",           "Daft Punk",   "Miles Davis", "Sigur Rós",
                           "Radiohead",   "Nina Simone",     "Motörhead",   "Kraftwerk",   "Massive Attack",
                           "Queen",       "Ennio Morricone", "Mötley Crüe", "Yann Tiersen"};

// File names with bytes that are not valid UTF-8 (Latin-1 letters, stray
// continuation bytes, overlong forms, encoded surrogates, truncated sequences).
constexpr SV kInvalidNames[] = {
    "caf\xe9 menu.txt",
    "\xff\xfe-bom.bin",
    "report \xc3\x28.doc",
    "overlong \xc0\xaf.txt",
    "trunc\xe2\x82.txt",
    "surrogate \xed\xa0\x80.txt",
    "M\xfc"
    "ller.pdf",
    "na\xefve.py",
    "\x80start.log",
    "end\xc3",
    "Stra\xdf"
    "e.odt",
    "mixed \xc3\xa9\xe9.txt",
};
constexpr SV kInvalidDirNames[] = {"Sicherung \xe9t\xe9", "Fotos M\xfcnchen", "data \xff\xfe"};

std::string capitalize(SV w) {
    std::string s(w);
    if (!s.empty() && s[0] >= 'a' && s[0] <= 'z') s[0] = static_cast<char>(s[0] - 'a' + 'A');
    return s;
}

std::string hex(Rng& r, int digits) {
    static constexpr char kHex[] = "0123456789abcdef";
    std::string s;
    s.reserve(static_cast<size_t>(digits));
    u64 bits = r.next();
    for (int i = 0; i < digits; ++i) {
        if (i % 16 == 15) bits = r.next();
        s += kHex[bits & 15];
        bits >>= 4;
    }
    return s;
}

std::string num(u64 v, int width = 0) {
    char buf[32];
    std::snprintf(buf, sizeof buf, "%0*llu", width, static_cast<unsigned long long>(v));
    return buf;
}

// A word-based stem, sometimes with spaces, digits or non-ASCII letters.
std::string stem(Rng& r) {
    double u = r.uni();
    if (u < 0.02) return std::string(r.pick(kUtf8Words));
    if (u < 0.03) return std::string(r.pick(kWords)) + "_" + std::string(r.pick(kUtf8Words));
    if (u < 0.05) return capitalize(r.pick(kWords)) + " " + std::string(r.pick(kWords));
    if (u < 0.06) return "Copy of " + std::string(r.pick(kWords));
    if (u < 0.07) return std::string(r.pick(kWords)) + " (" + num(r.below(9) + 1) + ")";
    if (u < 0.30) return std::string(r.pick(kWords)) + "_" + std::string(r.pick(kWords));
    if (u < 0.45) return std::string(r.pick(kWords)) + "-" + std::string(r.pick(kWords));
    if (u < 0.60) return std::string(r.pick(kWords)) + num(r.below(100));
    if (u < 0.65) return std::string(r.pick(kWords)) + "-" + num(2005 + r.below(20));
    return std::string(r.pick(kWords));
}

std::string dirName(Kind k, Rng& r) {
    if (r.chance(0.02)) return std::string(r.pick(kDotDirs));
    switch (k) {
    case KCode:
        return r.chance(0.5)   ? std::string(r.pick(kCodeDirs))
               : r.chance(0.5) ? std::string(r.pick(kNpm))
                               : stem(r);
    case KPictures: {
        double u = r.uni();
        if (u < 0.3) return num(2008 + r.below(17));
        if (u < 0.6)
            return num(2008 + r.below(17)) + "-" + num(r.below(12) + 1, 2) + " " + capitalize(stem(r));
        if (u < 0.7) return std::string(r.pick(kUtf8Words));
        return capitalize(stem(r));
    }
    case KMusic:
        return r.chance(0.5) ? std::string(r.pick(kArtists))
                             : capitalize(stem(r)) + " (" + num(1965 + r.below(60)) + ")";
    case KCache:
        return r.chance(0.6) ? hex(r, 2) : r.chance(0.5) ? std::string(r.pick(kConfigDirs)) : stem(r);
    case KConfig:
        return r.chance(0.6) ? std::string(r.pick(kConfigDirs)) : stem(r);
    case KMail:
        static constexpr SV kMailDirs[] = {"cur", "new", "tmp"};
        return r.chance(0.3) ? std::string(r.pick(kMailDirs))
                             : capitalize(r.pick(kWords)) +
                                   (r.chance(0.3) ? " " + std::string(r.pick(kUtf8Words)) : "");
    case KPackage:
        return capitalize(r.pick(kWords)) + ".lproj";
    default:
        return r.chance(0.5) ? capitalize(stem(r)) : stem(r);
    }
}

std::string fileName(Kind k, Rng& r) {
    if (k != KThumbs && k != KCamera && k != KMaildir && r.chance(0.02))
        return std::string(r.pick(kDotFiles));
    switch (k) {
    case KCode:
    case KJava:
        if (k == KJava) return capitalize(r.pick(kWords)) + capitalize(r.pick(kWords)) + ".java";
        return (r.chance(0.85) ? std::string(r.pick(kWords)) : stem(r)) + std::string(r.pick(kCodeExt));
    case KNode:
        return std::string(r.pick(kWords)) + (r.chance(0.8) ? ".js" : ".d.ts");
    case KDocs:
        return stem(r) + std::string(r.pick(kDocExt));
    case KDownloads:
        if (r.chance(0.3))
            return std::string(r.pick(kWords)) + "-" + num(r.below(5)) + "." + num(r.below(20)) + "." +
                   num(r.below(10)) + std::string(r.pick(kDownloadExt));
        return stem(r) + std::string(r.pick(kDownloadExt));
    case KPictures: {
        double u = r.uni();
        if (u < 0.4) return "IMG_" + num(r.below(10000), 4) + std::string(r.pick(kPictureExt));
        if (u < 0.6) return "DSC_" + num(r.below(10000), 4) + ".JPG";
        if (u < 0.7)
            return "Screenshot " + num(2015 + r.below(10)) + "-" + num(r.below(12) + 1, 2) + "-" +
                   num(r.below(28) + 1, 2) + " at " + num(r.below(24), 2) + "." + num(r.below(60), 2) + "." +
                   num(r.below(60), 2) + ".png";
        return stem(r) + std::string(r.pick(kPictureExt));
    }
    case KMusic:
        if (r.chance(0.1)) return r.chance(0.5) ? "cover.jpg" : "folder.jpg";
        return num(r.below(20) + 1, 2) + " - " + capitalize(stem(r)) + std::string(r.pick(kMusicExt));
    case KVideos:
        if (r.chance(0.3))
            return "VID_" + num(20150101 + r.below(90000)) + "_" + num(r.below(240000), 6) + ".mp4";
        return capitalize(stem(r)) + " (" + num(1960 + r.below(65)) + ")" + std::string(r.pick(kVideoExt));
    case KCache:
        return r.chance(0.7) ? hex(r, r.chance(0.5) ? 40 : 32) + (r.chance(0.3) ? "_0" : "")
                             : stem(r) + (r.chance(0.5) ? ".cache" : ".tmp");
    case KConfig:
        return r.chance(0.3) ? std::string(r.pick(kConfigFiles)) : stem(r) + std::string(r.pick(kConfigExt));
    case KMail:
    case KMaildir: {
        u64 t = 1400000000 + r.below(300000000);
        return num(t) + ".M" + num(r.below(1000000)) + "P" + num(r.below(99999)) +
               ".laptop,S=" + num(800 + r.below(200000)) + ":2," + (r.chance(0.7) ? "S" : "RS");
    }
    case KThumbs:
        return hex(r, 32) + ".png";
    case KCamera:
        return (r.chance(0.9) ? "IMG_" : "VID_") + num(20180101 + r.below(70000)) + "_" +
               num(r.below(240000), 6) + (r.chance(0.95) ? ".jpg" : ".mp4");
    case KPackage: {
        static constexpr SV kExt[] = {".png",   ".png",   ".nib", ".strings", ".icns", ".car",
                                      ".plist", ".dylib", ".js",  ".css",     ".pak",  ".json"};
        return (r.chance(0.3) ? "icon_" + num(r.below(1024)) : std::string(r.pick(kWords))) +
               std::string(r.pick(kExt));
    }
    default:
        return stem(r) + std::string(r.pick(kDocExt));
    }
}

// Make NAME unique in USED by inserting "-2", "-3", ... before the extension.
std::string uniquify(std::string name, std::unordered_set<std::string>& used) {
    if (used.insert(name).second) return name;
    size_t dot = name.rfind('.');
    if (dot == 0 || dot == std::string::npos || name.size() - dot > 10) dot = name.size();
    for (u64 k = 2;; ++k) {
        std::string cand = name.substr(0, dot) + "-" + num(k) + name.substr(dot);
        if (used.insert(cand).second) return cand;
    }
}

// ---------------------------------------------------------------- sizes

u64 drawSize(Kind k, Rng& r) {
    auto small = [&] { return static_cast<u64>(r.logUniform(16, 16 * KiB)); };
    auto mid = [&] { return static_cast<u64>(r.logUniform(16 * KiB, MiB)); };
    auto big = [&](double lo, double hi) { return static_cast<u64>(r.logUniform(lo, hi)); };
    double u = r.uni();
    switch (k) {
    case KPictures:
        return u < 0.25 ? small() : u < 0.9 ? big(100 * KiB, 6 * MiB) : big(6 * MiB, 40 * MiB);
    case KMusic:
        return u < 0.15 ? small() : big(2 * MiB, 15 * MiB);
    case KVideos:
        return u < 0.2 ? small() : u < 0.45 ? mid() : big(5 * MiB, 49 * MiB);
    case KDownloads:
        return u < 0.03 ? 0 : u < 0.3 ? small() : u < 0.7 ? mid() : big(MiB, 49 * MiB);
    case KDocs:
        return u < 0.03 ? 0 : u < 0.62 ? small() : u < 0.94 ? mid() : big(MiB, 30 * MiB);
    case KThumbs:
        return big(2 * KiB, 60 * KiB);
    case KCamera:
        return u < 0.05 ? small() : big(MiB, 8 * MiB);
    case KMail:
    case KMaildir:
        return u < 0.85 ? big(800, 16 * KiB) : big(16 * KiB, 5 * MiB);
    default: // code, config, cache, generic: mostly small
        return u < 0.05 ? 0 : u < 0.86 ? small() : u < 0.985 ? mid() : big(MiB, 49 * MiB);
    }
}

// ---------------------------------------------------------------- plan

enum : std::uint8_t { FChildren = 1, FFiles = 2, FLinks = 4, FInvalidName = 8 };
enum SymKind : std::uint8_t { SFile, SDir, SDangling, SLoop, SSelf, SKinds };
constexpr const char* kSymKindName[] = {"to files", "to folders", "dangling", "ancestor loops", "self loops"};

struct FixedFile {
    std::string name;
    u64 size;
};
struct FixedLink {
    std::string name, target;
    bool toDir;
};

struct Dir {
    std::string name; // planned for fixed names; otherwise chosen by the parent's worker
    std::vector<u32> children;
    std::vector<FixedFile> fixedFiles; // the first files of this folder
    std::vector<FixedLink> fixedLinks; // symlinks with a known relative target
    u64 firstFile = 0;                 // global index of the first file
    u32 parent = 0;
    u32 nFiles = 0;
    u32 symBegin = 0, nSym = 0, hardBegin = 0, nHard = 0;
    std::uint16_t depth = 0;
    Kind kind = KGeneric;
    std::uint8_t flags = 0;
    bool fixedName = false;
    double fert = 0, fileWeight = 0;
    time_t mtime = 0; // set when created; links added later restore it
};

struct SymSlot {
    std::string name; // filled in by the owning folder's worker
    u32 dir = 0;
    SymKind kind = SFile;
    bool absolute = false;
    u32 cand = 0;      // SFile: target file
    u32 targetDir = 0; // SDir, SDangling
    int up = 0;        // SLoop: how many levels up
};
struct HardSlot {
    std::string name;
    u32 dir = 0;
    u32 cand = 0;
};
struct Cand { // a file that links point at; its name is recorded when it is created
    std::string name;
    u32 dir = 0;
};

struct Plan {
    std::vector<Dir> dirs;
    std::vector<SymSlot> syms;
    std::vector<HardSlot> hards;
    std::vector<Cand> cands;
    std::vector<std::pair<u64, u32>> candByFile; // sorted (global file index, cand)
    std::vector<u64> hugeFiles;                  // sorted global indices
    std::vector<u64> invalidFiles;               // sorted global indices
    u64 totalFiles = 0;
    u32 hugeDirs[3] = {0, 0, 0};
};

u32 addDir(Plan& p, u32 parent, std::string name, Kind k, std::uint8_t flags) {
    Dir d;
    d.parent = parent;
    d.depth = static_cast<std::uint16_t>(p.dirs[parent].depth + 1);
    d.kind = k;
    d.flags = flags;
    d.fixedName = !name.empty();
    d.name = std::move(name);
    auto idx = static_cast<u32>(p.dirs.size());
    p.dirs.push_back(std::move(d));
    p.dirs[parent].children.push_back(idx);
    return idx;
}

void addFixedFile(Plan& p, u32 d, std::string name, u64 size) {
    p.dirs[d].fixedFiles.push_back({std::move(name), size});
    p.dirs[d].nFiles++;
}

std::string stemOf(const std::string& pkg) {
    return pkg.substr(0, pkg.rfind('.'));
}

// A macOS-style application or plug-in bundle: a folder that behaves like one
// document in the UI but holds a whole tree, including framework symlinks.
void addPackage(Plan& p, Rng& r, u32 parent, const std::string& name, bool app, double scale) {
    u32 pkg = addDir(p, parent, name, KPackage, 0);
    std::string st = stemOf(name);
    u32 contents = addDir(p, pkg, "Contents", KPackage, 0);
    addFixedFile(p, contents, "Info.plist", static_cast<u64>(r.logUniform(1000, 6000)));
    addFixedFile(p, contents, "PkgInfo", 8);
    u32 macos = addDir(p, contents, "MacOS", KPackage, 0);
    addFixedFile(p, macos, st, static_cast<u64>(r.logUniform(MiB, 60 * MiB)));
    u32 res = addDir(p, contents, "Resources", KPackage, 0);
    addFixedFile(p, res, st + ".icns", static_cast<u64>(r.logUniform(50 * KiB, 900 * KiB)));
    p.dirs[res].nFiles += static_cast<u32>(std::max(4.0, std::round(r.logUniform(30, 200) * scale)));
    static constexpr SV kLangs[] = {"en.lproj", "de.lproj",      "fr.lproj",
                                    "ja.lproj", "zh-Hans.lproj", "Base.lproj"};
    int nLang = r.range(2, 4);
    for (int i = 0; i < nLang; ++i) {
        u32 l = addDir(p, res, std::string(kLangs[static_cast<size_t>(i)]), KPackage, 0);
        addFixedFile(p, l, "Localizable.strings", static_cast<u64>(r.logUniform(500, 40000)));
        addFixedFile(p, l, "InfoPlist.strings", static_cast<u64>(r.logUniform(100, 2000)));
        p.dirs[l].nFiles += static_cast<u32>(r.range(0, 3));
    }
    if (app) {
        u32 fws = addDir(p, contents, "Frameworks", KPackage, 0);
        static constexpr SV kFw[] = {"Electron Framework", "Sparkle",
                                     "Squirrel",           "Mantle",
                                     "ReactiveObjC",       "Chromium Embedded Framework"};
        int nFw = r.range(1, 3);
        for (int i = 0; i < nFw; ++i) {
            std::string fwStem(kFw[(r.below(2) + static_cast<u64>(i) * 2) % std::size(kFw)]);
            if (std::any_of(p.dirs[fws].children.begin(), p.dirs[fws].children.end(),
                            [&](u32 c) { return p.dirs[c].name == fwStem + ".framework"; }))
                continue;
            u32 fw = addDir(p, fws, fwStem + ".framework", KPackage, 0);
            u32 versions = addDir(p, fw, "Versions", KPackage, 0);
            u32 a = addDir(p, versions, "A", KPackage, 0);
            addFixedFile(p, a, fwStem, static_cast<u64>(r.logUniform(MiB, 120 * MiB)));
            u32 ares = addDir(p, a, "Resources", KPackage, 0);
            addFixedFile(p, ares, "Info.plist", static_cast<u64>(r.logUniform(800, 3000)));
            p.dirs[ares].nFiles += static_cast<u32>(std::max(1.0, std::round(r.logUniform(5, 60) * scale)));
            p.dirs[versions].fixedLinks.push_back({"Current", "A", true});
            p.dirs[fw].fixedLinks.push_back({fwStem, "Versions/Current/" + fwStem, false});
            p.dirs[fw].fixedLinks.push_back({"Resources", "Versions/Current/Resources", true});
        }
    }
    u32 cs = addDir(p, contents, "_CodeSignature", KPackage, 0);
    addFixedFile(p, cs, "CodeResources", static_cast<u64>(r.logUniform(2000, 200000)));
}

struct TopLevel {
    const char* name;
    Kind kind;
    double fert;  // share of generic subfolders
    double files; // weight for loose files directly inside
};
constexpr TopLevel kTop[] = {
    {"Documents", KDocs, 3, 2},     {"Downloads", KDownloads, 1, 10},
    {"Desktop", KGeneric, 0.5, 4},  {"Pictures", KPictures, 1.5, 1},
    {"Music", KMusic, 0.8, 0.3},    {"Videos", KVideos, 0.7, 1},
    {"Projects", KCode, 5, 0.5},    {"src", KCode, 3, 0.3},
    {"go", KCode, 1.5, 0.1},        {"Library", KConfig, 2, 0.2},
    {"Mail", KMail, 0.5, 0.1},      {"Public", KGeneric, 0.1, 0.5},
    {"Templates", KDocs, 0.1, 0.5}, {".cache", KCache, 4, 0.3},
    {".config", KConfig, 2, 0.5},   {".local", KConfig, 1.5, 0.1},
    {".npm", KCache, 2, 0.1},       {".cargo", KCode, 1.5, 0.1},
    {".mozilla", KCache, 0.7, 0.1}, {".ssh", KConfig, 0, 1},
    {".vscode", KConfig, 0.5, 0.2}, {"snap", KGeneric, 0.6, 0.1},
    {"Dropbox", KDocs, 1.5, 1},     {"Steuer 2023 – Belege", KDocs, 0.2, 1},
};

u32 findChild(const Plan& p, u32 parent, SV name) {
    for (u32 c : p.dirs[parent].children)
        if (p.dirs[c].name == name) return c;
    return std::numeric_limits<u32>::max();
}

u32 clampU(double v, u32 lo, u32 hi) {
    return static_cast<u32>(
        std::clamp(std::llround(v), static_cast<long long>(lo), static_cast<long long>(hi)));
}

bool isAncestorOrSelf(const Plan& p, u32 anc, u32 d) {
    while (true) {
        if (d == anc) return true;
        if (d == 0) return false;
        d = p.dirs[d].parent;
    }
}

Plan makePlan(u64 nFilesWanted, u64 seed) {
    Plan p;
    Rng r(mixSeed(seed, 0xFFFFFFFFFFull));
    const double N = static_cast<double>(nFilesWanted);
    const double scale = std::sqrt(N / 1e6);
    const u32 wantDirs = clampU(N / 20, 20, 0xFFFFFFF);

    Dir root;
    root.flags = FLinks;
    p.dirs.push_back(root);
    for (SV f : {".bashrc", ".profile", ".bash_history", ".gitconfig", ".viminfo", ".lesshst", ".zshrc",
                 ".Xauthority", ".python_history", ".wget-hsts"})
        addFixedFile(p, 0, std::string(f), static_cast<u64>(r.logUniform(50, 60000)));

    for (const TopLevel& t : kTop) {
        std::uint8_t fl = FFiles | FLinks | (t.fert > 0 ? FChildren : 0);
        u32 d = addDir(p, 0, t.name, t.kind, fl);
        p.dirs[d].fert = t.fert;
        p.dirs[d].fileWeight = t.files;
    }
    u32 apps = addDir(p, 0, "Applications", KPackage, FLinks);

    // Three very wide folders, as thumbnail caches, phone photo dumps and
    // maildirs really are.
    const u32 hugeCount[3] = {clampU(N * 0.031, 1, 1u << 30), clampU(N * 0.026, 1, 1u << 30),
                              clampU(N * 0.022, 1, 1u << 30)};
    {
        u32 thumbs = addDir(p, findChild(p, 0, ".cache"), "thumbnails", KCache, FFiles | FLinks);
        p.dirs[thumbs].fileWeight = 0.1;
        addDir(p, thumbs, "large", KThumbs, FFiles);
        p.hugeDirs[0] = addDir(p, thumbs, "normal", KThumbs, 0);
        u32 pb = addDir(p, findChild(p, 0, "Pictures"), "Phone Backup", KPictures, FFiles | FLinks);
        p.dirs[pb].fileWeight = 0.5;
        u32 dcim = addDir(p, pb, "DCIM", KPictures, 0);
        p.hugeDirs[1] = addDir(p, dcim, "Camera", KCamera, 0);
        u32 inbox = addDir(p, findChild(p, 0, "Mail"), "INBOX", KMail, 0);
        p.hugeDirs[2] = addDir(p, inbox, "cur", KMaildir, 0);
        addDir(p, inbox, "new", KMaildir, 0);
        addDir(p, inbox, "tmp", KMaildir, 0);
        for (int i = 0; i < 3; ++i)
            p.dirs[p.hugeDirs[i]].nFiles = hugeCount[i];
    }

    // Application and plug-in bundles.
    {
        static constexpr SV kApps[] = {"Visual Studio Code.app",
                                       "Firefox.app",
                                       "Slack.app",
                                       "Spotify.app",
                                       "Blender.app",
                                       "GIMP.app",
                                       "Inkscape.app",
                                       "LibreOffice.app",
                                       "Zoom.app",
                                       "Calculator.app",
                                       "Chess.app",
                                       "Notes Helper.app"};
        static constexpr SV kBundles[] = {"Reverb.bundle",
                                          "Compressor.bundle",
                                          "SynthOne.bundle",
                                          "Spellcheck.bundle",
                                          "QuickLook Markdown.bundle",
                                          "Equalizer.bundle",
                                          "Tuner.bundle",
                                          "Sampler.bundle"};
        u32 nApp = clampU(N / 125000, 2, static_cast<u32>(std::size(kApps)));
        u32 nBundle = clampU(N / 200000, 2, static_cast<u32>(std::size(kBundles)));
        for (u32 i = 0; i < nApp; ++i)
            addPackage(p, r, apps, std::string(kApps[i]), true, scale);
        u32 lib = findChild(p, 0, "Library");
        u32 audio = addDir(p, lib, "Audio", KConfig, FFiles | FLinks);
        u32 plug = addDir(p, audio, "Plug-Ins", KConfig, FFiles | FLinks);
        u32 comps = addDir(p, plug, "Components", KConfig, FLinks);
        for (u32 i = 0; i < nBundle; ++i)
            addPackage(p, r, comps, std::string(kBundles[i]), false, scale);
    }

    // Deep chains (nested node_modules, Java package paths, backups of backups).
    const u32 nChains = clampU(N / 200000, 2, 8);
    std::vector<int> chainLen(nChains);
    u32 chainDirs = 0;
    for (auto& l : chainLen)
        chainDirs += static_cast<u32>(l = r.range(16, 24));

    // Generic folders, level by level: a folder's parent is drawn among the
    // previous level weighted by a heavy-tailed "fertility", which gives a few
    // folders many subfolders and most only a handful.
    {
        static constexpr double kLevelWeight[] = {5, 11, 16, 18, 16, 13, 9, 6, 3, 2, 1}; // depth 2..12
        double wsum = 0;
        for (double w : kLevelWeight)
            wsum += w;
        const u32 fixed = static_cast<u32>(p.dirs.size()) + chainDirs;
        const u32 nGeneric = wantDirs > fixed ? wantDirs - fixed : 0;
        std::vector<u32> prev;
        for (u32 i = 1; i < p.dirs.size(); ++i)
            if (p.dirs[i].depth == 1 && (p.dirs[i].flags & FChildren)) prev.push_back(i);
        u32 made = 0;
        for (size_t lvl = 0; lvl < std::size(kLevelWeight) && made < nGeneric; ++lvl) {
            u32 count = lvl + 1 == std::size(kLevelWeight)
                            ? nGeneric - made
                            : std::min(nGeneric - made,
                                       static_cast<u32>(std::llround(nGeneric * kLevelWeight[lvl] / wsum)));
            std::vector<double> cum;
            double acc = 0;
            for (u32 d : prev)
                cum.push_back(acc += p.dirs[d].fert);
            std::vector<u32> next;
            for (u32 i = 0; i < count; ++i) {
                double x = r.uni() * acc;
                u32 parent =
                    prev[static_cast<size_t>(std::upper_bound(cum.begin(), cum.end(), x) - cum.begin())];
                u32 d = addDir(p, parent, "", p.dirs[parent].kind, FChildren | FFiles | FLinks);
                p.dirs[d].fert = std::exp(1.1 * r.normal());
                double fw = std::exp(0.8 * r.normal());
                double u = r.uni();
                if (u < 0.02)
                    fw = 0; // empty folders exist
                else if (u < 0.03)
                    fw *= 15; // and some crowded ones
                p.dirs[d].fileWeight = fw;
                next.push_back(d);
            }
            made += count;
            if (!next.empty()) prev = std::move(next); // a too-small level keeps the old parents
        }
    }

    // Attach the deep chains below generic folders at depth 2..4.
    {
        std::vector<u32> starts;
        for (u32 i = 0; i < p.dirs.size(); ++i)
            if ((p.dirs[i].flags & FChildren) && p.dirs[i].depth >= 2 && p.dirs[i].depth <= 4 &&
                !p.dirs[i].fixedName)
                starts.push_back(i);
        if (starts.empty()) starts.push_back(findChild(p, 0, "Projects"));
        static constexpr SV kJava[] = {
            "src",       "main",     "java",        "com",   "example",  "platform", "service", "internal",
            "impl",      "adapters", "persistence", "jdbc",  "dialects", "postgres", "v2",      "migrations",
            "generated", "model",    "entities",    "audit", "history",  "archive",  "legacy",  "compat"};
        static constexpr SV kBackup[] = {"Backup",     "Old Laptop",
                                         "Users",      "me",
                                         "Documents",  "Backup",
                                         "Old Files",  "Copy of Old Files",
                                         "New Folder", "New Folder (2)",
                                         "misc",       "stuff",
                                         "older",      "old",
                                         "2009",       "from USB stick",
                                         "Sicherung",  "Kopie",
                                         "neu",        "final",
                                         "final (2)",  "really final",
                                         "archive",    "zzz"};
        for (u32 c = 0; c < nChains; ++c) {
            u32 at = starts[r.below(starts.size())];
            int style = static_cast<int>(c % 3);
            for (int lvl = 0; lvl < chainLen[c]; ++lvl) {
                std::string name;
                Kind k = KDocs;
                if (style == 0) {
                    k = KNode;
                    name = lvl % 2 == 0
                               ? "node_modules"
                               : std::string(kNpm[(c * 7 + static_cast<u32>(lvl)) % std::size(kNpm)]);
                } else if (style == 1) {
                    k = KJava;
                    name = std::string(kJava[static_cast<size_t>(lvl) % std::size(kJava)]);
                } else {
                    name = std::string(kBackup[static_cast<size_t>(lvl) % std::size(kBackup)]);
                }
                if (findChild(p, at, name) != std::numeric_limits<u32>::max()) {
                    name += ' ';
                    name += num(c);
                }
                at = addDir(p, at, name, k, FLinks);
                if (style == 0 && lvl % 2 == 1) {
                    addFixedFile(p, at, "package.json", static_cast<u64>(r.logUniform(400, 4000)));
                    addFixedFile(p, at, "index.js", static_cast<u64>(r.logUniform(100, 20000)));
                    if (r.chance(0.5)) addFixedFile(p, at, "LICENSE", 1080);
                } else {
                    p.dirs[at].nFiles += static_cast<u32>(r.range(0, 3));
                }
            }
        }
    }

    // A couple of folders whose own names are not valid UTF-8.
    {
        std::vector<u32> gen;
        for (u32 i = 0; i < p.dirs.size(); ++i)
            if (!p.dirs[i].fixedName && i != 0) gen.push_back(i);
        for (u32 i = 0; i < std::min<size_t>(2, gen.size()); ++i)
            p.dirs[gen[r.below(gen.size())]].flags |= FInvalidName;
    }

    // Spread the remaining file budget over folders that take loose files.
    {
        u64 assigned = 0;
        for (const Dir& d : p.dirs)
            assigned += d.nFiles;
        u64 rest = nFilesWanted > assigned ? nFilesWanted - assigned : 0;
        std::vector<u32> pool;
        double wsum = 0;
        for (u32 i = 0; i < p.dirs.size(); ++i)
            if ((p.dirs[i].flags & FFiles) && p.dirs[i].fileWeight > 0) {
                pool.push_back(i);
                wsum += p.dirs[i].fileWeight;
            }
        u64 given = 0;
        for (u32 d : pool) {
            auto n = static_cast<u64>(static_cast<double>(rest) * p.dirs[d].fileWeight / wsum);
            p.dirs[d].nFiles += static_cast<u32>(n);
            given += n;
        }
        for (; given < rest && !pool.empty(); ++given)
            p.dirs[pool[r.below(pool.size())]].nFiles++;
    }

    for (Dir& d : p.dirs) {
        d.firstFile = p.totalFiles;
        p.totalFiles += d.nFiles;
    }

    // Distinct random files, drawn from the folders POOL (or all folders).
    auto drawFiles = [&](size_t count, const std::vector<u32>& pool, std::vector<u64>& out) {
        std::unordered_set<u64> seen;
        size_t guard = 0;
        while (out.size() < count && guard++ < count * 100) {
            u64 g;
            if (pool.empty()) {
                g = r.below(p.totalFiles);
            } else {
                const Dir& d = p.dirs[pool[r.below(pool.size())]];
                u64 lo = d.fixedFiles.size();
                if (d.nFiles <= lo) continue;
                g = d.firstFile + lo + r.below(d.nFiles - lo);
            }
            if (seen.insert(g).second) out.push_back(g);
        }
        std::sort(out.begin(), out.end());
    };
    {
        std::vector<u32> videoish, generic;
        for (u32 i = 0; i < p.dirs.size(); ++i) {
            const Dir& d = p.dirs[i];
            if (d.nFiles > d.fixedFiles.size() && (d.kind == KVideos || d.kind == KDownloads))
                videoish.push_back(i);
            if (d.nFiles > d.fixedFiles.size() && (d.flags & FFiles)) generic.push_back(i);
        }
        drawFiles(clampU(N / 50000, 3, 40), videoish.empty() ? generic : videoish, p.hugeFiles);
        drawFiles(clampU(N / 100000, 3, 30), generic, p.invalidFiles);
    }

    // Link slots: about 0.5 % of files each get a symlink and a hard link.
    const u32 nSym = clampU(N * 0.005, 5, 1u << 30);
    const u32 nHard = clampU(N * 0.005, 5, 1u << 30);
    {
        std::vector<u64> candFiles;
        drawFiles(std::min<u64>(nSym + nHard, p.totalFiles), {}, candFiles);
        // Shuffle so the sorted draw does not make hard links favour early folders.
        std::vector<u64> order = candFiles;
        for (size_t i = order.size(); i > 1; --i)
            std::swap(order[i - 1], order[r.below(i)]);
        p.cands.resize(order.size());
        for (u32 c = 0; c < order.size(); ++c)
            p.candByFile.push_back({order[c], c});
        std::sort(p.candByFile.begin(), p.candByFile.end());

        std::vector<u32> linkable;
        for (u32 i = 0; i < p.dirs.size(); ++i)
            if (p.dirs[i].flags & FLinks) linkable.push_back(i);
        for (u32 i = 0; i < nSym; ++i)
            p.dirs[linkable[r.below(linkable.size())]].nSym++;
        for (u32 i = 0; i < nHard; ++i)
            p.dirs[linkable[r.below(linkable.size())]].nHard++;
        for (u32 i = 0; i < p.dirs.size(); ++i) {
            Dir& d = p.dirs[i];
            d.symBegin = static_cast<u32>(p.syms.size());
            d.hardBegin = static_cast<u32>(p.hards.size());
            for (u32 k = 0; k < d.nSym; ++k)
                p.syms.push_back({{}, i, SFile, false, 0, 0, 0});
            for (u32 k = 0; k < d.nHard; ++k)
                p.hards.push_back({{}, i, 0});
        }

        std::vector<SymKind> kinds;
        u32 nLoop = clampU(N / 100000, 2, 20);
        for (u32 i = 0; i < nLoop && kinds.size() < nSym; ++i)
            kinds.push_back(SLoop);
        for (u32 i = 0; i < 2 && kinds.size() < nSym; ++i)
            kinds.push_back(SSelf);
        while (kinds.size() < nSym) {
            double u = r.uni();
            kinds.push_back(u < 0.5 ? SFile : u < 0.8 ? SDir : SDangling);
        }
        for (size_t i = kinds.size(); i > 1; --i)
            std::swap(kinds[i - 1], kinds[r.below(i)]);

        u32 nextCand = 0;
        const auto nCand = static_cast<u32>(p.cands.size());
        for (u32 i = 0; i < nHard; ++i) {
            HardSlot& h = p.hards[i];
            // Every fifth link reuses a target, so some files have 3+ names.
            if (i > 0 && r.chance(0.2))
                h.cand = p.hards[r.below(i)].cand;
            else
                h.cand = nextCand++ % nCand;
        }
        for (u32 i = 0; i < nSym; ++i) {
            SymSlot& s = p.syms[i];
            s.kind = kinds[i];
            s.absolute = r.chance(0.1);
            switch (s.kind) {
            case SFile:
                s.cand = nextCand++ % nCand;
                break;
            case SDir:
                do
                    s.targetDir = static_cast<u32>(r.below(p.dirs.size()));
                while (isAncestorOrSelf(p, s.targetDir, s.dir) && p.dirs.size() > 30);
                break;
            case SDangling:
                s.targetDir = static_cast<u32>(r.below(p.dirs.size()));
                break;
            case SLoop:
                s.up = p.dirs[s.dir].depth == 0 ? 0 : r.range(1, std::min<int>(p.dirs[s.dir].depth, 4));
                break;
            default:
                break;
            }
        }
    }
    return p;
}

// ---------------------------------------------------------------- creation

struct Stats {
    std::atomic<u64> files{0}, dirs{0}, apparent{0}, written{0}, fixedDirLinks{0}, fixedFileLinks{0};
    std::atomic<u64> bins[5] = {}; // 0, <=16K, <=1M, <=50M, >50M
    std::atomic<u64> invalid{0};
};

class Maker {
  public:
    Maker(Plan& plan, u64 seed, int rootFd) : p_(plan), seed_(seed), rootFd_(rootFd) {
        Rng r(mixSeed(seed, 0xDA7A));
        for (auto& c : data_)
            c = static_cast<char>(r.next());
    }

    void run(int jobs) {
        stack_.push_back(0);
        pending_ = 1;
        std::vector<std::thread> ts;
        for (int i = 0; i < jobs; ++i)
            ts.emplace_back([this] { worker(); });
        for (auto& t : ts)
            t.join();
    }

    std::string pathOf(u32 d) const {
        if (d == 0) return ".";
        std::vector<u32> chain;
        for (u32 x = d; x != 0; x = p_.dirs[x].parent)
            chain.push_back(x);
        std::string s;
        for (auto it = chain.rbegin(); it != chain.rend(); ++it) {
            if (!s.empty()) s += '/';
            s += p_.dirs[*it].name;
        }
        return s;
    }

    Stats stats;

  private:
    void worker() {
        std::unique_lock lk(mu_);
        while (true) {
            cv_.wait(lk, [&] { return !stack_.empty() || pending_ == 0; });
            if (stack_.empty()) return;
            u32 d = stack_.back();
            stack_.pop_back();
            lk.unlock();
            process(d);
            lk.lock();
            // Children were named by process(); publishing them under the lock
            // makes those names visible to whichever worker opens them.
            for (u32 c : p_.dirs[d].children)
                stack_.push_back(c);
            pending_ += p_.dirs[d].children.size();
            --pending_;
            cv_.notify_all();
        }
    }

    void bump(std::atomic<u64>& a, u64 v) { a.fetch_add(v, std::memory_order_relaxed); }

    void process(u32 di) {
        Dir& d = p_.dirs[di];
        Rng r(mixSeed(seed_, di));
        const std::string rel = pathOf(di);
        int fd = di == 0 ? dup(rootFd_) : openat(rootFd_, rel.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
        if (fd < 0) die("open " + rel);

        std::unordered_set<std::string> used;
        used.reserve(d.children.size() + d.nFiles + d.nSym + d.nHard + d.fixedLinks.size());
        for (u32 c : d.children)
            if (p_.dirs[c].fixedName) used.insert(p_.dirs[c].name);
        for (const auto& f : d.fixedFiles)
            used.insert(f.name);
        for (const auto& l : d.fixedLinks)
            used.insert(l.name);

        for (u32 c : d.children) {
            Dir& ch = p_.dirs[c];
            if (!ch.fixedName) {
                ch.name = uniquify((ch.flags & FInvalidName) ? std::string(r.pick(kInvalidDirNames))
                                                             : dirName(d.kind, r),
                                   used);
                if (ch.flags & FInvalidName) bump(stats.invalid, 1);
            }
            if (mkdirat(fd, ch.name.c_str(), 0755) != 0) die("mkdir " + rel + "/" + ch.name);
        }
        bump(stats.dirs, d.children.size());

        // Files in one folder share an era, as they usually do.
        const double era = 1.33e9 + r.uni() * 3.9e8;
        auto hugeIt = std::lower_bound(p_.hugeFiles.begin(), p_.hugeFiles.end(), d.firstFile);
        auto badIt = std::lower_bound(p_.invalidFiles.begin(), p_.invalidFiles.end(), d.firstFile);
        auto candIt =
            std::lower_bound(p_.candByFile.begin(), p_.candByFile.end(), std::pair<u64, u32>{d.firstFile, 0});
        u64 apparent = 0, written = 0;
        u64 bins[5] = {};
        for (u32 i = 0; i < d.nFiles; ++i) {
            const u64 g = d.firstFile + i;
            std::string name;
            u64 size;
            if (i < d.fixedFiles.size()) {
                name = d.fixedFiles[i].name;
                size = d.fixedFiles[i].size;
            } else {
                bool bad = badIt != p_.invalidFiles.end() && *badIt == g;
                bool huge = hugeIt != p_.hugeFiles.end() && *hugeIt == g;
                if (bad) ++badIt, bump(stats.invalid, 1);
                if (huge) ++hugeIt;
                name = uniquify(bad ? std::string(r.pick(kInvalidNames)) : fileName(d.kind, r), used);
                size = huge ? static_cast<u64>(r.logUniform(50.0 * MiB, 200.0 * MiB)) : drawSize(d.kind, r);
            }
            while (candIt != p_.candByFile.end() && candIt->first == g) {
                p_.cands[candIt->second] = {name, di};
                ++candIt;
            }
            written += writeFile(fd, name, size, g, era + r.uni() * 4e7, rel);
            apparent += size;
            bins[size == 0 ? 0 : size <= 16 * KiB ? 1 : size <= MiB ? 2 : size <= 50 * MiB ? 3 : 4]++;
        }

        // Names for the links made after every file exists.
        for (u32 k = 0; k < d.nSym; ++k) {
            SymSlot& s = p_.syms[d.symBegin + k];
            static constexpr SV kLoop[] = {"parent", "up", "loop", "back", "all", "home-link"};
            static constexpr SV kSelf[] = {"self-loop", "broken-self"};
            switch (s.kind) {
            case SLoop:
                s.name = uniquify(std::string(r.pick(kLoop)), used);
                break;
            case SSelf:
                s.name = uniquify(std::string(r.pick(kSelf)), used);
                break;
            case SDir:
                s.name = uniquify(r.chance(0.3) ? "Link to " + dirName(d.kind, r) : dirName(d.kind, r), used);
                break;
            default: {
                static constexpr SV kPointers[] = {"latest", "current", "default"};
                s.name = uniquify(r.chance(0.1) ? std::string(r.pick(kPointers)) : fileName(d.kind, r), used);
                break;
            }
            }
        }
        for (u32 k = 0; k < d.nHard; ++k)
            p_.hards[d.hardBegin + k].name = uniquify(fileName(d.kind, r), used);

        d.mtime = static_cast<time_t>(era + 4e7);
        const timespec ts[2] = {{d.mtime, 0}, {d.mtime, 0}};
        for (const auto& l : d.fixedLinks) {
            if (symlinkat(l.target.c_str(), fd, l.name.c_str()) != 0) die("symlink " + rel + "/" + l.name);
            utimensat(fd, l.name.c_str(), ts, AT_SYMLINK_NOFOLLOW);
            bump(l.toDir ? stats.fixedDirLinks : stats.fixedFileLinks, 1);
        }
        futimens(fd, ts);
        close(fd);

        bump(stats.files, d.nFiles);
        bump(stats.apparent, apparent);
        bump(stats.written, written);
        for (int b = 0; b < 5; ++b)
            bump(stats.bins[b], bins[b]);
    }

    // Returns the bytes really written.
    u64 writeFile(int dirFd, const std::string& name, u64 size, u64 g, double mtime, const std::string& rel) {
        int fd = openat(dirFd, name.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0644);
        if (fd < 0) die("create " + rel + "/" + name);
        u64 real = size <= kFullWriteLimit ? size : kHeaderBytes;
        if (real > 0) {
            size_t off = static_cast<size_t>((g * 4099) % (sizeof data_ - kFullWriteLimit));
            if (write(fd, data_ + off, real) != static_cast<ssize_t>(real)) die("write " + rel + "/" + name);
        }
        if (size > real && ftruncate(fd, static_cast<off_t>(size)) != 0) die("truncate " + rel + "/" + name);
        timespec ts[2] = {{static_cast<time_t>(mtime), 0}, {static_cast<time_t>(mtime), 0}};
        futimens(fd, ts);
        close(fd);
        return real;
    }

    Plan& p_;
    u64 seed_;
    int rootFd_;
    char data_[64 * 1024];
    std::mutex mu_;
    std::condition_variable cv_;
    std::vector<u32> stack_;
    size_t pending_ = 0;
};

std::string relDir(const Plan& p, u32 from, u32 to) {
    std::vector<u32> down;
    u32 x = from, y = to;
    std::string up;
    while (p.dirs[x].depth > p.dirs[y].depth)
        x = p.dirs[x].parent, up += "../";
    while (p.dirs[y].depth > p.dirs[x].depth)
        down.push_back(y), y = p.dirs[y].parent;
    while (x != y) {
        x = p.dirs[x].parent, up += "../";
        down.push_back(y), y = p.dirs[y].parent;
    }
    std::string s = up;
    for (auto it = down.rbegin(); it != down.rend(); ++it)
        s += p.dirs[*it].name + "/";
    if (!s.empty()) s.pop_back();
    return s;
}

// What symlink slot S points at; absolute targets start with ABS_ROOT.
std::string symlinkTarget(const Plan& p, const Maker& m, const SymSlot& s, const std::string& absRoot,
                          u32& deadCounter) {
    auto absOf = [&](u32 d) { return d == 0 ? absRoot : absRoot + '/' + m.pathOf(d); };
    auto join = [](std::string dir, const std::string& name) {
        if (dir.empty()) return name;
        dir += '/';
        dir += name;
        return dir;
    };
    switch (s.kind) {
    case SFile: {
        const Cand& c = p.cands[s.cand];
        return s.absolute ? join(absOf(c.dir), c.name) : join(relDir(p, s.dir, c.dir), c.name);
    }
    case SDir:
        return s.absolute ? absOf(s.targetDir) : relDir(p, s.dir, s.targetDir);
    case SDangling: {
        std::string gone = "~deleted-"; // no generated name starts with '~'
        gone += num(deadCounter++);
        gone += ".tmp";
        return join(relDir(p, s.dir, s.targetDir), gone);
    }
    case SLoop: {
        if (s.absolute) {
            u32 a = s.dir;
            for (int k = 0; k < s.up; ++k)
                a = p.dirs[a].parent;
            return absOf(a);
        }
        std::string up = s.up == 0 ? std::string(".") : std::string("..");
        for (int k = 1; k < s.up; ++k)
            up += "/..";
        return up;
    }
    case SSelf:
        return s.name;
    default:
        return ".";
    }
}

std::string human(double b) {
    const char* unit[] = {"B", "KiB", "MiB", "GiB", "TiB"};
    int i = 0;
    while (b >= 1024 && i < 4)
        b /= 1024, ++i;
    char buf[32];
    std::snprintf(buf, sizeof buf, "%.2f %s", b, unit[i]);
    return buf;
}

u64 parseNum(const char* s, const char* what) {
    char* end = nullptr;
    errno = 0;
    unsigned long long v = std::strtoull(s, &end, 10);
    if (errno || end == s || *end) usage((std::string("bad number for ") + what).c_str());
    return v;
}

} // namespace

int main(int argc, char** argv) {
    const char* dirArg = nullptr;
    u64 nFiles = 1000000, seed = 1;
    int jobs = static_cast<int>(std::clamp(std::thread::hardware_concurrency(), 1u, 8u));
    for (int i = 1; i < argc; ++i) {
        std::string a = argv[i];
        auto val = [&] {
            if (i + 1 >= argc) usage(("missing value for " + a).c_str());
            return argv[++i];
        };
        if (a == "--files")
            nFiles = parseNum(val(), "--files");
        else if (a == "--seed")
            seed = parseNum(val(), "--seed");
        else if (a == "--jobs")
            jobs = static_cast<int>(std::clamp<u64>(parseNum(val(), "--jobs"), 1, 64));
        else if (a == "-h" || a == "--help")
            usage("writes a benchmark tree");
        else if (a.starts_with("-"))
            usage(("unknown option " + a).c_str());
        else if (dirArg)
            usage("only one DIR");
        else
            dirArg = argv[i];
    }
    if (!dirArg) usage("DIR missing");
    if (nFiles < 1000) usage("--files must be at least 1000");

    const auto t0 = std::chrono::steady_clock::now();
    if (mkdir(dirArg, 0755) != 0) {
        if (errno != EEXIST) die(std::string("mkdir ") + dirArg);
    }
    int rootFd = open(dirArg, O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (rootFd < 0) die(std::string("open ") + dirArg);
    {
        int probe = dup(rootFd);
        DIR* dp = fdopendir(probe);
        if (!dp) die(std::string("read ") + dirArg);
        while (dirent* e = readdir(dp)) {
            if (std::strcmp(e->d_name, ".") != 0 && std::strcmp(e->d_name, "..") != 0) {
                std::fprintf(stderr, "make-tree: %s is not empty\n", dirArg);
                return 1;
            }
        }
        closedir(dp);
    }
    std::string absRoot;
    if (char* resolved = realpath(dirArg, nullptr)) {
        absRoot = resolved;
        std::free(resolved);
    } else {
        die(std::string("realpath ") + dirArg);
    }

    Plan plan = makePlan(nFiles, seed);
    Maker maker(plan, seed, rootFd);
    maker.run(jobs);

    // Links last, so that every target already exists.
    u64 symCount[SKinds] = {};
    for (const HardSlot& h : plan.hards) {
        const Cand& c = plan.cands[h.cand];
        std::string from = maker.pathOf(c.dir) + "/" + c.name;
        std::string to = maker.pathOf(h.dir) + "/" + h.name;
        if (linkat(rootFd, from.c_str(), rootFd, to.c_str(), 0) != 0) die("link " + to + " -> " + from);
    }
    std::unordered_set<u32> hardTargets;
    for (const HardSlot& h : plan.hards)
        hardTargets.insert(h.cand);
    u32 deadCounter = 0;
    for (const SymSlot& s : plan.syms) {
        const std::string here = maker.pathOf(s.dir);
        std::string target = symlinkTarget(plan, maker, s, absRoot, deadCounter);
        std::string at = here + "/" + s.name;
        if (symlinkat(target.c_str(), rootFd, at.c_str()) != 0) die("symlink " + at);
        const timespec ts[2] = {{plan.dirs[s.dir].mtime, 0}, {plan.dirs[s.dir].mtime, 0}};
        utimensat(rootFd, at.c_str(), ts, AT_SYMLINK_NOFOLLOW);
        symCount[s.kind]++;
    }
    // Adding links touched their folders; put back the planned times so the
    // tree is identical from run to run.
    for (u32 i = 0; i < plan.dirs.size(); ++i) {
        const Dir& d = plan.dirs[i];
        if (d.nSym + d.nHard == 0) continue;
        const timespec ts[2] = {{d.mtime, 0}, {d.mtime, 0}};
        utimensat(rootFd, maker.pathOf(i).c_str(), ts, 0);
    }
    symCount[SDir] += maker.stats.fixedDirLinks.load();
    symCount[SFile] += maker.stats.fixedFileLinks.load();
    close(rootFd);

    const double secs = std::chrono::duration<double>(std::chrono::steady_clock::now() - t0).count();
    const Stats& st = maker.stats;
    u64 symTotal = 0;
    for (u64 v : symCount)
        symTotal += v;
    std::printf("make-tree: %s  (seed %llu, %d jobs, %.1f s)\n", absRoot.c_str(),
                static_cast<unsigned long long>(seed), jobs, secs);
    unsigned deepest = 0;
    std::vector<u64> widths;
    for (const Dir& d : plan.dirs) {
        deepest = std::max<unsigned>(deepest, d.depth);
        widths.push_back(d.children.size() + d.nFiles + d.nSym + d.nHard + d.fixedLinks.size());
    }
    std::sort(widths.rbegin(), widths.rend());
    widths.resize(4, 0);
    std::printf("  folders    %10llu  (below DIR; deepest %u levels down)\n",
                static_cast<unsigned long long>(st.dirs.load()), deepest);
    std::printf("  files      %10llu  (empty %llu, <=16KiB %llu, <=1MiB %llu, <=50MiB %llu, >50MiB %llu)\n",
                static_cast<unsigned long long>(st.files.load()),
                static_cast<unsigned long long>(st.bins[0].load()),
                static_cast<unsigned long long>(st.bins[1].load()),
                static_cast<unsigned long long>(st.bins[2].load()),
                static_cast<unsigned long long>(st.bins[3].load()),
                static_cast<unsigned long long>(st.bins[4].load()));
    std::printf("  symlinks   %10llu  (", static_cast<unsigned long long>(symTotal));
    for (int k = 0; k < SKinds; ++k)
        std::printf("%s%s %llu", k ? ", " : "", kSymKindName[k],
                    static_cast<unsigned long long>(symCount[k]));
    std::printf(")\n");
    std::printf("  hardlinks  %10zu  (extra names for %zu files)\n", plan.hards.size(), hardTargets.size());
    std::printf("  widest     %10llu, %llu, %llu, %llu entries\n", static_cast<unsigned long long>(widths[0]),
                static_cast<unsigned long long>(widths[1]), static_cast<unsigned long long>(widths[2]),
                static_cast<unsigned long long>(widths[3]));
    std::printf("  bad UTF-8  %10llu  names\n", static_cast<unsigned long long>(st.invalid.load()));
    std::printf("  bytes      %s apparent, %s of data written\n",
                human(static_cast<double>(st.apparent.load())).c_str(),
                human(static_cast<double>(st.written.load())).c_str());
    return 0;
}
