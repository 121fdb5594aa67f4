/// A neighbour played by the test: it says BPDUs at the end of a cable and hears the switch's.
#pragma once

#include <atomic>
#include <chrono>
#include <functional>
#include <mutex>
#include <thread>
#include <vector>

#include "board/lab/node.h"
#include "tests/bpdus.h"

namespace lab {

struct heard_bpdu_t {
    std::chrono::steady_clock::time_point at;
    bpdu_t bpdu;   ///< what a shorter frame leaves out is zero
    bool outgoing; ///< it left here; only a tap hears such
};

/// Hears all BPDUs at an interface. Frames that leave it are heard, too, when it is a tap.
class listener_t {
public:
    listener_t(const node_t &node, const std::string &interface, bool tap = false);
    ~listener_t();

    /// Oldest first.
    std::vector<heard_bpdu_t> heard() const;

    /// Those that came after `since` and answer `is_wanted` with yes.
    size_t count(const std::function<bool(const bpdu_t &)> &is_wanted,
                 std::chrono::steady_clock::time_point since = {}) const;

protected:
    const fd_t &socket() const { return socket_; }

private:
    void listen();

    fd_t socket_;
    bool tap_;
    mutable std::mutex mutex_;
    std::vector<heard_bpdu_t> heard_;
    std::atomic<bool> ending_ = false;
    std::thread thread_;
};

class speaker_t : public listener_t {
public:
    /// Speaks at the machine's eth0.
    explicit speaker_t(const node_t &node);
    ~speaker_t();

    /// Says these in turn, one every `pause`, until told otherwise. The first one leaves at once.
    void say(std::vector<bpdu_t> bpdus, std::chrono::milliseconds pause = std::chrono::seconds(1));
    void say(const bpdu_t &bpdu, std::chrono::milliseconds pause = std::chrono::seconds(1));

    void say_once(bpdu_t bpdu) const;
    void be_silent();

private:
    void talk();

    bpdu_t source_ = {}; ///< with the machine's address
    std::mutex words_;
    std::vector<bpdu_t> bpdus_;
    std::chrono::milliseconds pause_{0};
    std::atomic<unsigned> topic_ = 0; ///< counts the calls of say
    std::atomic<bool> ending_ = false;
    std::thread thread_;
};

} // namespace lab
