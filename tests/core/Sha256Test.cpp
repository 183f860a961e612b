#include "util/Sha256.h"

#include <gtest/gtest.h>

using namespace brenvo;

namespace {
std::string hexOf(const Sha256::Digest& d) { return Sha256::hex(d.data(), d.size()); }
} // namespace

TEST(Sha256, StandardVectorsWholeAndInPieces) {
    EXPECT_EQ(hexOf(Sha256::of("")), "e3b0c44298fc1c149afbf4c8996fb92427ae41e4649b934ca495991b7852b855");
    EXPECT_EQ(hexOf(Sha256::of("abc")), "ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad");
    const std::string two = "abcdbcdecdefdefgefghfghighijhijkijkljklmklmnlmnomnopnopq"; // 56 bytes: padding spills
    EXPECT_EQ(hexOf(Sha256::of(two)), "248d6a61d20638b8e5c026930c3e6039a33ce45964ff2167f6ecedd419db06c1");
    const std::string million(1'000'000, 'a');
    const std::string expected = "cdc76e5c9914fb9281a1c7e284d73e67f1809a48a497200e046d39ccc7112cd0";
    EXPECT_EQ(hexOf(Sha256::of(million)), expected);
    Sha256 pieces; // odd-sized pieces cross block edges at every offset
    for (size_t at = 0, step = 1; at < million.size(); at += step, step = step % 127 + 1)
        pieces.update(std::string_view(million).substr(at, step));
    EXPECT_EQ(hexOf(pieces.finish()), expected);
}
