/// Waiting for something to come true, the one way it is done in lab, demo and tests.
#pragma once

#include <chrono>
#include <thread>

namespace lab {

using namespace std::chrono_literals;

/// Asks `condition` again and again until it is true or `limit` has passed.
/// Returns what it said last.
template <typename condition_t>
bool within(std::chrono::milliseconds limit, condition_t condition, std::chrono::milliseconds pause = 20ms)
{
    const auto deadline = std::chrono::steady_clock::now() + limit;
    while (!condition()) {
        if (std::chrono::steady_clock::now() >= deadline)
            return condition();
        std::this_thread::sleep_for(pause);
    }
    return true;
}

} // namespace lab
