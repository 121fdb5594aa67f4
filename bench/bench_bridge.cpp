/// What it costs that a Linux bridge is ruled by lvt_bridge: throughput from host to host beside that of the same
/// bridge without it, and processor time of lvt_bridge with its daemon, at rest and for each BPDU. Prints the tables of
/// docs/performance.md.
#include <algorithm>
#include <array>
#include <chrono>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <functional>
#include <list>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include <CLI/CLI.hpp>
#include <fmt/format.h>
#include <linux/if_packet.h>
#include <nlohmann/json.hpp>
#include <sys/socket.h>

#include "board/lab/first_net.h"
#include "board/lab/neighbours.h"
#include "board/lab/ruled_bridge.h"
#include "board/lab/within.h"
#include "board/lab/world.h"
#include "rstp/bpdu.h"
#include "tools/about.h"
#include "tools/bpdu_frame.h"
#include "tools/hex.h"

namespace {

using namespace std::chrono_literals;
using moments_t = std::chrono::steady_clock;

// Short turns, so that what else the machine does meets both; a TCP connection takes a second to get up to speed.
constexpr double SLICE = 0.02;
constexpr int SLICES = 20;

struct options_t {
    int rounds = 15;
    double seconds = 1;
    double rest = 60;
    int bpdus = 20000;
    std::string helper;
};

/// What one in ten is above: of many short turns those that met nothing else on the machine.
double best(std::vector<double> values)
{
    std::ranges::sort(values);
    return values[values.size() * 9 / 10];
}

double median(std::vector<double> values)
{
    std::ranges::sort(values);
    const size_t middle = values.size() / 2;
    return values.size() % 2 != 0 ? values[middle] : (values[middle - 1] + values[middle]) / 2;
}

double core_time()
{
    timespec now = {};
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &now);
    return static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_nsec) / 1e9;
}

// ---- two hosts at a bridge --------------------------------------------------------------------

std::string settings_text()
{
    std::string text;
    for (const int port : {1, 2})
        text += fmt::format("[port.{}]\nspanning_tree = true\nedge = true\n", port);
    return text;
}

class hosts_t {
public:
    hosts_t(int first, bool is_ruled, const lab::first_net_t &net)
        : bridge_(
              {.name = fmt::format("bridge {}", first), .number = first, .settings = settings_text(), .first = net}),
          a_("host A", first + 1, "10.0.0.1"), b_("host B", first + 2, "10.0.0.2")
    {
        int port = 1;
        for (lab::host_t *host : {&a_, &b_}) {
            cables_.emplace_back(bridge_.port(port), lab::cable_end_t{&host->node(), "eth0", host->node().mac()});
            host->set_address();
            bridge_.join(port++);
        }
        if (is_ruled)
            bridge_.start();
        if (!a_.reaches(b_, 40s))
            throw std::runtime_error("the hosts do not reach each other\n" + bridge_.story());
        server_ = b_.node().start({.argv = {"iperf3", "--server"}});
        flood_.emplace(a_.node().packet_socket("eth0"));
        const int on = 1;
        lab::checked(setsockopt(flood_->number(), SOL_PACKET, PACKET_QDISC_BYPASS, &on, sizeof on), "packet socket");
    }

    lab::ruled_bridge_t &bridge() { return bridge_; }
    const lab::host_t &a() const { return a_; }

    /// Bits a second by TCP.
    double tcp(double seconds) const
    {
        lab::outcome_t outcome = {};
        const bool answered = lab::within(5s, [&] { // its server may not be there yet
            outcome = a_.node().run(
                {.argv = {"iperf3", "--client", b_.address(), "--json", "--time", fmt::format("{:.0f}", seconds)}});
            return outcome.exit_code == 0;
        });
        if (!answered)
            throw std::runtime_error("iperf3: " + outcome.output);
        return nlohmann::json::parse(outcome.output).at("end").at("sum_received").at("bits_per_second");
    }

    /// Frames of 64 octets, with their check sequence, that arrive for each second of the sending core: a frame goes
    /// all its way through the bridge while it is sent.
    double small_frames(double seconds) const
    {
        constexpr size_t BATCH = 64;
        std::array<uint8_t, 60> frame = {};
        const auto to = read_address(b_.node().mac()).value(), from = read_address(a_.node().mac()).value();
        std::ranges::copy(to, frame.begin());
        std::ranges::copy(from, frame.begin() + 6);
        frame[12] = 0x88; // for local experiments
        frame[13] = 0xB5;
        iovec octets = {frame.data(), frame.size()};
        std::array<mmsghdr, BATCH> batch = {};
        for (mmsghdr &each : batch)
            each.msg_hdr = {.msg_name = nullptr,
                            .msg_namelen = 0,
                            .msg_iov = &octets,
                            .msg_iovlen = 1,
                            .msg_control = nullptr,
                            .msg_controllen = 0,
                            .msg_flags = 0};
        const double begin = core_time();
        const uint64_t before = arrived();
        double lasted = 0;
        while (lasted < seconds) {
            for (int i = 0; i < 4; i++)
                lab::checked(sendmmsg(flood_->number(), batch.data(), batch.size(), 0), "frames");
            lasted = core_time() - begin;
        }
        return static_cast<double>(arrived() - before) / lasted;
    }

    /// Nanoseconds of processor time that lvt_bridge and its daemon have had.
    uint64_t processor_time()
    {
        const lab::outcome_t found =
            bridge_.node().run({.argv = {"pgrep", "-P", std::to_string(bridge_.program().pid()), "-x", "lvt_rstpd"}});
        return time_of(std::to_string(bridge_.program().pid())) + time_of(std::to_string(std::stoi(found.output)));
    }

    /// Tells the bridge at host A's port of another root, again and again. Returns how many BPDUs were sent.
    int tell(int count) const
    {
        told_t told = {.root = {4096, {2, 0, 0, 0, 0x99, 0}}, .cost = 0, .bridge = {4096, {2, 0, 0, 0, 0x99, 0}}};
        bpdu_t bpdu = bpdu_of(BPDU_TYPE_RST, told, bpdu_role_flags(BPDU_ROLE_DESIGNATED));
        const auto from = read_address(a_.node().mac()).value();
        std::ranges::copy(from, bpdu.source);
        const std::vector<uint8_t> frame = frame_of(bpdu);
        auto due = moments_t::now();
        for (int i = 0; i < count; i++) {
            lab::checked(static_cast<int>(send(flood_->number(), frame.data(), frame.size(), 0)), "BPDU");
            std::this_thread::sleep_until(due += 1ms);
        }
        return count;
    }

private:
    uint64_t arrived() const { return std::stoull(b_.node().read("/sys/class/net/eth0/statistics/rx_packets")); }

    static uint64_t time_of(const std::string &pid)
    {
        uint64_t sum = 0;
        for (const auto &task : std::filesystem::directory_iterator(fmt::format("/proc/{}/task", pid))) {
            uint64_t nanoseconds = 0;
            std::ifstream(task.path() / "schedstat") >> nanoseconds;
            sum += nanoseconds;
        }
        return sum;
    }

    lab::ruled_bridge_t bridge_;
    lab::host_t a_, b_;
    std::list<lab::cable_t> cables_;
    lab::process_t server_;
    std::optional<fd_t> flood_;
};

// ---- measuring --------------------------------------------------------------------------------

/// A bridge with lvt_bridge and one without, of the same kind.
struct pair_t {
    std::string name;
    std::list<hosts_t> bridges = {}; ///< without, with
    std::vector<double> tcp[2] = {}, frames[2] = {};
    double rest = 0, rest_rapid = 0, per_bpdu = 0;
};

void measure_throughput(std::list<pair_t> &pairs, const options_t &options)
{
    for (int round = 0; round < options.rounds; round++)
        for (pair_t &pair : pairs) {
            hosts_t *hosts[] = {&pair.bridges.front(), &pair.bridges.back()};
            for (int slice = 0; slice < SLICES; slice++)
                for (const int turn : {0, 1}) {
                    const int which = (turn + slice) % 2; // neither is always the first
                    pair.frames[which].push_back(hosts[which]->small_frames(SLICE));
                }
            for (const int turn : {0, 1}) {
                const int which = (turn + round) % 2;
                pair.tcp[which].push_back(hosts[which]->tcp(options.seconds));
            }
        }
}

void measure_processor(std::list<pair_t> &pairs, const options_t &options)
{
    std::vector<uint64_t> before;
    for (pair_t &pair : pairs)
        before.push_back(pair.bridges.back().processor_time());
    const auto begin = moments_t::now();
    std::this_thread::sleep_for(std::chrono::duration<double>(options.rest));
    size_t i = 0;
    for (pair_t &pair : pairs) {
        const std::chrono::duration<double, std::nano> lasted = moments_t::now() - begin;
        pair.rest = static_cast<double>(pair.bridges.back().processor_time() - before[i++]) / lasted.count();
    }
    for (pair_t &pair : pairs) {
        hosts_t &hosts = pair.bridges.back();
        hosts.tell(100); // it has another root then
        const auto start = moments_t::now();
        const uint64_t known = hosts.processor_time();
        const int told = hosts.tell(options.bpdus);
        const double all = static_cast<double>(hosts.processor_time() - known);
        const std::chrono::duration<double, std::nano> lasted = moments_t::now() - start;
        pair.per_bpdu = (all - pair.rest * lasted.count()) / told;
    }
}

double ratio(const std::vector<double> (&values)[2])
{
    std::vector<double> ratios;
    for (size_t i = 0; i < values[0].size(); i++)
        ratios.push_back(values[1][i] / values[0][i]);
    return median(std::move(ratios));
}

void show(const std::list<pair_t> &pairs)
{
    fmt::print("| | without | with `lvt_bridge` | with / without |\n|---|---|---|---|\n");
    for (const pair_t &pair : pairs) {
        fmt::print("| {}: TCP, Gbit/s | {:.2f} | {:.2f} | {:.3f} |\n", pair.name, median(pair.tcp[0]) / 1e9,
                   median(pair.tcp[1]) / 1e9, ratio(pair.tcp));
        const double frames[] = {best(pair.frames[0]), best(pair.frames[1])};
        fmt::print("| {}: frames of 64 octets, thousands a second | {:.0f} | {:.0f} | {:.3f} |\n", pair.name,
                   frames[0] / 1e3, frames[1] / 1e3, frames[1] / frames[0]);
    }
    fmt::print("\n| processor time of `lvt_bridge` and its daemon | at rest, of one core | a BPDU |\n|---|---|---|\n");
    for (const pair_t &pair : pairs)
        fmt::print("| {} | {:.3f} % | {:.1f} µs |\n", pair.name, pair.rest * 100, pair.per_bpdu / 1000);
}

void measure(const options_t &options)
{
    std::list<pair_t> pairs;
    if (const lab::first_net_t first = lab::first_net(); first.net >= 0)
        pairs.push_back({.name = "user-space STP"});
    pairs.push_back({.name = "firewall"});
    int number = 1;
    for (pair_t &pair : pairs)
        for (const bool is_ruled : {false, true}) {
            pair.bridges.emplace_back(number, is_ruled,
                                      pair.name == "firewall" ? lab::first_net_t{} : lab::first_net());
            number += 3;
        }
    measure_throughput(pairs, options);
    measure_processor(pairs, options);
    show(pairs);
}

} // namespace

int main(int argc, char **argv)
{
    options_t options;
    CLI::App app("What lvt_bridge costs: throughput and processor time", "bench_bridge");
    app.add_option("--rounds", options.rounds, "How often each is measured")->check(CLI::Range(1, 1000));
    app.add_option("--seconds", options.seconds, "How long a TCP connection is measured")->check(CLI::Range(1., 60.));
    app.add_option("--rest", options.rest, "How long it is looked at while nothing happens")
        ->check(CLI::Range(1., 3600.));
    app.add_option("--bpdus", options.bpdus, "How many are sent, a thousand a second")->check(CLI::Range(100, 1000000));
    app.add_option("--bridge-stp", options.helper,
                   "The program that is put into the place of /sbin/bridge-stp, which user-space STP needs");
    try {
        app.parse(argc, argv);
        if (!options.helper.empty())
            lab::guard_first_net(options.helper);
    } catch (const CLI::ParseError &error) {
        return app.exit(error) == 0 ? EXIT_SUCCESS : EXIT_NOT_UNDERSTOOD;
    } catch (const lab::cannot_run_t &reason) {
        fmt::print(stderr, "{}", reason.what());
        return EXIT_UNTOLD;
    }
    try {
        lab::enter_world(argv);
        measure(options);
        return EXIT_SUCCESS;
    } catch (const lab::cannot_run_t &reason) {
        fmt::print(stderr, "{}", reason.what());
        return EXIT_UNTOLD;
    } catch (const std::exception &reason) {
        fmt::print(stderr, "bench_bridge: {}\n", reason.what());
        return EXIT_FAILURE;
    }
}
