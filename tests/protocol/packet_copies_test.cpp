#include "protocol/packet_copies.h"

#include <gtest/gtest.h>

namespace quenmoor {
namespace {

TEST(PacketCopies, returnDatagramsAsTheLibrarySendsThem)
{
    PacketCopies copies;
    PacketCopies::Datagram buffer;
    EXPECT_TRUE(copies.read(5, buffer).empty());
    constexpr std::int64_t kNumber = (std::int64_t{1} << 31) + 0x01020304; // wrapped once
    copies.keep(kNumber, {0x01020304, 0x11121314, 5, -2, std::string_view("payload")});
    const std::span<const char> datagram = copies.read(kNumber, buffer);
    EXPECT_EQ(std::string_view(datagram.data(), datagram.size()),
              std::string_view("\1\2\3\4\x11\x12\x13\x14\0\0\0\5\xFF\xFF\xFF\xFEpayload", 23));

    for (std::int64_t number = kNumber + 1; number < kNumber + 8192; ++number)
        copies.keep(number, {1, 2, 3, 4, std::string_view("next")});
    EXPECT_FALSE(copies.read(kNumber, buffer).empty());
    copies.keep(kNumber + 8192, {0, 0, 0, 0, std::string(1457, 'x')}); // longer than any packet
    EXPECT_TRUE(copies.read(kNumber + 8192, buffer).empty());
    EXPECT_TRUE(copies.read(kNumber, buffer).empty()); // dropped for the one before
    copies.drop(kNumber + 8191);
    EXPECT_TRUE(copies.read(kNumber + 8190, buffer).empty());
    EXPECT_EQ(copies.read(kNumber + 8191, buffer).size(), 20U);
    EXPECT_TRUE(copies.read(kNumber + 8193, buffer).empty());
}

} // namespace
} // namespace quenmoor
