#include "json/Json.h"
#include "json/JsonWriter.h"
#include "util/Utf8.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <limits>
#include <random>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

using namespace std::string_literals;
using namespace std::string_view_literals;

namespace brenvo {
namespace {

// Encodes cp in exactly `length` bytes, the way a careless encoder would: this produces overlong forms,
// encoded surrogates and values past U+10FFFF on request, which the code under test must reject.
std::string encodeAs(char32_t cp, int length) {
    std::string out;
    if (length == 1) {
        out.push_back(static_cast<char>(cp));
        return out;
    }
    static constexpr unsigned char kLeadMarks[] = {0, 0, 0xC0, 0xE0, 0xF0};
    out.push_back(static_cast<char>(kLeadMarks[length] | (cp >> (6 * (length - 1)))));
    for (int i = length - 2; i >= 0; --i) out.push_back(static_cast<char>(0x80 | ((cp >> (6 * i)) & 0x3F)));
    return out;
}

int naturalLength(char32_t cp) {
    return cp < 0x80 ? 1 : cp < 0x800 ? 2 : cp < 0x10000 ? 3 : 4;
}

std::string writeString(std::string_view bytes) {
    std::string out;
    JsonWriter writer(out);
    writer.value(bytes);
    EXPECT_TRUE(writer.finish());
    return out;
}

std::string parseString(std::string_view json) {
    JsonParseError error;
    auto value = parseJson(json, &error);
    EXPECT_TRUE(value) << error.describe();
    if (!value) return {};
    EXPECT_TRUE(value->isString());
    return value->asString();
}

std::string hexOf(std::string_view bytes) {
    std::string out;
    char buf[4];
    for (unsigned char c : bytes) {
        std::snprintf(buf, sizeof buf, "%02x ", c);
        out += buf;
    }
    return out;
}

// Names that a file system can hand us and that break naive UTF-8 handling.
const std::vector<std::string> kAwkwardNames = {
    "caf\xe9",          // Latin-1
    "\xff",             // never valid anywhere
    "\xe2\x82",         // truncated 3-byte sequence at the end
    "\xe2\x82z",        // truncated 3-byte sequence followed by ASCII
    "\xf0\x9f\x98",     // truncated 4-byte sequence
    "\xed\xa0\x80",     // encoded surrogate
    "\xed\xb3\xa9",     // encoded U+DCE9, the escape for 0xE9 itself
    "\xc0\xaf",         // overlong '/'
    "\xf4\x90\x80\x80", // above U+10FFFF
    "\x80\xbf",         // stray continuation bytes
    "line\nbreak",
    "tab\there\rcr",
    "quote\"s and back\\slash",
    "\x01\x1f\x7f\b\f",
    "\xf0\x9f\x98\x80 emoji",
    "mixed \xc3\xa9 \xe9 \xe2\x98\x83",
    "",
    "nul\0inside"s,
    "\\udce9 written out",
};

// --- UTF-8 -------------------------------------------------------------------------------------------------

TEST(Utf8Validity, AcceptsAndDecodesEveryScalarValue) {
    for (char32_t cp = 0; cp <= 0x10FFFF; ++cp) {
        if (cp >= 0xD800 && cp <= 0xDFFF) continue;
        const std::string bytes = encodeAs(cp, naturalLength(cp));
        std::string appended;
        utf8::appendCodePoint(appended, cp);
        const bool ok = utf8::isValid(bytes) && utf8::decodeEscaped(bytes) == std::u32string(1, cp);
        if (!ok || appended != bytes) {
            ADD_FAILURE() << "U+" << std::hex << static_cast<std::uint32_t>(cp) << " bytes " << hexOf(bytes);
            return;
        }
    }
}

TEST(Utf8Validity, RejectsEncodedSurrogatesOverlongFormsAndValuesAboveMax) {
    std::vector<std::string> invalid;
    for (char32_t cp = 0xD800; cp <= 0xDFFF; ++cp) invalid.push_back(encodeAs(cp, 3));
    for (char32_t cp = 0; cp < 0x80; ++cp) invalid.push_back(encodeAs(cp, 2));
    for (char32_t cp = 0; cp < 0x800; ++cp) invalid.push_back(encodeAs(cp, 3));
    for (char32_t cp = 0; cp < 0x10000; ++cp) invalid.push_back(encodeAs(cp, 4));
    for (char32_t cp = 0x110000; cp < 0x200000; cp += 0x3F) invalid.push_back(encodeAs(cp, 4));
    for (const std::string& bytes : invalid) {
        if (utf8::isValid(bytes)) {
            ADD_FAILURE() << "accepted " << hexOf(bytes);
            return;
        }
        // Each byte of an invalid sequence stands on its own, so nothing is lost or merged.
        const std::u32string decoded = utf8::decodeEscaped(bytes);
        ASSERT_EQ(decoded.size(), bytes.size()) << hexOf(bytes);
        for (std::size_t i = 0; i < bytes.size(); ++i) {
            ASSERT_EQ(decoded[i], 0xDC00 + static_cast<unsigned char>(bytes[i])) << hexOf(bytes);
        }
    }
}

TEST(Utf8Validity, RejectsEveryTruncation) {
    for (char32_t cp : {U'\u00e9', U'\u20ac', U'\uffff', U'\U0001F600', U'\U0010FFFF'}) {
        const std::string full = encodeAs(cp, naturalLength(cp));
        for (std::size_t cut = 1; cut < full.size(); ++cut) {
            const std::string part = full.substr(0, cut);
            EXPECT_FALSE(utf8::isValid(part)) << hexOf(part);
            EXPECT_FALSE(utf8::isValid(part + "a")) << hexOf(part);
            EXPECT_FALSE(utf8::isValid("a" + part + "bcdefghijk")) << hexOf(part);
        }
    }
}

// The ASCII fast path works a word at a time; a bad byte must be found wherever it falls in a word.
TEST(Utf8Validity, FindsABadByteAtAnyPositionInLongAsciiText) {
    for (std::size_t length = 1; length <= 40; ++length) {
        const std::string ascii(length, 'a');
        EXPECT_TRUE(utf8::isValid(ascii));
        for (std::size_t at = 0; at < length; ++at) {
            std::string bad = ascii;
            bad[at] = '\x80';
            EXPECT_FALSE(utf8::isValid(bad)) << "length " << length << " at " << at;

            std::string good = ascii;
            good.replace(at, 1, "\xe2\x82\xac");
            EXPECT_TRUE(utf8::isValid(good)) << "length " << length << " at " << at;
            std::string cut = ascii;
            cut.replace(at, 1, "\xe2\x82");
            EXPECT_FALSE(utf8::isValid(cut)) << "length " << length << " at " << at;
        }
    }
}

TEST(Utf8Escaping, EncodeReversesDecodeForAllShortByteStrings) {
    for (int a = 0; a < 256; ++a) {
        const std::string one(1, static_cast<char>(a));
        ASSERT_EQ(utf8::encodeEscaped(utf8::decodeEscaped(one)), one) << a;
        for (int b = 0; b < 256; ++b) {
            const std::string two = one + static_cast<char>(b);
            const std::u32string decoded = utf8::decodeEscaped(two);
            ASSERT_EQ(utf8::encodeEscaped(decoded), two) << hexOf(two);
            // Two bytes make one code point only when they form a 2-byte sequence.
            ASSERT_EQ(decoded.size(), utf8::isValid(two) && a >= 0x80 ? 1u : 2u) << hexOf(two);
        }
    }
}

// --- Writer ------------------------------------------------------------------------------------------------

TEST(JsonWriterStrings, EscapesOnlyWhatJsonCannotHoldAsIs) {
    const std::pair<std::string, std::string> cases[] = {
        {"caf\xe9", R"("caf\udce9")"},
        {"\xe2\x82z", R"("\udce2\udc82z")"}, // the ASCII byte after a cut sequence is not swallowed
        {"\xed\xa0\x80", R"("\udced\udca0\udc80")"},
        {"\xc0\xaf", R"("\udcc0\udcaf")"},
        {"\xf4\x90\x80\x80", R"("\udcf4\udc90\udc80\udc80")"},
        {"\xf0\x9f\x98\x80 \xc3\xa9", "\"\xf0\x9f\x98\x80 \xc3\xa9\""},
        {"\xe2\x80\xa8", "\"\xe2\x80\xa8\""}, // U+2028 is legal inside JSON strings
        {"a/b\x7f", "\"a/b\x7f\""},
        {"say \"hi\" C:\\dir\\", R"("say \"hi\" C:\\dir\\")"},
        {"\n\t\r\b\f\0\x01\x1f"s, R"("\n\t\r\b\f\u0000\u0001\u001f")"},
    };
    for (const auto& [bytes, json] : cases) EXPECT_EQ(writeString(bytes), json) << hexOf(bytes);
    for (int c = 0; c < 0x20; ++c) {
        const std::string json = writeString(std::string(1, static_cast<char>(c)));
        for (char out : json) EXPECT_GE(static_cast<unsigned char>(out), 0x20) << c;
        EXPECT_EQ(parseString(json), std::string(1, static_cast<char>(c)));
    }
}

TEST(JsonWriterBuffering, StringSinkOnlyEverHoldsAPrefixAndIsCompleteAfterFinish) {
    // ~200 KiB of plain ASCII strings and the exact text the writer must produce for them.
    std::vector<std::string> items;
    std::string expected = "[";
    for (int i = 0; i < 200; ++i) {
        items.emplace_back(997 + i % 7, static_cast<char>('a' + i % 26));
        expected += (i > 0 ? ",\"" : "\"") + items.back() + '"';
    }
    expected += ']';
    std::string sink;
    JsonWriter writer(sink);
    writer.beginArray();
    std::size_t produced = 1;
    std::size_t flushes = 0;
    std::size_t lastSize = 0;
    for (std::size_t i = 0; i < items.size(); ++i) {
        writer.value(items[i]);
        produced += items[i].size() + 2 + (i > 0 ? 1 : 0);
        ASSERT_EQ(sink, expected.substr(0, sink.size())) << "item " << i;
        // Never a whole threshold's worth held back, and a flush hands over everything.
        ASSERT_LT(produced - sink.size(), JsonWriter::kFlushThreshold) << "item " << i;
        if (sink.size() != lastSize) {
            ++flushes;
            ASSERT_EQ(sink.size(), produced) << "item " << i;
            ASSERT_GE(sink.size() - lastSize, JsonWriter::kFlushThreshold) << "item " << i;
            lastSize = sink.size();
        }
    }
    writer.endArray();
    EXPECT_GE(flushes, 3u);
    EXPECT_NE(sink, expected);
    ASSERT_TRUE(writer.finish());
    EXPECT_EQ(sink, expected);
}

TEST(JsonWriterErrors, FullDiskIsReportedByFinish) {
    for (std::size_t count : {std::size_t{3}, std::size_t{100000}}) { // below and beyond one flush
        std::FILE* full = std::fopen("/dev/full", "w");
        if (!full) GTEST_SKIP() << "/dev/full is not available";
        JsonWriter writer(full);
        writer.beginArray();
        for (std::size_t i = 0; i < count; ++i) writer.value("some name");
        writer.endArray();
        EXPECT_FALSE(writer.finish()) << count;
        EXPECT_TRUE(writer.failed());
        EXPECT_EQ(writer.error(), ENOSPC) << count;
        std::fclose(full);
    }
}

// --- Parser ------------------------------------------------------------------------------------------------

TEST(JsonParseStrings, SurrogateEscapesAndRawInvalidBytes) {
    const std::pair<std::string_view, std::string_view> cases[] = {
        {R"("\ud83d\ude00")", "\xf0\x9f\x98\x80"}, // a pair
        {R"("\uDBFF\uDFFF")", "\xf4\x8f\xbf\xbf"}, // the last pair
        {R"("caf\udce9")", "caf\xe9"},             // an escaped raw byte
        {R"("\uDC80\udcff")", "\x80\xff"},         // both ends, either case
        {R"("\udce9\udca9")", "\xe9\xa9"},
        {R"("\udc7f|\udd00|\udfff")", "\xef\xbf\xbd|\xef\xbf\xbd|\xef\xbf\xbd"},
        {R"("\ud800")", "\xef\xbf\xbd"}, // lone high surrogate at the end
        {R"("\ud800x")", "\xef\xbf\xbdx"},
        {R"("\ud800\u0041")", "\xef\xbf\xbd" "A"}, // the escape after it still counts
        {R"("\ud800\n")", "\xef\xbf\xbd\n"},
        {R"("\ud800\ud83d\ude00")", "\xef\xbf\xbd\xf0\x9f\x98\x80"},
        // Raw bytes outside UTF-8 are kept as they are; a cut sequence does not eat the quote.
        {"\"\xed\xa0\x80 \xc0\xaf \xff\"", "\xed\xa0\x80 \xc0\xaf \xff"},
        {"\"\xe2\x82\"", "\xe2\x82"},
    };
    for (const auto& [json, bytes] : cases) EXPECT_EQ(parseString(json), bytes) << json;
}

struct RejectCase {
    std::string_view text;
    std::size_t offset;
    std::string_view reason; // a fragment of the message
};

TEST(JsonParseErrors, RejectsMalformedTextWithOffsetAndReason) {
    const RejectCase cases[] = {
        {"", 0, "expected a value"},
        {R"({"a":1} x)", 8, "after the end"},
        {"[1]\x0b", 3, "after the end"}, // vertical tab is not JSON whitespace
        {"01", 0, "leading zeros"},
        {"-", 1, "digit after '-'"},
        {"1.", 2, "after the decimal point"},
        {"1e", 2, "exponent"},
        {"1e400", 0, "too large"},
        {"NaN", 0, "expected a value"},
        {"tru", 0, "literal"},
        {R"("abc)", 0, "unterminated string"},
        {R"("a\x")", 2, "invalid escape"},
        {R"("\u12")", 1, "four hex digits"},
        {"\"a\nb\"", 2, "control character"},
        {"\"\0\""sv, 1, "control character"},
        {"[1,]", 3, "expected a value"},
        {"[1 2]", 3, "expected ',' or ']'"},
        {R"({"a" 1})", 5, "expected ':'"},
        {R"({"a":1,})", 7, "string as object key"},
        {"{a:1}", 1, "string as object key"},
        {R"({"a":1)", 6, "unterminated object"},
    };
    for (const RejectCase& c : cases) {
        JsonParseError error;
        const auto v = parseJson(c.text, &error);
        EXPECT_FALSE(v) << "accepted: " << c.text;
        EXPECT_EQ(error.offset, c.offset) << c.text << " -> " << error.message;
        EXPECT_NE(error.message.find(c.reason), std::string::npos) << c.text << " -> " << error.message;
    }
}

TEST(JsonParseErrors, NestingIsLimited) {
    const std::size_t limit = kJsonMaxDepth;
    auto nestedArrays = [](std::size_t depth) { return std::string(depth, '[') + std::string(depth, ']'); };
    auto nestedObjects = [](std::size_t depth) {
        std::string text;
        for (std::size_t i = 0; i < depth; ++i) text += "{\"k\":";
        text += "0";
        text += std::string(depth, '}');
        return text;
    };

    const auto deepest = parseJson(nestedArrays(limit));
    ASSERT_TRUE(deepest);
    const JsonValue* inner = &*deepest;
    for (std::size_t i = 1; i < limit; ++i) inner = &inner->asArray().at(0);
    EXPECT_TRUE(inner->isArray());
    EXPECT_EQ(inner->size(), 0u);
    EXPECT_TRUE(parseJson(nestedObjects(limit)));

    JsonParseError error;
    EXPECT_FALSE(parseJson(nestedArrays(limit + 1), &error));
    EXPECT_EQ(error.offset, limit);
    EXPECT_NE(error.message.find("nested deeper"), std::string::npos);
    EXPECT_FALSE(parseJson(nestedObjects(limit + 1), &error));
    EXPECT_NE(error.message.find("nested deeper"), std::string::npos);

    // Far deeper than any stack could recurse.
    EXPECT_FALSE(parseJson(std::string(10'000'000, '['), &error));
    EXPECT_EQ(error.offset, limit);
}

// --- Numbers -----------------------------------------------------------------------------------------------

// Shortest text that reads back bit for bit; no JSON form for NaN and infinities.
TEST(JsonNumbers, DoublesUseTheShortestTextThatRoundTripsExactly) {
    constexpr double kInf = std::numeric_limits<double>::infinity();
    const std::pair<double, std::string_view> cases[] = {
        {0.1, "0.1"},
        {3.0, "3"},
        {-0.0, "-0"},
        {1.0 / 3.0, "0.3333333333333333"},
        {-2.5e-8, "-2.5e-08"},
        {1e300, "1e+300"},
        {5e-324, "5e-324"},
        {2.2250738585072014e-308, "2.2250738585072014e-308"},
        {std::numeric_limits<double>::max(), "1.7976931348623157e+308"},
        {9007199254740992.0, "9007199254740992"},
        {1e21, "1e+21"},
        {std::numeric_limits<double>::quiet_NaN(), "null"},
        {kInf, "null"},
        {-kInf, "null"},
    };
    for (const auto& [d, text] : cases) {
        EXPECT_EQ(toJsonString(JsonValue(d)), text);
        if (text == "null") continue;
        const auto back = parseJson(text);
        ASSERT_TRUE(back) << text;
        const double r = back->asDouble();
        EXPECT_EQ(std::memcmp(&r, &d, sizeof d), 0) << text;
    }
}

TEST(JsonNumbers, IntegersKeepAll64Bits) {
    const std::string text = "[9223372036854775807,-9223372036854775808,18446744073709551615,"
                             "18446744073709551616,9007199254740993,0]";
    const auto v = parseJson(text);
    ASSERT_TRUE(v);
    const auto& a = v->asArray();
    EXPECT_EQ(a[0].asInt64(), std::numeric_limits<std::int64_t>::max());
    EXPECT_EQ(a[1].asInt64(), std::numeric_limits<std::int64_t>::min());
    EXPECT_FALSE(a[1].isUInt64());
    EXPECT_FALSE(a[2].isInt64());
    EXPECT_EQ(a[2].asUInt64(), std::numeric_limits<std::uint64_t>::max());
    EXPECT_FALSE(a[3].isUInt64()); // 2^64 only fits a double
    EXPECT_EQ(a[3].asDouble(), 18446744073709551616.0);
    EXPECT_EQ(a[4].asInt64(), 9007199254740993); // 2^53 + 1: not representable as a double
    EXPECT_TRUE(a[5].isInt64());
    EXPECT_EQ(toJsonString(*v), text);
}

// --- Round trips -------------------------------------------------------------------------------------------

TEST(JsonRoundTrip, AwkwardAndRandomByteStringsSurviveAsValuesAndKeys) {
    std::vector<std::string> names = kAwkwardNames;
    std::mt19937 rng(2024);
    std::uniform_int_distribution<int> byte(0, 255), length(0, 40);
    for (int round = 0; round < 20000; ++round) {
        std::string& bytes = names.emplace_back();
        for (int n = length(rng); n > 0; --n) bytes.push_back(static_cast<char>(byte(rng)));
    }
    for (const std::string& name : names) {
        const std::string json = writeString(name);
        ASSERT_TRUE(utf8::isValid(json)) << hexOf(name); // the text itself is always clean UTF-8
        ASSERT_EQ(parseString(json), name) << hexOf(name);

        JsonValue object = JsonValue::makeObject();
        object.set(name, name);
        const auto back = parseJson(toJsonString(object));
        ASSERT_TRUE(back && back->size() == 1u) << hexOf(name);
        ASSERT_EQ(back->asObject()[0].key, name) << hexOf(name);
        ASSERT_EQ(back->asObject()[0].value.asString(), name) << hexOf(name);
    }
}

TEST(JsonRoundTrip, DocumentSurvivesCompactAndPrettyForms) {
    JsonValue doc = JsonValue::makeObject();
    doc.set("name", "caf\xe9\n");
    doc.set("size", std::int64_t{1} << 40);
    doc.set("ratio", 0.75);
    doc.set("ok", true);
    doc.set("none", nullptr);
    JsonValue& children = doc.set("children", JsonValue::makeArray());
    children.append("\xff");
    children.append(false);
    JsonValue& deep = children.append(JsonValue::makeObject()).set("deep", JsonValue::makeArray());
    deep.append(JsonValue::makeArray()).append(-1);
    children.append(JsonValue::makeArray());
    children.append(JsonValue::makeObject());

    const std::string compact = toJsonString(doc);
    const std::string pretty = toJsonString(doc, JsonWriter::Style::Pretty);
    const auto fromCompact = parseJson(compact);
    const auto fromPretty = parseJson(pretty);
    ASSERT_TRUE(fromCompact);
    ASSERT_TRUE(fromPretty);
    EXPECT_EQ(*fromCompact, doc);
    EXPECT_EQ(*fromPretty, doc);
    EXPECT_EQ(toJsonString(*fromPretty), compact);
    EXPECT_EQ(compact, R"({"name":"caf\udce9\n","size":1099511627776,"ratio":0.75,"ok":true,"none":null,)"
                       R"("children":["\udcff",false,{"deep":[[-1]]},[],{}]})");
    EXPECT_EQ(fromCompact->find("size")->asInt64(), std::int64_t{1} << 40);
    EXPECT_EQ(fromCompact->find("missing"), nullptr);
}

} // namespace
} // namespace brenvo
