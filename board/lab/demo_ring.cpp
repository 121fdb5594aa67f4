#include "board/lab/demo_ring.h"

#include <algorithm>
#include <cstdio>
#include <deque>
#include <future>
#include <list>
#include <map>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

#include <fmt/format.h>

#include "board/lab/demo_stage.h"
#include "board/lab/demo_view.h"
#include "board/lab/within.h"
#include "board/lab/world.h"
#include "tools/messages.h"
#include "tools/words.h"

#ifdef LVT_BRIDGE
#include "board/lab/ruled_bridge.h"
#include "board/netlink/netlink.h"
#endif

namespace lab {

namespace {

struct demo_words_t {
    const char *title, *drawing, *legend;
};

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

#ifdef LVT_BRIDGE
constexpr char BRIDGES_TITLE[] =
    "Three Linux bridges in a ring, each ruled by a rapid spanning tree daemon (RSTP), twice: as the daemon is by "
    "default, and asked to be rapid.";

constexpr char BRIDGES_DRAWING[] = R"(
              bridge 1, the root
               /lan1    lan2\
       cable 1/              \cable 2
         lan1/                \lan1
  host A - bridge 2 ------- bridge 3 - host B
                lan2     lan2
                   cable 3
)";

constexpr char BRIDGES_LEGEND[] =
    "Each is a machine of its own with a bridge br0 of the kernel's, whose STP is off, and \"lvt_bridge br0\": the "
    "kernel forwards, and the daemon says where. Host A pings host B a hundred times a second. The table tells how "
    "long no ping was answered after what was done, in seconds. By default spanning tree waits for ticks, for hellos "
    "that do not come, and for two forward delays of 4 seconds, the shortest that the standard allows. The seconds "
    "vary from run to run and from machine to machine.";
#endif

constexpr char NO_GUARD[] = "nothing keeps the kernel from forwarding on its own"; ///< lvt_bridge's words
constexpr int ROOT_PRIORITY = 4096, USUAL_PRIORITY = 32768;

constexpr double RING_PING_PAUSE = 0.01;
constexpr auto RING_PATIENCE = 40s;
constexpr double RAPID_SILENCE = 0.6; ///< seconds: the board's look and far less than a hello time after it

// ---- what a ring is made of ---------------------------------------------------------------------

/// A simulated switch.
class board_switch_t {
public:
    static constexpr demo_words_t WORDS = {RING_TITLE, RING_DRAWING, RING_LEGEND};

    board_switch_t(int place, int number, bool rapid)
        : is_root_(place == 1), device_({.name = fmt::format("switch {}", place), .number = number, .rapid = rapid})
    {
    }

    cable_end_t port(int number) const { return device_.port(number); }

    void start()
    {
        device_.start();
        lvt_rstp_system_config_t bridge = LVT_RSTP_SYSTEM_DEFAULTS;
        bridge.bridge_priority = is_root_ ? ROOT_PRIORITY : USUAL_PRIORITY;
        bridge.max_age = MAX_AGE;
        bridge.hello_time = HELLO_TIME;
        bridge.forward_delay = FORWARD_DELAY;
        port_configs_t ports = default_port_configs();
        for (const size_t port : {1, 2, 3}) {
            ports[port].adminEnable = 1;
            ports[port].adminEdge = port == 3;
        }
        device_.send(system_config_message(bridge));
        device_.send(port_config_message(ports));
        if (!within(5s, [&] { return device_.client().port(1).state != HW_NO_STP; }))
            throw std::runtime_error("the daemon does not take its settings\n" + device_.story());
    }

    /// How many of the ports to other switches forward.
    int forwarding()
    {
        int count = 0;
        for (const unsigned port : {1u, 2u}) {
            const auto told = device_.client().port(port);
            count += told.link && told.state == HW_FORWARDING;
        }
        return count;
    }

    bool runs() { return device_.daemon().running() && device_.board().running(); }

    static void tell(std::list<board_switch_t> & /*ring*/) {}

private:
    bool is_root_;
    switch_t device_;
};

#ifdef LVT_BRIDGE
/// A Linux bridge that lvt_bridge rules.
class linux_bridge_t {
public:
    static constexpr demo_words_t WORDS = {BRIDGES_TITLE, BRIDGES_DRAWING, BRIDGES_LEGEND};

    linux_bridge_t(int place, int number, bool rapid)
        : ports_(place == 1 ? 2 : 3),
          device_({.name = fmt::format("bridge {}", place),
                   .number = number,
                   .settings = settings(place == 1 ? ROOT_PRIORITY : USUAL_PRIORITY),
                   .options = rapid ? std::vector<std::string>{"--rapid"} : std::vector<std::string>{}})
    {
        device_.node().in_net([&] { kernel_.emplace(); });
        index_ = kernel_->find("br0").value().index;
    }

    cable_end_t port(int number) const { return device_.port(number); }

    void start()
    {
        for (int port = 1; port <= ports_; port++)
            device_.join(port);
        try {
            device_.start();
        } catch (const std::runtime_error &) {
            if (device_.said().find(NO_GUARD) == std::string::npos)
                throw;
            throw cannot_run_t(std::vector{lack_t{
                "a firewall for bridges", "it needs a kernel with nftables for bridges (CONFIG_NF_TABLES_BRIDGE)"}});
        }
    }

    int forwarding()
    {
        const auto ports = kernel_->ports_of(index_);
        return static_cast<int>(std::ranges::count_if(ports, [](const interface_t &port) {
            return port.name != "lan3" && port.up && port.port_state == port_state_t::forwarding;
        }));
    }

    bool runs() { return device_.program().running(); }

    /// Shows what daemons and kernels say of the ports.
    static void tell(std::list<linux_bridge_t> &ring)
    {
        fmt::print("\nBy default, as the daemons say (and as the kernel has it):\n\n{:8}  {:23}  lan2\n", "", "lan1");
        for (linux_bridge_t &bridge : ring) {
            const bridge_status_t status = bridge.device_.status().value_or(bridge_status_t{});
            std::map<std::string, std::string> words;
            for (const interface_t &port : bridge.kernel_->ports_of(bridge.index_))
                words[port.name] = fmt::format("{} ({})", role_word(status.port(port.name.back() - '0').role),
                                               port_state_name(port.port_state.value_or(port_state_t::disabled)));
            fmt::print("{}  {:23}  {}\n", bridge.device_.node().name(), words["lan1"], words["lan2"]);
        }
    }

private:
    static std::string settings(int priority)
    {
        std::string text = fmt::format("[bridge]\npriority = {}\nmax_age = {}\nhello_time = {}\nforward_delay = {}\n",
                                       priority, MAX_AGE, HELLO_TIME, FORWARD_DELAY);
        for (const int port : {1, 2, 3})
            text += fmt::format("[port.{}]\nspanning_tree = true\nedge = {}\n", port, port == 3);
        return text;
    }

    int ports_;
    ruled_bridge_t device_;
    std::optional<netlink_t> kernel_;
    int index_ = 0;
};
#endif

// ---- rings --------------------------------------------------------------------------------------

template <typename device_t>
class ring_t {
public:
    ring_t(int first, bool rapid) : a_("host A", first + 3, "10.0.0.1"), b_("host B", first + 4, "10.0.0.2")
    {
        std::vector<device_t *> at;
        for (const int place : {1, 2, 3})
            at.push_back(&devices_.emplace_back(place, first + place - 1, rapid));
        cables_.emplace_back(at[0]->port(1), at[1]->port(1));
        cables_.emplace_back(at[0]->port(2), at[2]->port(1));
        cables_.emplace_back(at[1]->port(2), at[2]->port(2));
        for (const cable_t &cable : cables_)
            cable.pull();
        cables_.emplace_back(at[1]->port(3), cable_end_t{&a_.node(), "eth0", a_.node().mac()});
        cables_.emplace_back(at[2]->port(3), cable_end_t{&b_.node(), "eth0", b_.node().mac()});
        a_.set_address();
        b_.set_address();
    }

    void start()
    {
        std::vector<std::future<void>> starts;
        for (device_t &device : devices_)
            starts.push_back(std::async(std::launch::async, [&device] { device.start(); }));
        for (std::future<void> &one : starts)
            one.get();
        pings_.start(a_, b_, RING_PING_PAUSE);
    }

    const cable_t &cable(int number) const { return cables_[static_cast<size_t>(number - 1)]; }
    const pings_t &pings() const { return pings_; }
    std::list<device_t> &devices() { return devices_; }

    /// Whether the ports between the devices forward as they do at rest: with all three cables one end is blocked.
    bool rests(bool whole)
    {
        int forwarding = 0;
        for (device_t &device : devices_)
            forwarding += device.forwarding();
        return forwarding == (whole ? 5 : 4);
    }

    bool runs()
    {
        return std::ranges::all_of(devices_, [](device_t &device) { return device.runs(); });
    }

private:
    std::list<device_t> devices_;
    host_t a_, b_;
    std::deque<cable_t> cables_;
    pings_t pings_;
};

std::string span_cell(double seconds)
{
    return seconds < RING_PING_PAUSE ? fmt::format("< {:.2f} s", RING_PING_PAUSE) : fmt::format("{:.2f} s", seconds);
}

template <typename device_t>
class rings_t {
public:
    bool play()
    {
        usual_.start();
        rapid_.start();
        for (const int number : {1, 2, 3})
            cable(number, true);
        rested_ = rest(true);
        device_t::tell(usual_.devices());
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
        view_.check(usual_.runs() && rapid_.runs(), "all programs are still running");
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

    static constexpr demo_words_t WORDS = device_t::WORDS;

    demo_view_t view_{WORDS.title, WORDS.drawing, WORDS.legend}; // before the rings are made, which takes a moment
    ring_t<device_t> usual_{1, false};
    ring_t<device_t> rapid_{11, true};
    ring_t<device_t> *rings_[2] = {&usual_, &rapid_};
    moments_t::time_point began_ = moments_t::now();
    size_t known_[2] = {};
    bool rested_ = false;
    double longest_rapid_ = 0;
};

void require_rapid()
{
#ifndef LVT_RAPID
    throw cannot_run_t(std::vector{lack_t{"a daemon that knows --rapid", "configure with -DLVT_RAPID=ON"}});
#endif
}

} // namespace

bool play_rings()
{
    require_rapid();
    return rings_t<board_switch_t>().play();
}

bool play_bridges()
{
    require_rapid();
#ifndef LVT_BRIDGE
    throw cannot_run_t(std::vector{lack_t{"lvt_bridge", "configure with -DLVT_BRIDGE=ON"}});
#else
    return rings_t<linux_bridge_t>().play();
#endif
}

} // namespace lab
