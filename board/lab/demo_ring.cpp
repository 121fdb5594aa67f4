#include "board/lab/demo_ring.h"

#include <algorithm>
#include <cstdio>
#include <stdexcept>
#include <string>

#include <fmt/format.h>

#include "board/lab/demo_stage.h"
#include "board/lab/demo_view.h"
#include "board/lab/within.h"
#include "board/lab/world.h"
#include "tools/messages.h"

namespace lab {

namespace {

constexpr char RING_TITLE[] =
    "Three switches with a rapid spanning tree daemon (RSTP) in a ring, twice: as the daemon is by default, and asked "
    "to be rapid.";

constexpr char RING_DRAWING[] = R"(
              switch 1, the root
               /            \
       cable 1/              \cable 2
             /                \
  host A - switch 2 ------- switch 3 - host B
                   cable 3
)";

constexpr char RING_LEGEND[] =
    "Host A pings host B a hundred times a second. The table tells how long no ping was answered after what was done, "
    "in seconds. Up to 0.2 of them pass until the simulated board looks at its links; the rest is spanning tree. By "
    "default that waits for ticks, for hellos that do not come, and for two forward delays of 4 seconds, the shortest "
    "that the standard allows. The seconds vary from run to run and from machine to machine.";

constexpr double RING_PING_PAUSE = 0.01;
constexpr auto RING_PATIENCE = 40s;
constexpr double RAPID_SILENCE = 0.6; ///< seconds: the board's look and far less than a hello time after it

class ring_t {
public:
    ring_t(int first, bool rapid)
        : switches_{switch_t({.name = "switch 1", .number = first, .rapid = rapid}),
                    switch_t({.name = "switch 2", .number = first + 1, .rapid = rapid}),
                    switch_t({.name = "switch 3", .number = first + 2, .rapid = rapid})},
          a_("host A", first + 3, "10.0.0.1"),
          b_("host B", first + 4, "10.0.0.2"), cables_{{switches_[0].port(1), switches_[1].port(1)},
                                                       {switches_[0].port(2), switches_[2].port(1)},
                                                       {switches_[1].port(2), switches_[2].port(2)}},
          cable_a_(switches_[1].port(3), {&a_.node(), "eth0", a_.node().mac()}),
          cable_b_(switches_[2].port(3), {&b_.node(), "eth0", b_.node().mac()})
    {
        for (const cable_t &cable : cables_)
            cable.pull();
        a_.set_address();
        b_.set_address();
        for (switch_t &device : switches_)
            start(device, &device == &switches_[0]);
        pings_.start(a_, b_, RING_PING_PAUSE);
    }

    const cable_t &cable(int number) const { return cables_[number - 1]; }
    const pings_t &pings() const { return pings_; }

    /// Whether the ports between the switches forward as they do at rest: with all three cables one end is blocked.
    bool rests(bool whole)
    {
        int forwarding = 0;
        for (switch_t &device : switches_)
            for (const unsigned port : {1u, 2u}) {
                const auto told = device.client().port(port);
                forwarding += told.link && told.state == HW_FORWARDING;
            }
        return forwarding == (whole ? 5 : 4);
    }

    bool runs()
    {
        bool all = true;
        for (switch_t &device : switches_)
            all = all && device.daemon().running() && device.board().running();
        return all;
    }

private:
    static void start(switch_t &device, bool is_root)
    {
        device.start();
        lvt_rstp_system_config_t bridge = LVT_RSTP_SYSTEM_DEFAULTS;
        bridge.bridge_priority = is_root ? 4096 : 32768;
        bridge.max_age = MAX_AGE;
        bridge.hello_time = HELLO_TIME;
        bridge.forward_delay = FORWARD_DELAY;
        port_configs_t ports = default_port_configs();
        for (const size_t port : {1, 2, 3}) {
            ports[port].adminEnable = 1;
            ports[port].adminEdge = port == 3;
        }
        device.send(system_config_message(bridge));
        device.send(port_config_message(ports));
        if (!within(5s, [&] { return device.client().port(1).state != HW_NO_STP; }))
            throw std::runtime_error("the daemon does not take its settings\n" + device.story());
    }

    switch_t switches_[3];
    host_t a_, b_;
    cable_t cables_[3];
    cable_t cable_a_, cable_b_;
    pings_t pings_;
};

std::string span_cell(double seconds)
{
    return seconds < RING_PING_PAUSE ? fmt::format("< {:.2f} s", RING_PING_PAUSE) : fmt::format("{:.2f} s", seconds);
}

class rings_t {
public:
    bool play()
    {
        for (const int number : {1, 2, 3})
            cable(number, true);
        rested_ = rest(true);
        fmt::print("\n{:30} {:>12} {:>12}\n", "", "by default", "rapid");
        for (const int number : {2, 1}) {
            cable(number, false);
            change(fmt::format("cable {} is pulled", number), false);
            cable(number, true);
            change(fmt::format("cable {} is plugged in", number), true);
        }

        view_.epilogue();
        view_.check(rested_, "both rings came to rest after each, with one port blocked where there was a ring");
        view_.check(longest_rapid_ < RAPID_SILENCE,
                    fmt::format("the hosts of the rapid ring were never apart for more than {:.1f} s", RAPID_SILENCE));
        view_.check(!usual_.pings().any_answered_twice() && !rapid_.pings().any_answered_twice(),
                    "no ping was ever answered twice: nothing went round in circles");
        view_.check(usual_.runs() && rapid_.runs(), "daemons and boards are still running");
        return view_.summary(
            static_cast<int>(std::chrono::round<std::chrono::seconds>(moments_t::now() - began_).count()));
    }

private:
    using moments_t = std::chrono::steady_clock;

    void cable(int number, bool plugged)
    {
        for (const int i : {0, 1}) {
            known_[i] = rings_[i]->pings().answered();
            plugged ? rings_[i]->cable(number).plug() : rings_[i]->cable(number).pull();
        }
    }

    /// Waits until both rings have been at rest for a second, and their pings are answered.
    bool rest(bool whole)
    {
        constexpr int LOOKS = 20;
        int held = 0;
        return within(
            RING_PATIENCE,
            [&] {
                bool rests = true;
                for (const int i : {0, 1})
                    rests = rests && rings_[i]->pings().answered() > known_[i] + 50 && rings_[i]->rests(whole);
                held = rests ? held + 1 : 0;
                return held == LOOKS;
            },
            50ms);
    }

    /// A row of the table.
    void change(const std::string &what, bool whole)
    {
        rested_ = rest(whole) && rested_;
        const double usual = usual_.pings().longest_silence(known_[0]);
        const double rapid = rapid_.pings().longest_silence(known_[1]);
        fmt::print("{:30} {:>12} {:>12}\n", what, span_cell(usual), span_cell(rapid));
        std::fflush(stdout);
        longest_rapid_ = std::max(longest_rapid_, rapid);
    }

    demo_view_t view_{RING_TITLE, RING_DRAWING, RING_LEGEND}; // before the rings are made, which takes a moment
    ring_t usual_{1, false};
    ring_t rapid_{11, true};
    ring_t *rings_[2] = {&usual_, &rapid_};
    moments_t::time_point began_ = moments_t::now();
    size_t known_[2] = {};
    bool rested_ = false;
    double longest_rapid_ = 0;
};

} // namespace

bool play_rings()
{
#ifndef LVT_RAPID
    throw cannot_run_t(std::vector{lack_t{"a daemon that knows --rapid", "configure with -DLVT_RAPID=ON"}});
#endif
    return rings_t().play();
}

} // namespace lab
