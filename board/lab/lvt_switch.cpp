// lvt_switch: one simulated switch, board and daemon, in namespaces of its own.
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <filesystem>
#include <string>
#include <vector>

#include <CLI/CLI.hpp>
#include <fmt/format.h>
#include <unistd.h>

#include "board/lab/surroundings.h"
#include "board/lab/switch_node.h"
#include "board/lab/tail.h"
#include "board/lab/within.h"
#include "board/lab/world.h"

namespace {

using namespace lab;

constexpr char FOOTER[] =
    R"(A switch stays until Ctrl-C; whatever way it ends, nothing is left behind. An ordinary user can run
it as well as root. Switches that run side by side know nothing of each other.

Examples:
  lvt_switch --bridge 1,2 --host 3
      a loop of two cables with a Linux bridge that speaks STP, and a host
  sudo lvt_switch --port 1:sw1p1
      front port 1 is cabled to a new interface sw1p1 of this machine
  lvt_switch --bridge 1,2 --run 'lvt_rstpctl ports --enable 1,2; sleep 2; cat /tmp/rstp_monitor'
      a command inside the switch, where the programs are in PATH; then the end
  lvt_switch --host 3 --host 4 --run 'nsenter --net=$LVT_HOST_3 ping -c 3 10.0.0.4'
      LVT_HOST_N and LVT_BRIDGE_N are the network namespaces of the neighbours at port N)";

struct options_t {
    switch_settings_t settings;
    std::vector<std::string> outside; ///< "N:IFNAME" each
    std::vector<int> hosts;
    std::vector<std::string> bridges; ///< "N,M,..." each
    std::string command;
};

volatile std::sig_atomic_t interrupted;

void introduce(const switch_t &device, const world_t &world, const surroundings_t &surroundings)
{
    const std::string pid = std::to_string(world.outside_pid);
    std::string tool = own_program().replace_filename("lvt_rstpctl");
    if (tool.find(' ') != std::string::npos)
        tool = fmt::format("\"{}\"", tool);
    const char *const user = world.unprivileged ? " --user --preserve-credentials" : "";

    fmt::print("The switch {} is up. Ctrl-C ends it and leaves nothing behind.\n", device.node().mac());
    for (const std::string &line : surroundings.lines(pid))
        fmt::print("  {}\n", line);
    fmt::print(
        "From another terminal{}:\n"
        "  {} --root /proc/{}/root ports --enable 1,2,3\n"
        "  cat /proc/{}/root{}\n"
        "  nsenter -t {}{} --net --mount --root --wd bash   a shell in the switch;\n"
        "                                                     with a neighbour's --net= one there\n\n",
        world.unprivileged ? "" : ", as root", tool, pid, pid, STATUS_FILE, pid, user);
    std::fflush(stdout);
}

/// Shows what happens until somebody ends it. Returns the exit status.
int stay(switch_t &device, bool trace)
{
    for (const int number : {SIGINT, SIGTERM, SIGHUP})
        std::signal(number, [](int) { interrupted = 1; });

    tail_t tail;
    tail.add(CONSOLE_FILE, "console");
    tail.add(DAEMON_OUTPUT_FILE, "daemon");
    tail.add(DAEMON_ERROR_FILE, trace ? "trace" : "daemon");
    tail.add(BOARD_OUTPUT_FILE, "board");
    if (trace)
        tail.add(BOARD_LOG_FILE, "board", true);

    const auto over = [&] {
        tail.show();
        return interrupted || !device.daemon().running() || !device.board().running();
    };
    while (!within(std::chrono::hours(1), over, 100ms))
        continue;
    if (interrupted)
        return EXIT_SUCCESS;
    process_t &dead = device.board().running() ? device.daemon() : device.board();
    fmt::print("The {} ended with status {}.\n", &dead == &device.daemon() ? "daemon" : "board", *dead.exit_code());
    return EXIT_FAILURE;
}

int run_command(const std::string &command, const surroundings_t &surroundings)
{
    const std::string programs = own_program().parent_path();
    std::vector<std::string> environment = surroundings.variables(std::to_string(getpid()));
    environment.push_back(fmt::format("PATH={}:{}", programs, getenv("PATH")));
    return start({.argv = {"sh", "-c", command},
                  .environment = std::move(environment),
                  .in = STDIN_FILENO,
                  .out = STDOUT_FILENO,
                  .err = STDERR_FILENO,
                  .with_terminal = true})
        .wait();
}

int run_switch(const options_t &options, char **argv)
{
    const world_t world = enter_world(argv);
    switch_t device(options.settings);
    surroundings_t surroundings(device, world, options.settings.number);
    for (const std::string &outside : options.outside)
        surroundings.add_outside(outside);
    for (const int port : options.hosts)
        surroundings.add_host(port);
    for (const std::string &ports : options.bridges)
        surroundings.add_bridge(ports);
    device.start();
    device.node().enter();

    if (!options.command.empty())
        return run_command(options.command, surroundings);
    introduce(device, world, surroundings);
    return stay(device, options.settings.trace);
}

void add_options(CLI::App &app, options_t &options)
{
    app.add_option("--port", options.outside, "Cable port N to a new interface of this machine (root only)")
        ->type_name("N:IFNAME");
    app.add_option("--host", options.hosts, "Cable port N to a host with address 10.0.0.N")
        ->type_name("N")
        ->check(CLI::Range(1, 6).description(""));
    app.add_option("--bridge", options.bridges, "Cable these ports to one Linux kernel bridge with STP")
        ->type_name("N,M,...");
    app.add_flag("--trace", options.settings.trace,
                 "Show every transition of the daemon's machines and what the board sees");
    app.add_option("--run", options.command, "Run a command inside the switch, then end with its exit status")
        ->type_name("COMMAND");
    app.add_option("--number", options.settings.number,
                   "A part of the switch's MAC addresses, 1 to 255, usually 1; switches that meet need "
                   "different ones")
        ->type_name("N")
        ->check(CLI::Range(1, 255).description(""));
    app.add_option("--daemon", options.settings.daemon, "Daemon to run instead of the one beside this program");
    app.add_option("--board", options.settings.board, "Board to run instead of the one beside this program");
    app.footer(FOOTER);
}

} // namespace

int main(int argc, char **argv)
{
    options_t options;
    CLI::App app("Starts a simulated six-port switch with its spanning tree daemon", "lvt_switch");
    add_options(app, options);

    try {
        app.parse(argc, argv);
        return run_switch(options, argv);
    } catch (const CLI::ParseError &error) {
        return app.exit(error) == 0 ? EXIT_SUCCESS : EXIT_FAILURE;
    } catch (const cannot_run_t &reason) {
        fmt::print(stderr, "{}", reason.what());
        return EXIT_CANNOT_RUN;
    } catch (const std::exception &reason) {
        fmt::print(stderr, "lvt_switch: {}\n", reason.what());
        return EXIT_FAILURE;
    }
}
