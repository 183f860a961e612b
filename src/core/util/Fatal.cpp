#include "util/Checked.h"

#include <cstdio>
#include <cstdlib>

namespace brenvo {

void fatalError(const char* message) {
    std::fprintf(stderr, "brenvo: fatal error: %s\n", message);
    std::abort();
}

} // namespace brenvo
