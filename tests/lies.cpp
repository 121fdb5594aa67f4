#include "tests/lies.h"

namespace {

using words_t = std::vector<bpdu_t>;

words_t our_own_identifier(const bridge_id_t &ours)
{
    const told_t by_us = {.root = ours, .cost = 0, .bridge = ours, .times = SHORT_TIMES};
    const told_t by_a_better_one = {.root = ours, .cost = 0, .bridge = made_up_bridge(0, 1), .times = SHORT_TIMES};
    told_t other_port = by_us;
    other_port.port = 0x8002;
    return {rst_bpdu(by_us), rst_bpdu(by_us, BPDU_FLAG_PROPOSAL), config_bpdu(other_port), rst_bpdu(by_a_better_one),
            config_bpdu(by_a_better_one)};
}

words_t too_old(const bridge_id_t &)
{
    const told_t best = root_bridge(0, 1);
    return {rst_bpdu(with_times(best, {.MessageAge = 6, .MaxAge = 6, .ForwardDelay = 4, .HelloTime = 1})),
            rst_bpdu(with_times(best, {.MessageAge = 255, .MaxAge = 6, .ForwardDelay = 4, .HelloTime = 1})),
            config_bpdu(with_times(best, {.MessageAge = 255, .MaxAge = 0, .ForwardDelay = 4, .HelloTime = 1}))};
}

words_t absurd_times(const bridge_id_t &)
{
    const told_t best = root_bridge(0, 1);
    return {rst_bpdu(with_times(best, {.MessageAge = 0, .MaxAge = 255, .ForwardDelay = 255, .HelloTime = 0})),
            rst_bpdu(with_times(best, {.MessageAge = 255, .MaxAge = 255, .ForwardDelay = 0, .HelloTime = 255})),
            config_bpdu(with_times(best, {.MessageAge = 0, .MaxAge = 0, .ForwardDelay = 0, .HelloTime = 0})),
            rst_bpdu(with_times(best, {.MessageAge = 254, .MaxAge = 255, .ForwardDelay = 255, .HelloTime = 0}))};
}

words_t no_hello(const bridge_id_t &)
{
    return {
        rst_bpdu(with_times(root_bridge(0, 1), {.MessageAge = 0, .MaxAge = 20, .ForwardDelay = 15, .HelloTime = 0}))};
}

words_t ever_other_roots(const bridge_id_t &)
{
    words_t words;
    for (uint8_t i = 0; i < 100; i++) {
        const told_t root = root_bridge(static_cast<uint16_t>(i % 3 * 4096), static_cast<uint8_t>(i * 37));
        words.push_back(i % 2 == 0 ? rst_bpdu(root, BPDU_FLAG_PROPOSAL | BPDU_FLAG_TC)
                                   : config_bpdu(root, BPDU_FLAG_TC));
    }
    words.push_back(tcn_bpdu());
    return words;
}

words_t every_role_and_flag(const bridge_id_t &ours)
{
    words_t words;
    const told_t by_us = {.root = ours, .cost = 7, .bridge = ours, .times = SHORT_TIMES};
    for (int flags = 0; flags < 256; flags++) {
        bpdu_t bpdu = rst_bpdu(flags % 5 == 0 ? by_us : root_bridge(0, 1));
        bpdu.flags = static_cast<uint8_t>(flags);
        words.push_back(bpdu);
    }
    return words;
}

} // namespace

const std::array<lie_t, 6> LIES = {{
    {"our_own_identifier", our_own_identifier},
    {"too_old", too_old},
    {"absurd_times", absurd_times},
    {"no_hello", no_hello},
    {"ever_other_roots", ever_other_roots},
    {"every_role_and_flag", every_role_and_flag},
}};
