/// CPU time per received BPDU of the whole daemon, beside that of a bare program that makes the
/// same system calls. Both run in turn in namespaces of their own, with the daemon's real pipes.
#include <sys/stat.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <vector>

#include <fmt/format.h>

#include "board/lab/node.h"
#include "board/lab/world.h"
#include "platform/messages.h"
#include "feed.h"
#include "tools/about.h"

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
    lab::process_t process = node.start({.argv = {program}});

    feed_t feed(node);
    feed.take_part();
    feed.bpdus(1000);

    const double before = cpu_ns(process.pid());
    feed.bpdus(BPDUS);
    return (cpu_ns(process.pid()) - before) / BPDUS;
}

double median(std::vector<double> values)
{
    std::sort(values.begin(), values.end());
    return values[values.size() / 2];
}

} // namespace

int main(int argc, char **argv)
try {
    if (told_about(argc, argv,
                   "bench_pipe: CPU time of the daemon beside that of a bare program with its system calls"))
        return EXIT_SUCCESS;
    if (argc > 1) {
        fmt::print(stderr, "bench_pipe takes no words but --help and --version\n");
        return EXIT_NOT_UNDERSTOOD;
    }
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
    return EXIT_UNTOLD;
} catch (const std::exception &error) {
    fmt::print(stderr, "bench_pipe: {}\n", error.what());
    return 1;
}
