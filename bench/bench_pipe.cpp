/// CPU time per received BPDU of the whole daemon, beside that of a bare program that makes the
/// same system calls. Both run in turn in namespaces of their own, with the daemon's real pipes.
#include <fcntl.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <vector>

#include <fmt/core.h>

#include "board/lab/node.h"
#include "board/lab/within.h"
#include "board/lab/world.h"
#include "rstp/bpdu.h"
#include "tools/messages.h"

using namespace std::chrono_literals;

namespace {

constexpr int ROUNDS = 5;
constexpr int BPDUS = 100000;

/// Nanoseconds that all threads of a process have run.
double cpu_ns(pid_t pid)
{
    double sum = 0;
    for (const auto &task : std::filesystem::directory_iterator(fmt::format("/proc/{}/task", pid))) {
        double ns = 0;
        std::ifstream(task.path() / "schedstat") >> ns;
        sum += ns;
    }
    return sum;
}

std::vector<uint8_t> neighbours_bpdu()
{
    bpdu_t bpdu = {};
    memcpy(bpdu.destination, lvt_rstp_slowmac, sizeof bpdu.destination);
    bpdu_put16(bpdu.length, BPDU_RST_OCTETS + BPDU_LLC_OCTETS);
    bpdu.dsap = bpdu.ssap = BPDU_LLC_SAP;
    bpdu.control = BPDU_LLC_CONTROL;
    bpdu.version = 2;
    bpdu.type = BPDU_TYPE_RST;
    bpdu.flags = BPDU_ROLE_DESIGNATED << BPDU_FLAG_ROLE_SHIFT;
    bpdu_put16(bpdu.root_priority, 4096);
    bpdu_put16(bpdu.bridge_priority, 4096);
    bpdu_put16(bpdu.port_id, 0x8001);
    bpdu.max_age[0] = 20;
    bpdu.hello_time[0] = 2;
    bpdu.forward_delay[0] = 15;
    const auto *octets = reinterpret_cast<const uint8_t *>(&bpdu);
    return bpdu_message(2, {octets, sizeof bpdu});
}

void put(int pipe, const std::vector<uint8_t> &frame)
{
    lab::checked(static_cast<int>(write(pipe, frame.data(), frame.size())), "write to the control pipe");
}

void wait_until_read(int pipe)
{
    int held = 1;
    if (!lab::within(20s, [&] { return ioctl(pipe, FIONREAD, &held) == 0 && held == 0; }))
        throw std::runtime_error("the control pipe is not read");
}

/// A node with the pipes that the board's other daemons make.
lab::node_t make_node()
{
    lab::node_t node("bench", 1);
    node.ip("link add eth0 type veth peer name cpu0\nlink set eth0 up\nlink set cpu0 up\n");
    for (const char *path : {RSTP_IF_PIPE, RSTP_DBG_IF_PIPE, LACP_IF_PIPE, PORT_MUX_IF_PIPE})
        lab::checked(mkfifo(node.path(path).c_str(), 0600), path);
    return node;
}

/// CPU nanoseconds per BPDU of `program`.
double measure(const std::string &program)
{
    lab::node_t node = make_node();
    const fd_t pipe(lab::checked(open(node.path(RSTP_IF_PIPE).c_str(), O_RDWR), RSTP_IF_PIPE));
    lab::process_t process = node.start({.argv = {program}});

    port_configs_t configs = default_port_configs();
    port_statuses_t links = {};
    for (uint32_t port = 1; port <= 3; port++) {
        configs[port].adminEnable = 1;
        links[port - 1] = {.ignored = 0, .link = 1, .speed = 2, .duplex = 1};
    }
    put(pipe.number(), port_status_message(links));
    put(pipe.number(), port_config_message(configs));

    const std::vector<uint8_t> bpdu = neighbours_bpdu();
    for (int i = 0; i < 1000; i++)
        put(pipe.number(), bpdu);
    wait_until_read(pipe.number());

    const double before = cpu_ns(process.pid());
    for (int i = 0; i < BPDUS; i++)
        put(pipe.number(), bpdu);
    wait_until_read(pipe.number());
    return (cpu_ns(process.pid()) - before) / BPDUS;
}

double median(std::vector<double> values)
{
    std::sort(values.begin(), values.end());
    return values[values.size() / 2];
}

} // namespace

int main(int, char **argv)
try {
    lab::enter_world(argv);
    const std::string folder = std::filesystem::read_symlink("/proc/self/exe").parent_path();

    std::vector<double> daemon, bare, ratio;
    for (int round = 0; round < ROUNDS; round++) {
        daemon.push_back(measure(folder + "/lvt_rstpd"));
        bare.push_back(measure(folder + "/bench_bare_reader"));
        ratio.push_back(daemon.back() / bare.back());
    }
    fmt::print("| CPU time per BPDU through the pipe | {:.2f} µs |\n", median(daemon) / 1000);
    fmt::print("| the same system calls and nothing else | {:.2f} µs |\n", median(bare) / 1000);
    fmt::print("| ratio, median of {} pairs | {:.2f} |\n", ROUNDS, median(ratio));
    return 0;
} catch (const lab::cannot_run_t &lacking) {
    fmt::print(stderr, "{}\n", lacking.what());
    return lab::EXIT_CANNOT_RUN;
} catch (const std::exception &error) {
    fmt::print(stderr, "bench_pipe: {}\n", error.what());
    return 1;
}
