// Seeds of random tests: where they come from, and what a failure tells of them.
#include "tests/seed.h"

#include <gtest/gtest-spi.h>

#include <optional>

namespace {

/// LVT_SEED as a test wants it, and afterwards as it was.
class seed : public testing::Test {
protected:
    seed()
    {
        if (const char *text = getenv("LVT_SEED"))
            before = text;
    }

    ~seed() override { before ? setenv("LVT_SEED", before->c_str(), 1) : unsetenv("LVT_SEED"); }

    std::optional<std::string> before;
};

TEST_F(seed, is_the_tests_own_when_none_is_given)
{
    unsetenv("LVT_SEED");
    EXPECT_EQ(test_seed_t(4711).value, 4711u);
}

TEST_F(seed, is_another_for_each_that_is_given)
{
    setenv("LVT_SEED", "1000", 1);
    EXPECT_EQ(test_seed_t(11).value, 1011u);
    setenv("LVT_SEED", "4294967295", 1);
    EXPECT_EQ(test_seed_t(11).value, 10u);
}

TEST_F(seed, of_a_failure_comes_with_the_command_that_repeats_it)
{
    setenv("LVT_SEED", "1000", 1);
    testing::TestPartResultArray results;
    {
        const testing::ScopedFakeTestPartResultReporter reporter(
            testing::ScopedFakeTestPartResultReporter::INTERCEPT_ONLY_CURRENT_THREAD, &results);
        const test_seed_t drawn(11);
        ADD_FAILURE() << "bad luck";
    }
    ASSERT_EQ(results.size(), 1);
    const std::string message = results.GetTestPartResult(0).message();
    EXPECT_NE(message.find("seed 1011, again: LVT_SEED=1000 "), std::string::npos) << message;
    EXPECT_NE(message.find("unit_engine --gtest_filter=seed.of_a_failure_comes_with_the_command_that_repeats_it"),
              std::string::npos)
        << message;
}

using seed_DeathTest = seed;

TEST_F(seed_DeathTest, that_is_no_number_ends_the_program)
{
    for (const char *text : {"", "x", "12x", " 1", "-1", "4294967296"}) {
        setenv("LVT_SEED", text, 1);
        EXPECT_EXIT(test_seed_t(1), testing::ExitedWithCode(2), "LVT_SEED=.* is no number from 0 to 4294967295");
    }
}

} // namespace
