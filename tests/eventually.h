/// Waiting, in a test, for a value to become what it should be.
#pragma once

#include <chrono>
#include <optional>
#include <string>
#include <type_traits>

#include <gmock/gmock.h>

#include "board/lab/within.h"

/// Asks `get` again and again until what it says matches `wanted`, a value or a matcher. When it has not
/// within `limit`, the failure shows what it said last.
template <typename get_t, typename wanted_t>
testing::AssertionResult eventually(std::chrono::milliseconds limit, get_t get, const wanted_t &wanted,
                                    std::chrono::milliseconds pause = std::chrono::milliseconds(20))
{
    using value_t = std::decay_t<decltype(get())>;
    const auto matcher = testing::SafeMatcherCast<const value_t &>(wanted);
    std::optional<value_t> last;
    const auto matches = [&] {
        last.emplace(get());
        return matcher.Matches(*last);
    };
    if (lab::within(limit, matches, pause))
        return testing::AssertionSuccess();

    testing::StringMatchResultListener remark;
    matcher.MatchAndExplain(*last, &remark);
    const std::string explanation = remark.str().empty() ? "" : ", " + remark.str();
    return testing::AssertionFailure() << "for " << limit.count()
                                       << " ms\n Expected: " << testing::DescribeMatcher<const value_t &>(matcher)
                                       << "\nLast seen: " << testing::PrintToString(*last) << explanation;
}
