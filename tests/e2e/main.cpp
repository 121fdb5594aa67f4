// Entry of the end-to-end tests: into a world of namespaces first, then GoogleTest as usual.
#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "board/lab/first_net.h"
#include "board/lab/world.h"

namespace {

constexpr int CANNOT_RUN = 77; ///< the exit status that counts as a skipped test

/// What the machine lacks, in one line.
std::string in_one_line(const lab::cannot_run_t &reason)
{
    std::string line;
    for (const lab::lack_t &lack : reason.lacks())
        line += (line.empty() ? "" : "; ") + lack.what;
    std::replace(line.begin(), line.end(), '\n', ' ');
    return line;
}

} // namespace

int main(int argc, char **argv)
{
    // GoogleTest takes its options out of the list, but inside the world they are needed again.
    std::vector<char *> arguments(argv, argv + argc + 1);
    testing::InitGoogleTest(&argc, argv);
    if (testing::GTEST_FLAG(list_tests))
        return RUN_ALL_TESTS();

    try {
        if (const char *helper = getenv("LVT_BRIDGE_STP")) // then its Linux bridges are in the first network namespace
            lab::guard_first_net(helper);
        lab::enter_world(arguments.data());
        return RUN_ALL_TESTS();
    } catch (const lab::cannot_run_t &reason) {
        std::printf("cannot run here: %s\n", in_one_line(reason).c_str());
        return CANNOT_RUN;
    }
}
