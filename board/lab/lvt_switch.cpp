// lvt_switch: one simulated switch, board and daemon, in namespaces of its own.
#include <charconv>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <filesystem>
#include <list>
#include <map>
#include <string>
#include <vector>

#include <CLI/CLI.hpp>
#include <fmt/format.h>
#include <unistd.h>

#include "board/lab/neighbours.h"
#include "board/lab/switch_node.h"
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

int port_number(const std::string &text)
{
    int port = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), port);
    if (error != std::errc() || end != text.data() + text.size() || port < 1 || port > 6)
        throw std::runtime_error(fmt::format("there is no port '{}', only 1 to 6", text));
    return port;
}

/// Everything that is cabled to the switch.
class surroundings_t {
public:
    surroundings_t(switch_t &device, const world_t &world, const options_t &options)
        : device_(device), first_number_(options.settings.number * 256)
    {
        for (const std::string &text : options.outside)
            add_outside(world, text);
        for (const int port : options.hosts)
            add_host(port);
        for (const std::string &ports : options.bridges)
            add_bridge(ports);
    }

    /// One line per neighbour, for people; `pid` is this process as they see it.
    std::vector<std::string> lines(const std::string &pid) const
    {
        std::vector<std::string> lines;
        for (const auto &[port, neighbour] : neighbours_) {
            std::string line = fmt::format("port {}: {}", port, neighbour.what);
            if (neighbour.node != nullptr)
                line += fmt::format(" (--net={})", namespace_path(pid, *neighbour.node));
            lines.push_back(line);
        }
        return lines;
    }

    /// Where the neighbours' network namespaces are, as NAME=path.
    std::vector<std::string> variables(const std::string &pid) const
    {
        std::vector<std::string> variables;
        for (const auto &[port, neighbour] : neighbours_) {
            if (neighbour.node != nullptr)
                variables.push_back(
                    fmt::format("{}_{}={}", neighbour.variable, port, namespace_path(pid, *neighbour.node)));
        }
        return variables;
    }

private:
    struct neighbour_t {
        std::string what;
        std::string variable;
        const node_t *node; ///< nullptr: this machine
    };

    static std::string namespace_path(const std::string &pid, const node_t &node)
    {
        return fmt::format("/proc/{}/fd/{}", pid, node.place().net);
    }

    void claim(int port, const neighbour_t &neighbour)
    {
        if (!neighbours_.emplace(port, neighbour).second)
            throw std::runtime_error(fmt::format("port {} has a cable already", port));
    }

    void add_outside(const world_t &world, const std::string &text)
    {
        const size_t colon = text.find(':');
        if (colon == std::string::npos || colon + 1 == text.size())
            throw std::runtime_error(fmt::format("'{}' is not N:IFNAME, as in 1:sw1p1", text));
        if (world.unprivileged)
            throw std::runtime_error("--port puts an interface into this machine's network: run it as root");

        const int port = port_number(text.substr(0, colon));
        const std::string interface = text.substr(colon + 1);
        claim(port, {fmt::format("the interface {} of this machine", interface), "", nullptr});

        const int net = world.caller_net.number();
        const cable_end_t near = device_.port(port);
        near.node->ip(
            fmt::format("link add name {0} address {1} type veth peer name {2} netns /proc/self/fd/{3}\n"
                        "link set {0} addrgenmode none\n"
                        "link set {0} up",
                        near.interface, near.mac, interface, net),
            {net});
        lab::run({.argv = {"ip", "link", "set", interface, "up"}, .place = {.net = net}});
    }

    void add_host(int port)
    {
        const std::string address = fmt::format("10.0.0.{}", port);
        const host_t &host = hosts_.emplace_back(fmt::format("host {}", port), first_number_ + port, address);
        claim(port, {fmt::format("a host with address {}", address), "LVT_HOST", &host.node()});
        cable(port, host.node(), "eth0", 0);
        host.set_address();
    }

    void add_bridge(const std::string &ports)
    {
        const std::vector<std::string> words = CLI::detail::split(ports, ',');
        const int number = first_number_ + 16 + port_number(words.at(0));
        const kernel_bridge_t &bridge = bridges_.emplace_back("bridge " + ports, number, bridge_settings_t());
        for (const std::string &word : words) {
            const int port = port_number(word);
            const std::string interface = fmt::format("port{}", port);
            claim(port,
                  {fmt::format("a Linux bridge with STP, its {}", interface), "LVT_BRIDGE", &bridge.node()});
            cable(port, bridge.node(), interface, port);
            bridge.add_port(interface);
        }
    }

    void cable(int port, const node_t &node, const std::string &interface, int mac)
    {
        cables_.emplace_back(device_.port(port), cable_end_t{&node, interface, node.mac(mac)});
    }

    switch_t &device_;
    int first_number_;
    std::map<int, neighbour_t> neighbours_; ///< by port
    std::list<host_t> hosts_;
    std::list<kernel_bridge_t> bridges_;
    std::list<cable_t> cables_;
};

/// Shows what is appended to files, line by line.
class tail_t {
public:
    /// words_only  shows of each line what follows its first " | ", and no line without one.
    void add(const std::string &path, const std::string &title, bool words_only = false)
    {
        files_.push_back({path, title, words_only, 0, {}});
    }

    void show()
    {
        for (file_t &file : files_) {
            std::FILE *const stream = std::fopen(file.path.c_str(), "re");
            if (stream == nullptr)
                continue;
            std::fseek(stream, file.at, SEEK_SET);
            for (int letter; (letter = std::fgetc(stream)) != EOF;) {
                if (letter != '\n') {
                    file.line += static_cast<char>(letter);
                    continue;
                }
                show_line(file);
                file.line.clear();
            }
            file.at = std::ftell(stream);
            std::fclose(stream);
        }
        std::fflush(stdout);
    }

private:
    struct file_t {
        std::string path;
        std::string title;
        bool words_only;
        long at;
        std::string line; ///< whose end has not been written yet
    };

    static void show_line(const file_t &file)
    {
        const size_t bar = file.line.find(" | ");
        if (!file.words_only)
            fmt::print("{:<7} | {}\n", file.title, file.line);
        else if (bar != std::string::npos)
            fmt::print("{:<7}{}\n", file.title, file.line.substr(bar));
    }

    std::vector<file_t> files_;
};

volatile std::sig_atomic_t interrupted;

void introduce(const switch_t &device, const world_t &world, const surroundings_t &surroundings)
{
    const std::string pid = std::to_string(world.outside_pid);
    const std::string programs = std::filesystem::read_symlink("/proc/self/exe").parent_path();
    const char *const user = world.unprivileged ? " --user --preserve-credentials" : "";

    fmt::print("The switch {} is up. Ctrl-C ends it and leaves nothing behind.\n", device.node().mac());
    for (const std::string &line : surroundings.lines(pid))
        fmt::print("  {}\n", line);
    fmt::print("From another terminal{}:\n"
               "  {}/lvt_rstpctl --root /proc/{}/root ports --enable 1,2,3\n"
               "  cat /proc/{}/root{}\n"
               "  nsenter -t {}{} --net --mount bash     a shell in the switch;\n"
               "                                         with a neighbour's --net= one there\n\n",
               world.unprivileged ? "" : ", as root", programs, pid, pid, STATUS_FILE, pid, user);
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
    fmt::print("The {} ended with status {}.\n", &dead == &device.daemon() ? "daemon" : "board",
               *dead.exit_code());
    return EXIT_FAILURE;
}

int run_command(const std::string &command, const surroundings_t &surroundings)
{
    const std::string programs = std::filesystem::read_symlink("/proc/self/exe").parent_path();
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
    const surroundings_t surroundings(device, world, options);
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
    app.add_option("--daemon", options.settings.daemon,
                   "Daemon to run instead of the one beside this program");
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
