/// A neighbour played by the test: it says BPDUs at the end of a cable and hears the switch's.
#pragma once

#include <atomic>
#include <chrono>
#include <functional>
#include <mutex>
#include <thread>
#include <vector>

#include "board/lab/node.h"
#include "rstp/bpdu.h"
#include "rstp/records.h"

namespace lab {

/// What a configuration or RST BPDU tells.
struct told_t {
    bridge_id_t root;
    uint32_t cost;
    bridge_id_t bridge;
    uint16_t port = 0x8001;
    timevalues_t times = {.MessageAge = 0, .MaxAge = 6, .ForwardDelay = 4, .HelloTime = 1};
};

/// A bridge identifier with the address 02:00:00:00:LAST:00, as the lab's machines have.
bridge_id_t made_up_bridge(uint16_t priority, uint8_t last);

/// A bridge that calls itself the root.
told_t root_bridge(uint16_t priority, uint8_t last);

/// The role code of a flags octet, and back.
int role_code_of(uint8_t flags);
uint8_t role_flags(int code);

bpdu_t config_bpdu(const told_t &told, uint8_t flags = 0);

/// By default that of a designated port.
bpdu_t rst_bpdu(const told_t &told, uint8_t flags = 0, int role_code = BPDU_ROLE_DESIGNATED);

bpdu_t tcn_bpdu();

struct heard_bpdu_t {
    std::chrono::steady_clock::time_point at;
    bpdu_t bpdu; ///< what a shorter frame leaves out is zero
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

// ---- kinds of BPDUs ---------------------------------------------------------------------------

bool is_rst(const bpdu_t &bpdu);
bool is_config(const bpdu_t &bpdu);
bool is_tcn(const bpdu_t &bpdu);
bool is_ack(const bpdu_t &bpdu); ///< a configuration BPDU that acknowledges a notification
bool has_flag(const bpdu_t &bpdu, uint8_t flag);

} // namespace lab
