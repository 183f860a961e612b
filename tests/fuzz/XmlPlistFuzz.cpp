// libFuzzer target: any bytes given to the XML property-list reader (an application's Info.plist) come
// back as a value or as nothing, never as a crash, a hang or an unbounded allocation.
#include "plist/XmlPlist.h"

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const std::string_view text(reinterpret_cast<const char*>(data), size);
    std::string error;
    auto value = brenvo::plist::parseXml(text, &error);
    if (!value && error.empty()) __builtin_trap(); // nothing comes back without a reason
    (void)brenvo::plist::parseIsoDate(text.substr(0, 40));
    return 0;
}
