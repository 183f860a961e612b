#include "util/Date.h"

#include <chrono>

namespace brenvo {

Date Date::now() {
    auto since = std::chrono::system_clock::now().time_since_epoch();
    return fromUnix(std::chrono::duration<double>(since).count());
}

} // namespace brenvo
