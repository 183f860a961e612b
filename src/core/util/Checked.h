#pragma once

#include <cstdint>

namespace brenvo {

// Sizes and counts never wrap: a tree whose totals overflow 64 bits is corrupt, and carrying on would
// show nonsense sizes, so the process stops with a message instead.
[[noreturn]] void fatalError(const char* message);

inline int64_t checkedAdd(int64_t a, int64_t b) {
    int64_t r;
    if (__builtin_add_overflow(a, b, &r)) fatalError("size arithmetic overflowed");
    return r;
}

inline int64_t checkedSub(int64_t a, int64_t b) {
    int64_t r;
    if (__builtin_sub_overflow(a, b, &r)) fatalError("size arithmetic overflowed");
    return r;
}

} // namespace brenvo
