/// Seeds of random tests. Every such test has a seed of its own; LVT_SEED from the environment is added to
/// it, so that the same test draws something new. The seed stands in the test's output and report, and a
/// failure ends with the command that repeats it.
#pragma once

#include <cerrno> // program_invocation_name
#include <charconv>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include <gtest/gtest.h>

#include "tests/this_build.h"

/// How many seeds a random test takes: of `count` one in four where programs are slow, under an emulator or
/// with a sanitizer.
inline uint32_t seeds_here(uint32_t count) { return programs_are_slow() ? (count + 3) / 4 : count; }

/// LVT_SEED, 0 when it is not set. The program ends when it is no number of 32 bits.
inline uint32_t seed_from_outside()
{
    const char *text = getenv("LVT_SEED");
    if (!text)
        return 0;
    uint32_t seed = 0;
    const char *end = text + strlen(text);
    const auto [next, error] = std::from_chars(text, end, seed);
    if (error != std::errc{} || next != end || next == text) {
        fprintf(stderr, "LVT_SEED=%s is no number from 0 to 4294967295\n", text);
        exit(2);
    }
    return seed;
}

/// The command that runs the present test with the present seed again.
inline std::string repeat_command()
{
    const testing::TestInfo *test = testing::UnitTest::GetInstance()->current_test_info();
    return "LVT_SEED=" + std::to_string(seed_from_outside()) + " " + program_invocation_name +
           " --gtest_filter=" + test->test_suite_name() + "." + test->name();
}

/// The seed of the present test. It belongs into the test's body or fixture: failures name it for as long
/// as it lives.
struct test_seed_t {
    explicit test_seed_t(uint32_t own)
        : value(own + seed_from_outside()),
          trace(__FILE__, __LINE__, "seed " + std::to_string(value) + ", again: " + repeat_command())
    {
        printf("[   SEED   ] %u\n", value);
        testing::Test::RecordProperty("seed", std::to_string(value));
    }

    const uint32_t value;

private:
    const testing::ScopedTrace trace;
};
