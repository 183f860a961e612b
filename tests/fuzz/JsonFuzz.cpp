// libFuzzer target: any bytes given to the JSON reader (records, overview and deletion files, tool output)
// come back as a value or as nothing with a reason, never as a crash, a hang or an unbounded allocation.
// A value that reads is written again and must read back the same.
#include "json/Json.h"

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>
#include <string_view>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const std::string_view text(reinterpret_cast<const char*>(data), size);
    brenvo::JsonParseError error;
    auto value = brenvo::parseJson(text, &error);
    if (!value) return 0;
    const std::string again = brenvo::toJsonString(*value);
    auto reread = brenvo::parseJson(again);
    if (!reread || !(*reread == *value)) std::abort();
    return 0;
}
