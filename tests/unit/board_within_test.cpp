// Waiting in the lab and in tests.
#include "tests/eventually.h"

#include <string>

#include <gtest/gtest.h>

namespace {

using namespace std::chrono_literals;

TEST(lab_within, asks_until_it_is_so)
{
    int asked = 0;
    EXPECT_TRUE(lab::within(
        10s, [&] { return ++asked == 3; }, 1ms));
    EXPECT_EQ(asked, 3);
}

TEST(lab_within, asks_once_more_when_the_time_is_over)
{
    int asked = 0;
    EXPECT_FALSE(lab::within(0ms, [&] { return ++asked, false; }));
    EXPECT_EQ(asked, 2);
}

TEST(tests_eventually, waits_for_a_value_or_a_matcher)
{
    int asked = 0;
    EXPECT_TRUE(eventually(
        10s, [&] { return ++asked; }, 3, 1ms));
    EXPECT_TRUE(eventually(
        10s, [&] { return ++asked; }, testing::Ge(7), 1ms));
    EXPECT_EQ(asked, 7);
    EXPECT_TRUE(eventually(
        0ms, [] { return std::string("is ready now"); }, testing::HasSubstr("ready")));
}

TEST(tests_eventually, says_what_it_saw_last)
{
    int asked = 0;
    const auto missed = eventually(
        0ms, [&] { return ++asked; }, testing::Gt(5));
    EXPECT_FALSE(missed);
    EXPECT_STREQ(missed.message(), "for 0 ms\n Expected: is > 5\nLast seen: 2");
    EXPECT_STREQ(eventually(
                     0ms, [] { return std::string("no"); }, std::string("yes"))
                     .message(),
                 "for 0 ms\n Expected: is equal to \"yes\"\nLast seen: \"no\"");
}

} // namespace
