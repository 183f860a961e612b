#pragma once

#include <array>
#include <cstdint>
#include <string>
#include <string_view>

namespace brenvo {

// SHA-256 (FIPS 180-4), fed in pieces of any size.
class Sha256 {
public:
    using Digest = std::array<uint8_t, 32>;

    void update(const void* data, size_t size);
    void update(std::string_view bytes) { update(bytes.data(), bytes.size()); }
    Digest finish();

    static Digest of(std::string_view bytes);
    static std::string hex(const uint8_t* bytes, size_t count); // lower-case, two digits a byte

private:
    void block(const uint8_t* data);

    uint32_t state_[8] = {0x6a09e667, 0xbb67ae85, 0x3c6ef372, 0xa54ff53a,
                          0x510e527f, 0x9b05688c, 0x1f83d9ab, 0x5be0cd19};
    uint8_t buffer_[64] = {};
    size_t buffered_ = 0;
    uint64_t length_ = 0;
};

} // namespace brenvo
