/// What an operator may set.
#include "tools/rules.h"

#include <gtest/gtest.h>

TEST(rules, ends_of_each_range)
{
    for (const setting_rule_t &rule : {BRIDGE_PRIORITY, MAX_AGE, HELLO_TIME, FORWARD_DELAY, FORCE_VERSION, PATH_COST,
                                       PORT_PRIORITY, FRONT_PORT, GROUP, LOGICAL_PORT}) {
        EXPECT_EQ(fault_of(rule, rule.min), "");
        EXPECT_EQ(fault_of(rule, rule.max), "");
        EXPECT_NE(fault_of(rule, rule.min - 1), "") << rule.name;
        EXPECT_NE(fault_of(rule, rule.max + 1), "") << rule.name;
        EXPECT_NE(fault_of(rule, rule.min - rule.step), "") << rule.name;
        EXPECT_NE(fault_of(rule, rule.max + rule.step), "") << rule.name;
    }
}

TEST(rules, steps)
{
    EXPECT_EQ(fault_of(BRIDGE_PRIORITY, 4096), "");
    EXPECT_EQ(fault_of(BRIDGE_PRIORITY, 4097), "bridge priority 4097: allowed is 0 to 61440 in steps of 4096");
    EXPECT_EQ(fault_of(PORT_PRIORITY, 128), "");
    EXPECT_EQ(fault_of(PORT_PRIORITY, 129), "port priority 129: allowed is 0 to 240 in steps of 16");
    EXPECT_EQ(fault_of(FORCE_VERSION, 1), "force version 1: allowed is 0 or 2");
}

TEST(rules, numbers_of_the_standard)
{
    EXPECT_EQ(fault_of(MAX_AGE, 5), "max age 5: allowed is 6 to 40 s");
    EXPECT_EQ(fault_of(HELLO_TIME, 3), "hello time 3: allowed is 1 or 2 s");
    EXPECT_EQ(fault_of(FORWARD_DELAY, 31), "forward delay 31: allowed is 4 to 30 s");
    EXPECT_EQ(fault_of(PATH_COST, 200'000'001), "path cost 200000001: allowed is 0 to 200000000");
}

TEST(rules, times_go_together)
{
    EXPECT_EQ(fault_of_times(20, 2, 15), ""); // the defaults
    EXPECT_EQ(fault_of_times(6, 1, 4), "");   // the shortest
    EXPECT_EQ(fault_of_times(6, 2, 4), "");   // both limits at once
    EXPECT_EQ(fault_of_times(28, 2, 15), "");
    EXPECT_EQ(fault_of_times(29, 2, 15),
              "max age 29 s is too long for forward delay 15 s: at most 2 * (15 - 1) = 28 s");
    EXPECT_EQ(fault_of_times(6, 3, 15), "max age 6 s is too short for hello time 3 s: at least 2 * (3 + 1) = 8 s");
}
