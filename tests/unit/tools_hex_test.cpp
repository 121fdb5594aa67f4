/// Octets as text, and back.
#include "tools/hex.h"

#include <vector>

#include <gtest/gtest.h>

TEST(hex, octets_are_two_digits_each)
{
    const std::vector<uint8_t> octets = {0xBC, 0x00, 0x0A};
    EXPECT_EQ(hex(octets), "bc 00 0a");
    EXPECT_EQ(hex(octets, ""), "bc000a");
    EXPECT_EQ(hex(std::vector<uint8_t>()), "");
}

TEST(hex, addresses_are_read_as_they_are_written)
{
    const std::array<uint8_t, 6> address = {0x02, 0, 0, 0xAB, 0x01, 0xFF};
    EXPECT_EQ(address_text(address), "02:00:00:ab:01:ff");
    EXPECT_EQ(read_address("02:00:00:ab:01:ff"), address);
    EXPECT_EQ(read_address("02:00:00:AB:01:FF"), address);
    for (const char *text : {"", "02", "02:00:00:ab:01", "02:00:00:ab:01:ff:", "02:00:00:ab:01:f", "2:000:00:ab:01:ff",
                             "02-00-00-ab-01-ff", "02:00:00:ag:01:ff", "02:00:00:-b:01:ff", "02:00:00: b:01:ff"})
        EXPECT_EQ(read_address(text), std::nullopt) << text;
}
