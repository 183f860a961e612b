// libFuzzer target: any bytes given to the snapshot decoder must come back as a tree or as nothing, never
// as a crash, a hang or an unbounded allocation. Build with `make fuzz` (clang), run
// build/fuzz/tests/fuzz/snapshot_fuzz [corpus folder].
#include "cache/ScanCache.h"

#include <cstddef>
#include <cstdint>
#include <string_view>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    auto snapshot = brenvo::ScanCache::decodeSnapshot(std::string_view(reinterpret_cast<const char*>(data), size));
    if (snapshot && snapshot->root) (void)snapshot->root->itemCount();
    return 0;
}
