/// The network that the demo plays with, and looking at it.
#pragma once

#include <chrono>
#include <ctime>
#include <vector>

#include "board/lab/cable.h"
#include "board/lab/neighbours.h"
#include "board/lab/switch_node.h"

namespace lab {

// The shortest timers that the standard allows, in seconds.
constexpr int MAX_AGE = 6;
constexpr int HELLO_TIME = 1;
constexpr int FORWARD_DELAY = 4;

constexpr int KERNEL_PRIORITY = 24576;

/// One look at the whole network.
struct frame_t {
    int second; ///< since the demo's beginning
    bridge_status_t ours;
    kernel_view_t kernel;
    int replies; ///< to host A's pings, since the frame before

    const port_status_t &port(int number) const { return ours.port(number); }
    bool kernel_forwards(int port) const;
};

/// One host asks another all the time.
class pings_t {
public:
    /// pause  from one ping to the next, in seconds.
    void start(const host_t &from, const host_t &to, double pause);

    /// How many pings have been answered.
    size_t answered() const { return numbers().size(); }

    /// The longest time without an answer since `known` answers were there, in seconds.
    double longest_silence(size_t known) const;

    bool any_answered_twice() const;

private:
    std::vector<int> numbers() const;

    const node_t *node_ = nullptr;
    double pause_ = 0;
    process_t process_;
};

/// Our switch and a kernel bridge, to be joined by two cables, with a host at each. The cables 1
/// and 2 lead from the ports of these numbers to those of the kernel bridge; at first they hang
/// loose.
class stage_t {
public:
    stage_t();

    switch_t &ours() { return ours_; }
    const cable_t &cable(int number) const { return number == 1 ? cable1_ : cable2_; }
    const pings_t &pings() const { return pings_; }

    /// Does what an operator types at our switch: a program of ours, and words without blanks.
    /// Throws std::runtime_error, with what it said, when it does not succeed.
    void operate(const std::string &command);

    /// Waits for the daemon's next status file, one a second, and looks at everything.
    /// Throws std::runtime_error when it does not come.
    frame_t next_frame();

    int seconds() const;

private:
    cable_end_t kernel_port(int number) const;

    switch_t ours_;
    kernel_bridge_t kernel_;
    host_t a_;
    host_t b_;
    cable_t cable1_;
    cable_t cable2_;
    cable_t cable_a_;
    cable_t cable_b_;
    pings_t pings_;
    timespec file_time_ = {}; ///< of the status file last seen
    size_t answers_ = 0;      ///< as last seen
    std::chrono::steady_clock::time_point began_;
};

} // namespace lab
