#include "format/Formatters.h"

#include <atomic>
#include <cmath>
#include <cstdlib>
#include <memory>
#include <mutex>
#include <map>
#include <unicode/coll.h>
#include <unicode/locid.h>
#include <unicode/numberformatter.h>
#include <unicode/datefmt.h>
#include <unicode/listformatter.h>
#include <unicode/reldatefmt.h>

namespace brenvo::format {

namespace {

using icu::number::LocalizedNumberFormatter;
using icu::number::NumberFormatter;
using icu::number::Precision;

// One formatter per number of fraction digits (0, 1, 2), made once for the chosen locale.
struct Formatters {
    explicit Formatters(const icu::Locale& locale) {
        for (int digits = 0; digits < 3; ++digits)
            byDigits[digits] = std::make_unique<LocalizedNumberFormatter>(
                NumberFormatter::withLocale(locale)
                    .precision(Precision::maxFraction(digits))
                    .roundingMode(UNUM_ROUND_HALFUP)
                    .grouping(UNUM_GROUPING_AUTO));
    }
    std::unique_ptr<LocalizedNumberFormatter> byDigits[3];
};

icu::Locale environmentLocale() {
    icu::Locale locale = icu::Locale::getDefault();
    const char* language = locale.getLanguage();
    if (!language || !*language || std::string_view(locale.getName()) == "en_US_POSIX" ||
        std::string_view(language) == "c")
        return icu::Locale("en_US");
    return locale;
}

std::unique_ptr<Formatters> current;
std::atomic<int> localeGeneration{0}; // per-thread formats made for an older locale are made again
icu::Locale chosenLocale;
std::once_flag made;

const Formatters& formatters() {
    std::call_once(made, [] {
        if (!current) {
            chosenLocale = environmentLocale();
            current = std::make_unique<Formatters>(chosenLocale);
        }
    });
    return *current;
}

std::string render(double value, int digits) {
    UErrorCode status = U_ZERO_ERROR;
    auto formatted = formatters().byDigits[digits]->formatDouble(value, status);
    std::string out;
    if (U_FAILURE(status)) return std::to_string(value);
    formatted.toString(status).toUTF8String(out);
    return out;
}

} // namespace

void setLocale(const std::string& name) {
    formatters(); // settle the once-flag first so a later call can't replace the choice
    chosenLocale = name.empty() ? environmentLocale() : icu::Locale(name.c_str());
    current = std::make_unique<Formatters>(chosenLocale);
    ++localeGeneration;
}

std::string bytes(int64_t size) {
    if (size == 0) return "Zero KB";
    // Work on the magnitude in floating point: INT64_MIN has no positive counterpart.
    const bool negative = size < 0;
    const double magnitude = std::fabs(static_cast<double>(size));
    std::string number;
    std::string unit;
    if (magnitude < 1000) {
        number = render(magnitude, 0);
        unit = magnitude == 1 ? "byte" : "bytes";
    } else {
        static const char* const units[] = {"KB", "MB", "GB", "TB", "PB", "EB"};
        int index = 0;
        double scaled = magnitude / 1000;
        while (scaled >= 1000 && index < 5) {
            scaled /= 1000;
            ++index;
        }
        number = render(scaled, index == 0 ? 0 : index == 1 ? 1 : 2);
        unit = units[index];
    }
    return (negative ? "-" : "") + number + " " + unit;
}

std::string quoted(std::string_view name) { return "\u201c" + std::string(name) + "\u201d"; }

std::string because(std::string_view lead, std::string_view reason) {
    while (reason.ends_with('.') || reason.ends_with(' ')) reason.remove_suffix(1);
    return std::string(lead) + ": " + std::string(reason) + ".";
}

std::string count(int64_t n) {
    UErrorCode status = U_ZERO_ERROR;
    auto formatted = formatters().byDigits[0]->formatInt(n, status);
    std::string out;
    if (U_FAILURE(status)) return std::to_string(n);
    formatted.toString(status).toUTF8String(out);
    return out;
}

std::string relativeDate(Date when, Date now) {
    formatters();
    const double delta = when.seconds - now.seconds;
    const double magnitude = std::fabs(delta);
    struct Step {
        double seconds;
        URelativeDateTimeUnit unit;
    };
    static const Step steps[] = {
        {365.0 * 86400, UDAT_REL_UNIT_YEAR}, {30.0 * 86400, UDAT_REL_UNIT_MONTH}, {7.0 * 86400, UDAT_REL_UNIT_WEEK},
        {86400, UDAT_REL_UNIT_DAY},          {3600, UDAT_REL_UNIT_HOUR},          {60, UDAT_REL_UNIT_MINUTE},
    };
    double amount = std::trunc(delta);
    URelativeDateTimeUnit unit = UDAT_REL_UNIT_SECOND;
    for (const Step& step : steps) {
        if (magnitude >= step.seconds) {
            amount = std::trunc(delta / step.seconds);
            unit = step.unit;
            break;
        }
    }
    UErrorCode status = U_ZERO_ERROR;
    icu::RelativeDateTimeFormatter formatter(chosenLocale, nullptr, UDAT_STYLE_LONG,
                                             UDISPCTX_CAPITALIZATION_NONE, status);
    if (U_FAILURE(status)) return {};
    icu::UnicodeString text;
    // The named forms ("yesterday", "now") come from format(); it falls back to numbers where none exist.
    formatter.format(amount == 0 ? 0.0 : amount, unit, text, status);
    std::string out;
    if (U_SUCCESS(status)) text.toUTF8String(out);
    return out;
}

std::string list(const std::vector<std::string>& items) {
    formatters();
    UErrorCode status = U_ZERO_ERROR;
    std::unique_ptr<icu::ListFormatter> formatter(icu::ListFormatter::createInstance(chosenLocale, status));
    if (!formatter || U_FAILURE(status)) return {};
    std::vector<icu::UnicodeString> parts;
    for (const auto& item : items) parts.push_back(icu::UnicodeString::fromUTF8(item));
    icu::UnicodeString text;
    formatter->format(parts.data(), static_cast<int32_t>(parts.size()), text, status);
    std::string out;
    if (U_SUCCESS(status)) text.toUTF8String(out);
    return out;
}

namespace {

// Date formats and collators are costly to make and not safe to share between threads: one per thread and
// pattern, made for the chosen locale.
icu::DateFormat* dateFormat(const char16_t* skeleton) {
    formatters();
    thread_local std::map<std::u16string, std::unique_ptr<icu::DateFormat>> formats;
    thread_local int madeFor = -1;
    if (madeFor != localeGeneration) {
        formats.clear();
        madeFor = localeGeneration;
    }
    auto& slot = formats[skeleton];
    if (!slot) {
        UErrorCode status = U_ZERO_ERROR;
        slot.reset(icu::DateFormat::createInstanceForSkeleton(icu::UnicodeString(skeleton), chosenLocale, status));
        if (U_FAILURE(status)) slot.reset();
    }
    return slot.get();
}

std::string formatDate(Date when, const char16_t* skeleton) {
    icu::DateFormat* format = dateFormat(skeleton);
    if (!format) return {};
    icu::UnicodeString text;
    format->format(when.unixSeconds() * 1000.0, text);
    std::string out;
    text.toUTF8String(out);
    return out;
}

} // namespace

std::string abbreviatedDate(Date when) { return formatDate(when, u"yMMMd"); }

std::string abbreviatedDateTime(Date when) { return formatDate(when, u"yMMMdjmm"); }

int standardCompare(std::string_view a, std::string_view b) {
    formatters();
    thread_local std::unique_ptr<icu::Collator> collator;
    thread_local int madeFor = -1;
    if (madeFor != localeGeneration) {
        madeFor = localeGeneration;
        UErrorCode status = U_ZERO_ERROR;
        collator.reset(icu::Collator::createInstance(chosenLocale, status));
        if (U_FAILURE(status)) collator.reset();
        if (collator) {
            collator->setStrength(icu::Collator::SECONDARY); // case is no difference; accents are
            collator->setAttribute(UCOL_NUMERIC_COLLATION, UCOL_ON, status);
        }
    }
    if (!collator) return a.compare(b);
    UErrorCode status = U_ZERO_ERROR;
    const UCollationResult result = collator->compareUTF8(
        icu::StringPiece(a.data(), static_cast<int32_t>(a.size())),
        icu::StringPiece(b.data(), static_cast<int32_t>(b.size())), status);
    if (U_FAILURE(status)) return a.compare(b);
    return result;
}

} // namespace brenvo::format
