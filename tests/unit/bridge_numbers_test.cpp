// Which interface is which port.
#include <gmock/gmock.h>

#include <algorithm>

#include "board/bridge/numbers.h"

using testing::ElementsAre;

namespace {

TEST(bridge_numbers, names_go_by_letters_and_numbers)
{
    std::vector<std::string> names = {"lan10", "wan", "lan2", "lan1", "eth0.20", "lan", "eth0.3", "lan02", "br10"};
    std::ranges::sort(names, before_by_nature);
    EXPECT_THAT(names, ElementsAre("br10", "eth0.3", "eth0.20", "lan", "lan1", "lan02", "lan2", "lan10", "wan"));
}

TEST(bridge_numbers, the_order_of_names_is_one)
{
    const std::vector<std::string> names = {"a", "a0", "a00", "a1", "a01", "a1b", "a01b", "1", "01", "10", "a10b2", ""};
    for (const std::string &a : names)
        for (const std::string &b : names) {
            EXPECT_EQ(a == b, !before_by_nature(a, b) && !before_by_nature(b, a)) << a << " " << b;
            for (const std::string &c : names)
                EXPECT_TRUE(!before_by_nature(a, b) || !before_by_nature(b, c) || before_by_nature(a, c))
                    << a << " " << b << " " << c;
        }
}

TEST(bridge_numbers, without_a_list_all_have_numbers_by_name)
{
    const numbers_t expected = {{1, "lan1"}, {2, "lan2"}, {3, "lan10"}};
    EXPECT_EQ(numbers_for({}, {"lan10", "lan2", "lan1"}), expected);
}

TEST(bridge_numbers, the_seventh_gets_none)
{
    const numbers_t numbers = numbers_for({}, {"p1", "p2", "p3", "p4", "p5", "p6", "p7"});
    EXPECT_EQ(numbers.size(), 6u);
    EXPECT_EQ(number_for({}, numbers, "p7"), 0u);
}

TEST(bridge_numbers, a_list_says_it_all)
{
    const numbering_t listed = {{"lan3", "lan1"}, {{1, "lan1"}}};
    const numbers_t expected = {{1, "lan3"}, {2, "lan1"}};
    EXPECT_EQ(numbers_for(listed, {"lan1", "lan2", "lan3"}), expected);
    EXPECT_EQ(number_for(listed, {}, "lan2"), 0u);
}

TEST(bridge_numbers, who_comes_back_gets_its_number_back)
{
    const numbering_t before = {{}, {{1, "lan1"}, {2, "lan2"}, {3, "lan3"}}};
    const numbers_t expected = {{2, "lan2"}, {3, "lan3"}, {4, "abc"}};
    EXPECT_EQ(numbers_for(before, {"abc", "lan3", "lan2"}), expected);
    EXPECT_EQ(number_for(before, expected, "lan1"), 1u);
}

TEST(bridge_numbers, a_number_is_given_away_before_none_is_left)
{
    const numbering_t before = {{}, {{1, "a"}, {2, "b"}, {3, "c"}, {4, "d"}, {5, "e"}, {6, "f"}}};
    const numbers_t expected = {{1, "x"}, {2, "b"}};
    EXPECT_EQ(numbers_for(before, {"x", "b"}), expected);
}

TEST(bridge_numbers, are_written_and_read)
{
    const numbers_t numbers = {{1, "lan1"}, {6, "eth0.20"}};
    EXPECT_EQ(numbers_text(numbers), "1 lan1\n6 eth0.20\n");
    EXPECT_EQ(parse_numbers(numbers_text(numbers)), numbers);
    EXPECT_EQ(parse_numbers("0 a\n7 b\nx c\n2\n\n99999999999 d\n3 lan3 and more\n"), (numbers_t{{3, "lan3"}}));
}

} // namespace
