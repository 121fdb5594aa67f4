/// How long a ring of switches is apart when a cable is pulled: the daemon's own program on simulated boards, asked to
/// be rapid or not. Prints the distribution over many cuts, from the moment that a board tells its daemon of the lost
/// link until the last port of the ring forwards.
#include <algorithm>
#include <chrono>
#include <deque>
#include <list>
#include <random>
#include <regex>
#include <string>
#include <vector>

#include <CLI/CLI.hpp>
#include <fmt/format.h>

#include "board/lab/cable.h"
#include "board/lab/switch_node.h"
#include "board/lab/within.h"
#include "board/lab/world.h"
#include "lvt_rstp.h"
#include "tools/about.h"
#include "tools/messages.h"

namespace {

using namespace std::chrono_literals;
using clock_t = std::chrono::steady_clock;

struct options_t {
    int switches = 15;
    int cuts = 100;
    bool by_default = false;
};

double now() { return std::chrono::duration<double>(clock_t::now().time_since_epoch()).count(); }

/// A switch, and its board's diary on the machine's clock.
struct place_t {
    lab::switch_t device;
    double start = 0; ///< of the board's clock
    size_t read = 0;  ///< of the diary

    explicit place_t(lab::switch_settings_t settings) : device(std::move(settings)) {}

    std::string news()
    {
        std::string text = device.node().read(lab::BOARD_LOG_FILE).substr(read);
        text.resize(text.rfind('\n') + 1); // the end of no line is there yet
        read += text.size();
        return text;
    }

    /// Lets the board write into its diary at a known moment: the best of some tries.
    void set_clock()
    {
        double least = 1;
        for (int i = 0; i < 20; i++) {
            news();
            const double before = now();
            device.client().set_link_fail(false);
            const double after = now();
            if (after - before < least) {
                least = after - before;
                start = (before + after) / 2 - std::stod(news());
            }
        }
    }
};

/// What the diaries tell of a change.
struct change_t {
    double reported = 0;      ///< a board has told its daemon of a link
    double last_forwards = 0; ///< a port was made to forward
};

class ring_t {
public:
    explicit ring_t(const options_t &options)
    {
        for (int i = 0; i < options.switches; i++) {
            place_t &place = places_.emplace_back(lab::switch_settings_t{
                .name = fmt::format("switch {}", i + 1), .number = i + 1, .rapid = !options.by_default});
            place.device.start();
            lvt_rstp_system_config_t bridge = LVT_RSTP_SYSTEM_DEFAULTS;
            bridge.bridge_priority = i ? 32768 : 4096;
            place.device.send(system_config_message(bridge));
            port_configs_t ports = default_port_configs();
            for (const int port : {1, 2})
                ports[static_cast<size_t>(port)].adminEnable = 1, ports[static_cast<size_t>(port)].adminEdge = 0;
            place.device.send(port_config_message(ports));
            lab::within(5s, [&] { return place.device.client().port(1).state != HW_FORWARDING; });
        }
        for (auto place = places_.begin(); place != places_.end(); ++place) {
            auto &next = std::next(place) == places_.end() ? places_.front() : *std::next(place);
            cables_.emplace_back(place->device.port(1), next.device.port(2));
        }
        for (place_t &place : places_)
            place.set_clock();
    }

    const lab::cable_t &cable(size_t i) { return cables_[i]; }

    void forget()
    {
        for (place_t &place : places_)
            place.news();
    }

    /// Waits until nothing has been written for a while, but for hellos.
    change_t settle(std::chrono::milliseconds quiet)
    {
        static const std::regex forwards(R"(^([0-9.]+) mdio .*: state 4)"), report(R"(^([0-9.]+) link reported=1)");
        change_t change;
        auto last = clock_t::now();
        while (clock_t::now() - last < quiet) {
            for (place_t &place : places_) {
                const std::string text = place.news();
                for (size_t at = 0; at < text.size();) {
                    const size_t end = text.find('\n', at);
                    const std::string line = text.substr(at, end - at);
                    at = end + 1;
                    const double moment = place.start + std::atof(line.c_str());
                    if (std::regex_search(line, report)) {
                        change.reported = change.reported == 0 ? moment : std::min(change.reported, moment);
                        last = clock_t::now();
                    } else if (std::regex_search(line, forwards)) {
                        change.last_forwards = std::max(change.last_forwards, moment);
                        last = clock_t::now();
                    }
                }
            }
            lab::within(20ms, [] { return false; });
        }
        return change;
    }

    /// Whether so many ends of cables forward, as soon as both boards have seen what became of the cable: the kernel
    /// may tell one a second later.
    bool comes_to_forward(int ends)
    {
        return lab::within(3s, [&] { return forwarding() == ends; });
    }

private:
    int forwarding()
    {
        int count = 0;
        for (place_t &place : places_)
            for (const unsigned port : {1u, 2u})
                count +=
                    place.device.client().port(port).link && place.device.client().port(port).state == HW_FORWARDING;
        return count;
    }

    std::list<place_t> places_;
    std::deque<lab::cable_t> cables_;
};

void print_distribution(std::vector<double> spans)
{
    std::sort(spans.begin(), spans.end());
    const auto part = [&](double share) {
        return spans[std::min(spans.size() - 1, static_cast<size_t>(share * static_cast<double>(spans.size())))];
    };
    fmt::print(
        "| least | median | 90 of 100 | 99 of 100 | most |\n|---|---|---|---|---|\n"
        "| {:.1f} ms | {:.1f} ms | {:.1f} ms | {:.1f} ms | {:.1f} ms |\n",
        spans.front(), part(0.5), part(0.9), part(0.99), spans.back());
}

int measure(const options_t &options)
{
    ring_t ring(options);
    const auto quiet = options.by_default ? std::chrono::milliseconds(35s) : std::chrono::milliseconds(1000);
    ring.settle(quiet);
    const int whole = 2 * options.switches - 1;
    std::mt19937 random(1);
    std::vector<double> spans;
    int wrong = 0;
    for (int i = 0; i < options.cuts; i++) {
        const lab::cable_t &cable = ring.cable(random() % static_cast<size_t>(options.switches));
        wrong += !ring.comes_to_forward(whole);
        ring.forget();
        cable.pull();
        const change_t change = ring.settle(quiet);
        wrong += !ring.comes_to_forward(2 * options.switches - 2);
        // The ring's one blocked port may have been at the cable: nothing was apart.
        if (change.last_forwards > change.reported)
            spans.push_back((change.last_forwards - change.reported) * 1000);
        cable.plug();
        ring.settle(quiet);
    }
    fmt::print("{} switches, {} cuts, of which {} parted the ring; {} times a port was not as it should be\n\n",
               options.switches, options.cuts, spans.size(), wrong);
    if (!spans.empty())
        print_distribution(spans);
    return wrong ? EXIT_FAILURE : EXIT_SUCCESS;
}

} // namespace

int main(int argc, char **argv)
try {
    options_t options;
    CLI::App app("How long a ring of real daemons is apart when a cable is pulled", "bench_rapid_ring");
    app.add_option("--switches", options.switches, "How many")->check(CLI::Range(3, 20))->capture_default_str();
    app.add_option("--cuts", options.cuts, "How often a cable is pulled")->capture_default_str();
    app.add_flag("--default", options.by_default, "Without --rapid");
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError &error) {
        return app.exit(error) == 0 ? EXIT_SUCCESS : EXIT_NOT_UNDERSTOOD;
    }
    lab::enter_world(argv);
    return measure(options);
} catch (const std::exception &problem) {
    fmt::print(stderr, "bench_rapid_ring: {}\n", problem.what());
    return 3;
}
