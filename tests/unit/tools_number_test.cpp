/// Numbers in text.
#include "tools/number.h"

#include <gtest/gtest.h>

TEST(number, is_the_whole_text)
{
    int value = 7;
    EXPECT_EQ(read_number("-12", value), std::errc());
    EXPECT_EQ(value, -12);
    EXPECT_EQ(read_number("ff", value, 16), std::errc());
    EXPECT_EQ(value, 255);

    for (const char *text : {"", " 1", "1 ", "+1", "0x1", "1.5", "9999999999x"})
        EXPECT_EQ(read_number(text, value), std::errc::invalid_argument) << text;
    EXPECT_EQ(read_number("9999999999", value), std::errc::result_out_of_range);
    unsigned natural = 7;
    EXPECT_EQ(read_number("-1", natural), std::errc::invalid_argument);
    EXPECT_EQ(value, 255);
    EXPECT_EQ(natural, 7u);
}
