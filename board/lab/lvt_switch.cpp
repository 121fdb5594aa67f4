// lvt_switch: one simulated switch, board and daemon, in namespaces of its own.
#include <algorithm>
#include <cctype>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <filesystem>
#include <fstream>
#include <stdexcept>
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
#include "tools/about.h"

namespace {

using namespace lab;

constexpr char FOOTER[] =
    R"(A switch stays until Ctrl-C; whatever way it ends, nothing is left behind. An ordinary user can run
it as well as root. Switches that run side by side know nothing of each other.

Exit status: 0 ended by Ctrl-C; 1 the board or the daemon ended, or something was refused; 2 the
command line was not understood; 3 this machine cannot run it, and why. With --run or --shell theirs.

Examples:
  lvt_switch --bridge 1,2 --host 3
      a loop of two cables with a Linux bridge that speaks STP, and a host
  sudo lvt_switch --port 1:sw1p1
      front port 1 is cabled to a new interface sw1p1 of this machine
  lvt_switch --bridge 1,2 --host 3 --shell
      the same, and a shell in it: a prompt of its own, the tools, their completion and man pages
  lvt_switch --bridge 1,2 --run 'lvt_rstpctl set port 1,2 --spanning-tree on; sleep 2; lvt_rstpctl show'
      a command inside the switch, where the programs are in PATH; then the end
  lvt_switch --host 3 --host 4 --run 'nsenter --net=$LVT_HOST_3 ping -c 3 10.0.0.4'
      LVT_HOST_N and LVT_BRIDGE_N are the network namespaces of the neighbours at port N)";

struct options_t {
    switch_settings_t settings;
    std::vector<std::string> outside; ///< "N:IFNAME" each
    std::vector<int> hosts;
    std::vector<std::string> bridges; ///< "N,M,..." each
    std::string command;
    bool shell = false;
};

/// What an interactive bash in the switch reads first.
constexpr char SHELL_FILE[] = "/tmp/switch.bashrc";

volatile std::sig_atomic_t interrupted;

/// As one word of a shell.
std::string shell_word(const std::string &text)
{
    const auto plain = [](char letter) {
        return isalnum(static_cast<unsigned char>(letter)) || strchr("/._-+:,", letter);
    };
    if (!text.empty() && std::ranges::all_of(text, plain))
        return text;
    std::string word = "'";
    for (const char letter : text)
        word += letter == '\'' ? "'\\''" : std::string(1, letter);
    return word + "'";
}

/// The folder with the tools' man pages and completion, as a build and an installation have it.
std::filesystem::path share() { return own_program().parent_path().parent_path() / "share"; }

/// What a command in the switch finds in its environment; `pid` is this process as it sees it.
std::vector<std::string> environment(const surroundings_t &surroundings, const std::string &pid)
{
    std::vector<std::string> variables = surroundings.variables(pid);
    variables.push_back(fmt::format("PATH={}:{}", own_program().parent_path().string(), getenv("PATH")));
    const char *pages = getenv("MANPATH");
    variables.push_back(fmt::format("MANPATH={}:{}", (share() / "man").string(), pages != nullptr ? pages : ""));
    return variables;
}

/// Writes what an interactive bash reads first in the switch.
void write_shell_file(const surroundings_t &surroundings, int number)
{
    std::string text;
    for (const std::string &variable : environment(surroundings, std::to_string(getpid()))) {
        const size_t value = variable.find('=') + 1;
        text += fmt::format("export {}{}\n", variable.substr(0, value), shell_word(variable.substr(value)));
    }
    const std::string completion = shell_word(share() / "bash-completion/completions/lvt_rstpctl");
    text += fmt::format("[ ! -r {0} ] || . {0}\n", completion);
    text += fmt::format("PS1='switch {}:\\w\\$ '\n", number);
    text += fmt::format("HISTFILE={}.history\n", SHELL_FILE); // goes with the switch
    text += "echo 'lvt_rstpctl rules this switch (TAB, man lvt_rstpctl); lvt_board shows its chip.'\n";
    std::ofstream(SHELL_FILE) << text;
}

void introduce(const switch_t &device, const world_t &world, const surroundings_t &surroundings)
{
    const std::string pid = std::to_string(world.outside_pid);
    const auto name = [](const char *path) { return std::filesystem::path(path).filename().string(); };

    fmt::print("The switch {} is up. Ctrl-C ends it and leaves nothing behind.\n", device.node().mac());
    for (const std::string &line : surroundings.lines(pid))
        fmt::print("  {}\n", line);
    fmt::print(
        "From another terminal{0}:\n"
        "  nsenter -t {1}{2} --pid --net --mount --root --wd bash --rcfile {3}\n"
        "      a shell in the switch with the tools in its paths; with a neighbour's --net= there\n"
        "Or without a shell:\n"
        "  export LVT_ROOT=/proc/{1}/root PATH={4}:$PATH\n"
        "  lvt_rstpctl set port {5} --spanning-tree on\n"
        "  lvt_rstpctl show\n"
        "  cat $LVT_ROOT{6}\n"
        "  tail -f $LVT_ROOT{7}\n"
        "      the console, where debug reports come; beside it {8} and {9}\n\n",
        world.unprivileged ? "" : ", as root", pid, world.unprivileged ? " --user --preserve-credentials" : "",
        SHELL_FILE, shell_word(own_program().parent_path()), surroundings.ports(), STATUS_FILE, CONSOLE_FILE,
        name(DAEMON_OUTPUT_FILE), name(DAEMON_ERROR_FILE));
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

int run_command(std::vector<std::string> command, const surroundings_t &surroundings)
{
    return start({.argv = std::move(command),
                  .environment = environment(surroundings, std::to_string(getpid())),
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

    write_shell_file(surroundings, options.settings.number);
    if (options.shell)
        return run_command({"bash", "--rcfile", SHELL_FILE, "-i"}, surroundings);
    if (!options.command.empty())
        return run_command({"sh", "-c", options.command}, surroundings);
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
    app.add_flag("--rapid", options.settings.rapid, "Ask the daemon to be rapid, as lvt_rstpd --rapid");
    app.add_option("--run", options.command, "Run a command inside the switch, then end with its exit status")
        ->type_name("COMMAND");
    app.add_flag("--shell", options.shell, "Be a shell in the switch, with the tools in its paths, then end")
        ->excludes("--run");
    app.add_option("--number", options.settings.number,
                   "A part of the switch's MAC addresses, 1 to 255, usually 1; switches that meet need "
                   "different ones")
        ->type_name("N")
        ->check(CLI::Range(1, 255).description(""));
    app.add_option("--daemon", options.settings.daemon, "Daemon to run instead of the one beside this program");
    app.add_option("--board", options.settings.board, "Board to run instead of the one beside this program");
    app.set_version_flag("--version", PROGRAM_VERSION, "Print the version and exit");
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
        return app.exit(error) == 0 ? EXIT_SUCCESS : EXIT_NOT_UNDERSTOOD;
    } catch (const cannot_run_t &reason) {
        fmt::print(stderr, "{}", reason.what());
        return EXIT_UNTOLD;
    } catch (const std::invalid_argument &fault) {
        fmt::print(stderr, "lvt_switch: {}\n", fault.what());
        return EXIT_NOT_UNDERSTOOD;
    } catch (const std::exception &reason) {
        fmt::print(stderr, "lvt_switch: {}\n", reason.what());
        return EXIT_FAILURE;
    }
}
