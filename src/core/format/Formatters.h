#pragma once

#include "util/Date.h"

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace brenvo::format {

// Sizes as people read them: decimal units, "Zero KB", "1 byte", "999 bytes", "1.5 MB", "1.23 GB".
// KB shows no fraction, MB at most one digit, GB and above at most two; numbers grouped by the locale.
std::string bytes(int64_t size);
// A count in the locale's grouped style: "1,234,567".
std::string count(int64_t n);
// How long ago (or ahead) `when` is from `now`, in the largest whole unit, named where the language has a
// name for it: "now", "5 minutes ago", "yesterday", "in 2 hours", "last year".
std::string relativeDate(Date when, Date now);
// A name as messages quote it: between curly quotes, “like this”.
std::string quoted(std::string_view name);
// A sentence that gives a reason: "{lead}: {reason}." with one final period, whether or not the reason
// (the system's words, or ours) came with its own.
std::string because(std::string_view lead, std::string_view reason);
// Items joined the way the locale lists them: "a, b, and c".
std::string list(const std::vector<std::string>& items);
// A day in the locale's abbreviated style, without the time: "Nov 21, 2026".
std::string abbreviatedDate(Date when);
// The same day with the time in the locale's short style: "Nov 21, 2026, 9:41 AM".
std::string abbreviatedDateTime(Date when);
// Orders two texts the way a file manager orders names: by the locale's collation, ignoring case, with runs
// of digits compared as numbers ("file 9" before "file 10"). Negative, zero or positive, like strcmp.
int standardCompare(std::string_view a, std::string_view b);

// The locale whose grouping the formatters use, e.g. "en_US" or "de_DE". Empty means the environment's
// locale (a "C" or "POSIX" environment reads as en_US). Call before formatting starts; not thread-safe.
void setLocale(const std::string& name);

} // namespace brenvo::format
