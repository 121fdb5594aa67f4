/// What the daemon asks of the switch chip and tells the port multiplexer, as lines of text that a
/// test can compare: "10 66c 70000 40000" for a register batch (operation, register, mask, value;
/// several operations joined by "; "), "mux 3 1" for a message about port 3.
#pragma once

#include <string>
#include <vector>

#include "board/lab/switch_node.h"

namespace e2e {

using actions_t = std::vector<std::string>;

/// Watches the board's diary.
class watch_t {
public:
    /// From the board's start on.
    explicit watch_t(const lab::switch_t &device) : device_(device) {}

    /// What the daemon did since the last call, in its order.
    actions_t news();

    /// Waits until there is something new, and then until `wanted` is all of it or `limit` has
    /// passed. Returns what is new.
    actions_t news_like(const actions_t &wanted);

private:
    const lab::switch_t &device_;
    size_t seen_ = 0;                     ///< lines of the diary
    std::vector<std::string> operations_; ///< of a batch whose end is not written yet
};

// ---- what to expect ---------------------------------------------------------------------------

/// A front port's state is written into the chip.
std::string writes_state(int port, unsigned code);

/// The multiplexer is told whether the port forwards.
std::string tells_mux(int port, bool forwarding);

std::string flushes();
std::string arms_trap();
std::string disarms_trap();

/// The rule that lets the spanning tree frames of one front port pass.
///
/// mac  the last three octets of its address, as a number; the first three are 02:00:00.
std::string writes_rule(int port, unsigned mac);

/// A batch of `operations` that the board refused.
std::string is_refused(unsigned operations);

actions_t operator+(actions_t first, const actions_t &second);

} // namespace e2e
