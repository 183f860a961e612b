#pragma once

#include <compare>
#include <ctime>

namespace brenvo {

// A point in time as seconds since 2001-01-01 00:00:00 UTC, the reference every saved record uses.
struct Date {
    double seconds = 0;

    static constexpr double kUnixOffset = 978307200.0; // 2001-01-01 in Unix seconds
    static constexpr Date distantPast() { return Date{-63114076800.0}; }
    static Date now();
    static constexpr Date fromUnix(double unixSeconds) { return Date{unixSeconds - kUnixOffset}; }
    static constexpr Date fromTimespec(long long sec, long nsec) {
        return Date{static_cast<double>(sec) - kUnixOffset + static_cast<double>(nsec) * 1e-9};
    }
    constexpr double unixSeconds() const { return seconds + kUnixOffset; }

    constexpr auto operator<=>(const Date&) const = default;
};

} // namespace brenvo
