#include "plist/BinaryReader.h"
#include "plist/BinaryWriter.h"
#include "plist/PlistValue.h"
#include "plist/XmlPlist.h"

#include "TempTree.h"

#include <gtest/gtest.h>

#include <bit>
#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <optional>
#include <random>
#include <sstream>
#include <string>
#include <vector>

namespace brenvo::plist {
namespace {

using namespace std::string_literals;
using Ref = BinaryReader::Ref;
constexpr Ref kNoRef = BinaryReader::kNoRef;

// One node of a scan snapshot, as the program stores it.
struct Entry {
    std::string name;
    std::int64_t kind = 0, size = 0, count = 0;
    std::optional<double> modified;
    bool reserved = false;
    std::optional<std::string> extra;
    std::optional<std::vector<Entry>> children;

    bool operator==(const Entry&) const = default;
};

Entry entry(std::string name, std::int64_t kind, std::int64_t size, std::int64_t count,
            std::optional<double> modified = std::nullopt) {
    return Entry{std::move(name), kind, size, count, modified, false, std::nullopt, std::nullopt};
}

Ref writeEntry(BinaryWriter& w, const Entry& e) {
    std::vector<std::pair<Ref, Ref>> m;
    m.emplace_back(w.key("n"), w.string(e.name));
    m.emplace_back(w.key("k"), w.integer(e.kind));
    m.emplace_back(w.key("s"), w.integer(e.size));
    m.emplace_back(w.key("c"), w.integer(e.count));
    if (e.modified) m.emplace_back(w.key("m"), w.date(*e.modified));
    if (e.reserved) m.emplace_back(w.key("r"), w.boolean(true));
    if (e.extra) m.emplace_back(w.key("x"), w.string(*e.extra));
    if (e.children) {
        std::vector<Ref> refs;
        for (const Entry& child : *e.children)
            refs.push_back(writeEntry(w, child));
        m.emplace_back(w.key("ch"), w.array(refs));
    }
    return w.dict(m);
}

// refWidth 0 leaves the writer's default.
std::string writeDocument(const Entry& root, const std::string& rootPath, double date, unsigned refWidth = 0,
                          std::uint64_t objects = 0) {
    std::string out;
    BinaryWriter w(out);
    if (refWidth) {
        EXPECT_TRUE(w.setReferenceWidth(refWidth, objects));
    }
    std::vector<std::pair<Ref, Ref>> top;
    top.emplace_back(w.key("rootPath"), w.string(rootPath));
    top.emplace_back(w.key("date"), w.date(date));
    top.emplace_back(w.key("root"), writeEntry(w, root));
    EXPECT_TRUE(w.finish(w.dict(top)));
    return out;
}

// Recursion is safe once isTree() has vouched for the document.
std::optional<Entry> readEntry(const BinaryReader& r, Ref ref) {
    const auto d = r.dict(ref);
    if (!d) return std::nullopt;
    const auto name = r.string(d->find("n"));
    const auto kind = r.integer(d->find("k")), size = r.integer(d->find("s")),
               count = r.integer(d->find("c"));
    if (!name || !kind || !size || !count) return std::nullopt;
    Entry e = entry(*name, *kind, *size, *count);
    if (Ref m = d->find("m"); m != kNoRef && !(e.modified = r.date(m))) return std::nullopt;
    if (Ref x = d->find("x"); x != kNoRef && !(e.extra = r.string(x))) return std::nullopt;
    if (Ref flag = d->find("r"); flag != kNoRef) e.reserved = r.boolean(flag).value_or(false);
    if (Ref ch = d->find("ch"); ch != kNoRef) {
        const auto a = r.array(ch);
        if (!a) return std::nullopt;
        e.children.emplace();
        for (std::size_t i = 0; i < a->size(); ++i) {
            auto child = readEntry(r, a->at(i));
            if (!child) return std::nullopt;
            e.children->push_back(std::move(*child));
        }
    }
    return e;
}

// Sixteen children, one for each combination of the optional keys, named awkwardly.
Entry sampleTree(bool includeInvalidUtf8) {
    std::vector<std::string> names = {"plain", "\xf0\x9f\x98\x80 smile", "two\nlines",
                                      "\xe6\x97\xa5\xe6\x9c\xac", ""};
    if (includeInvalidUtf8) names.insert(names.end(), {"caf\xe9", "\xed\xa0\x80", "\xff\xfe", "a\xe2\x82"});
    Entry root = entry("/", 1, 0, 0);
    root.children.emplace();
    for (int mask = 0; mask < 16; ++mask) {
        Entry e = entry(names[mask % names.size()], mask % 4, std::int64_t{mask} * 1000003, mask);
        if (mask & 1) e.modified = 725803200.5 + mask;
        e.reserved = mask & 2;
        if (mask & 4) e.extra = "x-" + names[(mask + 1) % names.size()];
        if (mask & 8) e.children = std::vector<Entry>{entry("leaf", 0, 42, 1)};
        root.children->push_back(e);
    }
    return root;
}

std::string trailerOf(std::string_view file) {
    return std::string(file.substr(file.size() - 32));
}

void putBigEndian(std::string& s, std::size_t at, std::uint64_t value, unsigned width) {
    for (unsigned i = 0; i < width; ++i)
        s[at + i] = static_cast<char>(value >> (8 * (width - 1 - i)));
}

// A file made of the given raw objects, with 2-byte offsets.
std::string assemble(const std::vector<std::string>& objects, std::uint64_t top, unsigned refWidth = 1) {
    std::string out = "bplist00";
    std::string table;
    for (const std::string& o : objects) {
        table += {static_cast<char>(out.size() >> 8), static_cast<char>(out.size())};
        out += o;
    }
    const std::size_t tableOffset = out.size();
    out += table + std::string(32, '\0');
    const std::size_t t = out.size() - 32;
    out[t + 6] = 2;
    out[t + 7] = static_cast<char>(refWidth);
    putBigEndian(out, t + 8, objects.size(), 8);
    putBigEndian(out, t + 16, top, 8);
    putBigEndian(out, t + 24, tableOffset, 8);
    return out;
}

TEST(PlistBinary, SnapshotTreeRoundTripsByteExactly) {
    const Entry tree = sampleTree(true);
    const std::string file = writeDocument(tree, "/home/\xe9t\xe9", 728395200);
    const auto reader = BinaryReader::open(file);
    ASSERT_TRUE(reader);
    ASSERT_TRUE(reader->isTree(reader->top(), 64));
    const auto top = reader->dict(reader->top());
    ASSERT_TRUE(top);
    EXPECT_EQ(reader->string(top->find("rootPath")), "/home/\xe9t\xe9");
    EXPECT_EQ(reader->date(top->find("date")), 728395200.0);
    EXPECT_EQ(readEntry(*reader, top->find("root")), tree);
    EXPECT_EQ(top->find("missing"), kNoRef);
    EXPECT_EQ(reader->string(top->find("date")), std::nullopt) << "wrong type answers nothing";

    // The generic reading agrees.
    const auto value = parse(file);
    ASSERT_TRUE(value);
    const Value& leaf = value->find("root")->find("ch")->array()->at(8).find("ch")->array()->front();
    EXPECT_EQ(*leaf.findString("n"), "leaf");
    EXPECT_EQ(value->find("root")->find("ch")->array()->at(1).find("m")->date(), Date{725803201.5});
}

TEST(PlistBinary, StringsUseAsciiOrUtf16WithEscapedBytes) {
    const auto stringObject = [](std::string_view text) {
        std::string out;
        BinaryWriter w(out);
        EXPECT_TRUE(w.finish(w.string(text)));
        return out.substr(8, out.size() - 8 - 1 - 32);
    };
    EXPECT_EQ(stringObject("ab"), "\x52\x61\x62");
    EXPECT_EQ(stringObject("a\xe9"), std::string("\x62\x00\x61\xdc\xe9", 5));
    EXPECT_EQ(stringObject("\xf0\x9f\x98\x80"), "\x62\xd8\x3d\xde\x00"s);
    EXPECT_EQ(stringObject(std::string(15, 'z')), "\x5f\x10\x0f" + std::string(15, 'z'));

    // Foreign UTF-16: a valid pair is combined, a lone high surrogate becomes U+FFFD.
    const std::string foreign = assemble({"\x63\xd8\x3d\xde\x00\xd8\x00"s, "\x52\x61\xe9"}, 0);
    const auto reader = BinaryReader::open(foreign);
    ASSERT_TRUE(reader);
    EXPECT_EQ(reader->string(0), "\xf0\x9f\x98\x80\xef\xbf\xbd");
    EXPECT_EQ(reader->string(1), std::nullopt) << "an ASCII string object holding a non-ASCII byte";
}

TEST(PlistBinary, NumbersAndDatesKeepTheirValues) {
    const std::int64_t values[] = {0, 255, 256, 65535, 65536, 1LL << 31, 1LL << 32, INT64_MAX, -1, INT64_MIN};
    const unsigned widths[] = {1, 1, 2, 2, 4, 4, 8, 8, 8, 8};
    for (std::size_t i = 0; i < std::size(values); ++i) {
        std::string out;
        BinaryWriter w(out);
        ASSERT_TRUE(w.finish(w.integer(values[i])));
        EXPECT_EQ(out.size(), 8 + 1 + widths[i] + 1 + 32) << values[i];
        const auto reader = BinaryReader::open(out);
        ASSERT_TRUE(reader);
        EXPECT_EQ(reader->integer(reader->top()), values[i]);
    }
    // 16-byte integers (values above INT64_MAX from other writers) and 4-byte reals.
    const std::string zeros(8, '\0'), ones(8, '\xff');
    const std::string foreign =
        assemble({"\x14" + zeros + "\x00\x00\x00\x00\x00\x00\x01\x00"s,
                  "\x14" + zeros + "\x80" + zeros.substr(1), "\x14" + ones + ones, "\x22\x3f\xc0\x00\x00"s},
                 0);
    const auto reader = BinaryReader::open(foreign);
    ASSERT_TRUE(reader);
    EXPECT_EQ(reader->integer(0), 256);
    EXPECT_EQ(reader->integer(1), std::nullopt);
    EXPECT_EQ(reader->integer(2), -1);
    EXPECT_EQ(reader->real(3), 1.5);

    std::string out;
    BinaryWriter w(out);
    const Ref items[] = {w.date(-1e9), w.date(728395200.25), w.real(-0.1), w.boolean(false),
                         w.data("\0\xff"s)};
    ASSERT_TRUE(w.finish(w.array(items)));
    const auto value = parse(out);
    ASSERT_TRUE(value);
    EXPECT_EQ(*value, Value(Value::Array{Date{-1e9}, Date{728395200.25}, -0.1, false, Data{"\0\xff"s}}));
}

TEST(PlistBinary, SharesKeysSmallNumbersAndBooleans) {
    std::string out;
    BinaryWriter w(out);
    std::vector<Ref> rows;
    for (int i = 0; i < 100; ++i) {
        const Ref row[] = {w.key("name"), w.integer(-1), w.integer(255), w.boolean(true),
                           w.integer(1000 + i)};
        rows.push_back(w.array(row));
    }
    ASSERT_TRUE(w.finish(w.array(rows)));
    EXPECT_EQ(w.objectCount(), 4 + 100 * 2 + 1);
}

TEST(PlistBinary, ManyObjectsNeedWideOffsets) {
    std::string out;
    BinaryWriter w(out);
    EXPECT_FALSE(w.setReferenceWidth(2, 70001)); // too many for two bytes: stays at four
    ASSERT_TRUE(w.setReferenceWidth(3, 70001));
    std::vector<Ref> refs;
    for (int i = 0; i < 70000; ++i)
        refs.push_back(w.string("item " + std::to_string(i)));
    ASSERT_TRUE(w.finish(w.array(refs)));
    EXPECT_EQ(trailerOf(out)[6], 3) << "offset width";
    EXPECT_EQ(trailerOf(out)[7], 3) << "reference width";
    const auto reader = BinaryReader::open(out);
    ASSERT_TRUE(reader);
    const auto items = reader->array(reader->top());
    ASSERT_TRUE(items);
    ASSERT_EQ(items->size(), 70000u);
    for (std::size_t i : {std::size_t{0}, std::size_t{65535}, std::size_t{69999}}) {
        EXPECT_EQ(reader->string(items->at(i)), "item " + std::to_string(i));
    }
    EXPECT_EQ(items->at(70000), kNoRef);
}

TEST(PlistBinary, WriterReportsFailures) {
    int calls = 0;
    BinaryWriter full([&](std::string_view) {
        errno = ENOSPC;
        return ++calls < 2;
    });
    Ref last = 0;
    for (int i = 0; i < 20000; ++i)
        last = full.string("a long enough name to fill the buffer " + std::to_string(i));
    EXPECT_FALSE(full.finish(last));
    EXPECT_EQ(full.error(), ENOSPC);

    std::string out;
    BinaryWriter misused(out);
    const Ref one = misused.integer(1);
    const Ref bad[] = {one, one + 5};
    misused.array(bad);
    EXPECT_FALSE(misused.finish(one));
    EXPECT_EQ(misused.error(), EINVAL);

    // A FILE gets the same bytes as a string.
    std::string expected;
    BinaryWriter toString(expected);
    ASSERT_TRUE(toString.finish(toString.string("same")));
    std::FILE* file = std::tmpfile();
    ASSERT_TRUE(file);
    BinaryWriter toFile(file);
    ASSERT_TRUE(toFile.finish(toFile.string("same")));
    std::string got(expected.size() + 1, '\0');
    std::rewind(file);
    got.resize(std::fread(got.data(), 1, got.size(), file));
    std::fclose(file);
    EXPECT_EQ(got, expected);
}

TEST(PlistBinary, RejectsMalformedTrailers) {
    const std::string good = writeDocument(sampleTree(false), "/", 0);
    const std::size_t t = good.size() - 32;
    struct Patch {
        std::size_t at;
        std::uint64_t value;
        unsigned width;
    };
    const std::uint64_t objects = BinaryReader::open(good)->objectCount();
    const unsigned offsetWidth = static_cast<unsigned char>(good[t + 6]);
    const Patch patches[] = {
        {t + 6, 0, 1},
        {t + 6, 9, 1},
        {t + 7, 0, 1},
        {t + 7, 9, 1},
        {t + 8, 0, 8},
        {t + 8, 1ULL << 62, 8},
        {t + 8, objects + 1, 8},
        {t + 16, objects, 8},
        {t + 24, 0, 8},
        {t + 24, good.size(), 8},
        {t + 24, ~0ULL, 8},
        {t - offsetWidth, good.size() - 32 - objects * offsetWidth,
         offsetWidth}, // last object, now at the table
    };
    for (const Patch& p : patches) {
        std::string bad = good;
        putBigEndian(bad, p.at, p.value, p.width);
        std::string error;
        EXPECT_FALSE(BinaryReader::open(bad, &error)) << p.at - t << " = " << p.value;
        EXPECT_FALSE(error.empty());
    }
    for (std::size_t length = 0; length < good.size(); ++length) {
        EXPECT_FALSE(parse(good.substr(0, length))) << length;
    }
}

TEST(PlistBinary, RejectsMalformedObjects) {
    const std::string huge = "\x13\x7f\xff\xff\xff\xff\xff\xff\xff";
    const std::string file = assemble(
        {
            "\xd1\x01\x00"s, // 0: a dictionary holding itself under key 1
            "\x51k",         // 1
            "\xa1\x09",      // 2: an array referring past the last object
            "\xaf" + huge,   // 3: an array claiming 2^63 elements
            "\x5f" + huge,   // 4: a string claiming as much
            "\x5f\x22\x00",  // 5: a count that is not an integer
            "\xd1\x05\x01",  // 6: a dictionary whose key is not a string
            "\x0f",          // 7: fill byte, not an object
        },
        0);
    const auto reader = BinaryReader::open(file);
    ASSERT_TRUE(reader);
    std::string error;
    EXPECT_FALSE(toValue(*reader, 0, 64, &error));
    EXPECT_NE(error.find("contains itself"), std::string::npos) << error;
    EXPECT_FALSE(reader->isTree(0, 64));
    for (Ref ref : {2u, 3u, 4u, 5u, 6u, 7u, 8u, kNoRef}) {
        EXPECT_FALSE(toValue(*reader, ref)) << ref;
        EXPECT_FALSE(reader->array(ref) || reader->string(ref)) << ref;
    }
    EXPECT_EQ(reader->type(7), BinaryReader::Type::Invalid);

    // Objects whose payload would run past the object area into the offset table.
    for (const std::string& cut :
         {"\x63\x00\x61\x00\x62"s, "\x44\x01\x02"s, "\xa3\x00\x00"s, "\xd2\x00\x00\x00"s, "\x12\x00\x00"s,
          "\x33\x00"s, "\x5f\x10"s, "\x5f\x11\x00"s}) {
        const std::string alone = assemble({cut}, 0);
        const auto r = BinaryReader::open(alone);
        ASSERT_TRUE(r);
        EXPECT_EQ(r->type(0), BinaryReader::Type::Invalid) << testing::PrintToString(cut);
        EXPECT_FALSE(r->string(0) || r->data(0) || r->array(0) || r->dict(0) || r->integer(0) || r->date(0));
    }

    // Thirty levels of arrays holding sixteen references to the next level: tiny on disk, 16^30 values.
    std::vector<std::string> levels;
    for (int i = 0; i < 30; ++i)
        levels.push_back("\xaf\x10\x10" + std::string(16, static_cast<char>(i + 1)));
    levels.push_back("\x10\x01");
    const std::string bombFile = assemble(levels, 0);
    const auto bomb = BinaryReader::open(bombFile);
    ASSERT_TRUE(bomb);
    EXPECT_FALSE(toValue(*bomb, 0, 64, &error));
    EXPECT_NE(error.find("too much"), std::string::npos) << error;
    EXPECT_FALSE(bomb->isTree(0, 64));
    EXPECT_TRUE(bomb->isTree(29, 64)) << "one level alone is a tree";
}

TEST(PlistBinary, SurvivesRandomCorruption) {
    const std::string good = writeDocument(sampleTree(true), "/r", 1);
    int decoded = 0;
    for (unsigned seed = 0; seed < 3000; ++seed) {
        std::mt19937 random(seed);
        std::string bad = good;
        const int flips = 1 + static_cast<int>(random() % 4);
        for (int i = 0; i < flips; ++i)
            bad[random() % bad.size()] = static_cast<char>(random());
        decoded += parse(bad).has_value();
        if (const auto reader = BinaryReader::open(bad); reader && reader->isTree(reader->top(), 64)) {
            if (const auto top = reader->dict(reader->top())) readEntry(*reader, top->find("root"));
        }
    }
    // Both outcomes occur, so the walk above did run over damaged but readable files.
    EXPECT_GT(decoded, 100);
    EXPECT_LT(decoded, 3000);
}

bool havePython() {
    return std::system("command -v python3 >/dev/null 2>&1") == 0;
}

std::string run(const std::string& command) {
    std::string out;
    if (std::FILE* pipe = popen(command.c_str(), "r")) {
        char buffer[65536];
        for (std::size_t n; (n = std::fread(buffer, 1, sizeof buffer, pipe)) > 0;)
            out.append(buffer, n);
        EXPECT_EQ(pclose(pipe), 0) << command;
    }
    return out;
}

// The form the Python script below prints: dictionaries with sorted keys, strings as hex bytes.
std::string digest(const Entry& e) {
    std::ostringstream out;
    auto str = [](std::string_view s) {
        std::string hex = "\"";
        for (unsigned char c : s)
            hex += "0123456789abcdef"[c >> 4], hex += "0123456789abcdef"[c & 15];
        return hex + "\"";
    };
    out << "{c=" << e.count;
    if (e.children) {
        out << ",ch=[";
        for (std::size_t i = 0; i < e.children->size(); ++i)
            out << (i ? "," : "") << digest((*e.children)[i]);
        out << "]";
    }
    out << ",k=" << e.kind;
    if (e.modified) out << ",m=@" << static_cast<long long>(*e.modified);
    out << ",n=" << str(e.name);
    if (e.reserved) out << ",r=T";
    out << ",s=" << e.size;
    if (e.extra) out << ",x=" << str(*e.extra);
    return out.str() + "}";
}

constexpr const char* kPythonDigest = R"(
import datetime, plistlib, sys
EPOCH = datetime.datetime(2001, 1, 1)
def d(v):
    if isinstance(v, dict): return '{' + ','.join(k + '=' + d(v[k]) for k in sorted(v)) + '}'
    if isinstance(v, list): return '[' + ','.join(d(x) for x in v) + ']'
    if isinstance(v, bool): return 'T' if v else 'F'
    if isinstance(v, int): return str(v)
    if isinstance(v, str): return '"' + v.encode('utf-8', 'surrogateescape').hex() + '"'
    if isinstance(v, datetime.datetime): return '@%d' % ((v - EPOCH).total_seconds() // 1)
    raise TypeError(type(v))
with open(sys.argv[1], 'rb') as f: print(d(plistlib.load(f)), end='')
)";

// Python's plistlib rejects UTF-16 strings with lone surrogates, so the names here are valid UTF-8. Small
// documents get two-byte references, large ones three, as the snapshot cache asks for.
TEST(PlistPython, ReadsWhatWeWrite) {
    if (!havePython()) GTEST_SKIP() << "python3 is not available";
    test::TempTree dir;
    std::ofstream(dir.path("digest.py")) << kPythonDigest;
    Entry tree = sampleTree(false);
    for (unsigned refWidth : {2u, 3u}) {
        if (refWidth == 3)
            for (int i = 0; i < 25000; ++i)
                tree.children->push_back(entry("file " + std::to_string(i), 0, 1000 + i, 1));
        const std::string file =
            writeDocument(tree, "/Users/\xc3\xa9", 728395200, refWidth, (1u << (8 * refWidth)) - 1);
        ASSERT_EQ(trailerOf(file)[7], static_cast<char>(refWidth));
        if (refWidth == 3) {
            ASSERT_GE(trailerOf(file)[6], 3) << "offset width";
        }
        std::ofstream(dir.path("tree.plist"), std::ios::binary) << file;
        const std::string expected =
            "{date=@728395200,root=" + digest(tree) + ",rootPath=\"2f55736572732fc3a9\"}";
        const std::string got = run("python3 " + dir.path("digest.py") + " " + dir.path("tree.plist"));
        EXPECT_TRUE(got == expected) << "python read:\n" << got.substr(0, 2000);
    }
}

TEST(PlistPython, WeReadWhatPythonWrites) {
    if (!havePython()) GTEST_SKIP() << "python3 is not available";
    test::TempTree dir;
    std::ofstream(dir.path("make.py")) << R"(
import datetime, plistlib, sys
doc = {'rootPath': '/Users/\u00e9', 'date': datetime.datetime(2024, 1, 31, 12, 0, 0),
       'root': {'n': 'caf\u00e9 \U0001F600', 'k': 1, 's': 2**40, 'c': 2, 'r': True,
                'ch': [{'n': 'x', 'k': 0, 's': 0, 'c': 1, 'm': datetime.datetime(2001, 1, 1, 0, 0, 1)}]},
       'big': 2**64 - 1, 'neg': -5, 'real': 1.5, 'blob': b'\x00\xff'}
with open(sys.argv[1], 'wb') as f: plistlib.dump(doc, f, fmt=plistlib.FMT_BINARY)
)";
    run("python3 " + dir.path("make.py") + " " + dir.path("py.plist"));
    std::ifstream in(dir.path("py.plist"), std::ios::binary);
    const std::string file((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
    const auto reader = BinaryReader::open(file);
    ASSERT_TRUE(reader);
    const auto top = reader->dict(reader->top());
    ASSERT_TRUE(top);
    EXPECT_EQ(reader->date(top->find("date")), parseIsoDate("2024-01-31T12:00:00Z"));
    EXPECT_EQ(reader->integer(top->find("big")), std::nullopt);
    EXPECT_EQ(reader->integer(top->find("neg")), -5);
    EXPECT_EQ(reader->real(top->find("real")), 1.5);
    EXPECT_EQ(reader->data(top->find("blob")), "\0\xff"s);
    const auto root = reader->dict(top->find("root"));
    ASSERT_TRUE(root);
    Entry expected = entry("caf\xc3\xa9 \xf0\x9f\x98\x80", 1, 1LL << 40, 2);
    expected.reserved = true;
    expected.children = std::vector<Entry>{entry("x", 0, 0, 1, 1.0)};
    EXPECT_EQ(readEntry(*reader, top->find("root")), expected);
    EXPECT_EQ(reader->string(top->find("rootPath")), "/Users/\xc3\xa9");
}

TEST(PlistXml, ReadsAnInfoPlist) {
    const char* xml = R"(<?xml version="1.0" encoding="UTF-8"?>
<!DOCTYPE plist PUBLIC "-//Apple//DTD PLIST 1.0//EN" "http://www.apple.com/DTDs/PropertyList-1.0.dtd">
<plist version="1.0">
<!-- written by hand -->
<dict>
	<key>CFBundleIdentifier</key>
	<string>com.example.Tom&amp;Jerry</string>
	<key>CFBundleName</key> <string>Caf&#xE9; &lt;&#233;&gt; &quot;q&quot; &apos;a&apos;</string>
	<key>CFBundleShortVersionString</key><string><![CDATA[2.1 <beta>]]></string>
	<key>LSMinimumSystemVersion</key><string/>
	<key>CFBundleDocumentTypes</key>
	<array>
		<dict>
			<key>CFBundleTypeExtensions</key>
			<array><string>txt</string><string>md</string></array>
			<key>LSItemContentTypes</key><array/>
		</dict>
	</array>
	<key>Build</key><integer> -42 </integer>
	<key>Hex</key><integer>0x1F</integer>
	<key>Scale</key><real>2.5e1</real>
	<key>LSUIElement</key><true/>
	<key>NSHighResolutionCapable</key><false></false>
	<key>Released</key><date>2024-01-31T12:00:00Z</date>
	<key>Icon</key><data>
		AP8A
		/wA=
	</data>
	<key>Tiny</key><data>/w==</data>
	<key>Empty</key><dict/>
</dict>
</plist>
)";
    std::string error;
    const auto v = parse(xml, &error);
    ASSERT_TRUE(v) << error;
    EXPECT_EQ(*v->findString("CFBundleIdentifier"), "com.example.Tom&Jerry");
    EXPECT_EQ(*v->findString("CFBundleName"), "Caf\xc3\xa9 <\xc3\xa9> \"q\" 'a'");
    EXPECT_EQ(*v->findString("CFBundleShortVersionString"), "2.1 <beta>");
    EXPECT_EQ(*v->findString("LSMinimumSystemVersion"), "");
    const Value& types = v->find("CFBundleDocumentTypes")->array()->at(0);
    EXPECT_EQ(*types.find("CFBundleTypeExtensions"), Value(Value::Array{"txt", "md"}));
    EXPECT_EQ(*types.find("LSItemContentTypes"), Value(Value::Array{}));
    EXPECT_EQ(v->find("Build")->integer(), -42);
    EXPECT_EQ(v->find("Hex")->integer(), 31);
    EXPECT_EQ(v->find("Scale")->real(), 25.0);
    EXPECT_EQ(v->find("LSUIElement")->boolean(), true);
    EXPECT_EQ(v->find("NSHighResolutionCapable")->boolean(), false);
    EXPECT_EQ(v->find("Released")->date(), Date{728395200});
    EXPECT_EQ(*v->find("Icon")->data(), "\x00\xff\x00\xff\x00"s);
    EXPECT_EQ(*v->find("Tiny")->data(), "\xff");
    EXPECT_EQ(*v->find("Empty"), Value(Value::Dict{}));

    const std::string_view whole = xml;
    for (std::size_t length = 0; length < whole.find("</plist>") + 7; ++length) {
        EXPECT_FALSE(parseXml(whole.substr(0, length))) << length;
    }
}

TEST(PlistXml, DatesCountFrom2001) {
    EXPECT_EQ(parseIsoDate("2001-01-01T00:00:00Z"), 0.0);
    EXPECT_EQ(parseIsoDate("1970-01-01T00:00:00Z"), -978307200.0);
    EXPECT_EQ(parseIsoDate("2000-02-29T23:59:59Z"), -26438401.0);
    EXPECT_EQ(parseIsoDate("2024Z"), parseIsoDate("2024-01-01T00:00:00Z"));
    for (const char* bad : {"1900-02-29T00:00:00Z", "2024-13-01T00:00:00Z", "2024-01-31T24:00:00Z",
                            "2024-01-31T12:00:00", "2024-1-31T12:00:00Z", "2024-01-31T12:00:00Z "}) {
        EXPECT_EQ(parseIsoDate(bad), std::nullopt) << bad;
    }
}

TEST(PlistXml, RejectsMalformedDocumentsWithTheLine) {
    std::string deep;
    for (int i = 0; i < 65; ++i)
        deep += "<array>";
    for (int i = 0; i < 65; ++i)
        deep += "</array>";
    const std::pair<std::string, const char*> cases[] = {
        {"", "ends where"},
        {"<plist><dict><key>a</key></dict></plist>", "has no value"},
        {"<plist><dict><string>a</string></dict></plist>", "expected <key>"},
        {"<plist>\n<array><string>a</array></plist>", "line 2: expected </string>"},
        {"<plist><integer>12a</integer></plist>", "not a 64-bit integer"},
        {"<plist><integer>9223372036854775808</integer></plist>", "not a 64-bit integer"},
        {"<plist><date>2023-02-29T00:00:00Z</date></plist>", "not a date"},
        {"<plist><data>ab!c</data></plist>", "base64"},
        {"<plist><string>&nbsp;</string></plist>", "unknown entity"},
        {"<plist><string>&#xD800;</string></plist>", "character reference"},
        {"<!DOCTYPE x [<!ENTITY a \"aaaa\">]><plist><string>&a;</string></plist>", "internal subset"},
        {"<plist><key>a</key></plist>", "outside a dictionary"},
        {"<plist><widget/></plist>", "unknown element"},
        {"<plist><true/></plist><plist/>", "after the property list"},
        {"<?xml version=\"1.0\" encoding=\"UTF-16\"?><plist/>", "not supported"},
        {"<plist><string>open", "unterminated"},
        {"<plist>" + deep + "</plist>", "nested more than 64"},
    };
    for (const auto& [xml, message] : cases) {
        std::string error;
        EXPECT_FALSE(parseXml(xml, &error)) << xml;
        EXPECT_NE(error.find(message), std::string::npos) << xml << " -> " << error;
        EXPECT_EQ(error.rfind("line ", 0), 0u) << error;
    }
    std::string error;
    EXPECT_FALSE(parse("bplist01" + std::string(64, '\0'), &error));
    EXPECT_NE(error.find("bplist00"), std::string::npos) << error;
}

} // namespace
} // namespace brenvo::plist
