#include "board/lab/switch_node.h"

#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <stdexcept>

#include <fcntl.h>
#include <fmt/format.h>
#include <unistd.h>

#include "board/board_socket.h"
#include "board/lab/within.h"
#include "board/lab/world.h"
#include "platform/messages.h"
#include "tools/pipe.h"

namespace lab {

namespace {

constexpr int CPU_PORT_MAC = 0xFE; ///< the chip's end of the CPU cable; no frame carries it
constexpr char LAST_OF_BANNER[] = "RSTP Initial Complete   *\n*****************************\n";
constexpr auto START_PATIENCE = 10s; ///< a sanitized daemon under load takes its time

/// What to say of a program that was not ready in time, or not alive.
std::string complaint(const char *name, process_t &process)
{
    if (process.running())
        return fmt::format("the {} was not ready in time", name);
    return fmt::format("the {} ended with status {} instead of getting ready", name, *process.exit_code());
}

bool is_ready(const switch_t &board)
{
    try {
        board.client();
        return true;
    } catch (const board_error_t &) {
        return false;
    }
}

switch_settings_t completed(switch_settings_t settings)
{
    if (settings.board.empty())
        settings.board = program("LVT_BOARD", "lvt_board");
    if (settings.daemon.empty())
        settings.daemon = program("LVT_RSTPD", settings.trace ? "lvt_rstpd_traced" : "lvt_rstpd");
    settings.board = where(settings.board);
    settings.daemon = where(settings.daemon);
    require_program(settings.board);
    require_program(settings.daemon);
    return settings;
}

} // namespace

std::string where(const std::string &program) { return std::filesystem::weakly_canonical(program); }

void require_program(const std::filesystem::path &path)
{
    if (access(path.c_str(), X_OK) == 0)
        return;
    const std::filesystem::path build = path.parent_path().parent_path();
    throw cannot_run_t({{fmt::format("the program {}", path.string()),
                         std::filesystem::exists(build / "CMakeCache.txt")
                             ? fmt::format("cmake --build \"{}\" --target {}", build.string(), path.filename().string())
                             : "it belongs beside the other programs of the same version"}});
}

switch_t::switch_t(switch_settings_t settings)
    : settings_(completed(std::move(settings))),
      node_(settings_.name, settings_.number,
            {settings_.board, settings_.daemon, where(program("LVT_RSTPCTL", "lvt_rstpctl"))})
{
    node_.ip(
        fmt::format("link add name eth0 address {} type veth peer name cpu0 address {}\n"
                    "link set eth0 addrgenmode none\n"
                    "link set cpu0 addrgenmode none\n"
                    "link set eth0 up\n"
                    "link set cpu0 up",
                    node_.mac(), node_.mac(CPU_PORT_MAC)));
}

cable_end_t switch_t::port(int number) const { return {&node_, fmt::format("port{}", number), node_.mac(number)}; }

process_t switch_t::launch(std::vector<std::string> argv, std::vector<std::string> environment, const char *output,
                           const char *error, std::vector<int> keep_open) const
{
    const auto create = [this](const char *path) {
        const int flags = O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC;
        return fd_t(checked(open(node_.path(path).c_str(), flags, 0644), path));
    };
    const fd_t out = create(output);
    const fd_t err = create(error);
    return node_.start({.argv = std::move(argv),
                        .environment = std::move(environment),
                        .out = out.number(),
                        .err = err.number(),
                        .keep_open = std::move(keep_open)});
}

void switch_t::start_board()
{
    const int log = settings_.board_log;
    board_ = launch({settings_.board, "run", "--log", log < 0 ? BOARD_LOG_FILE : fmt::format("/proc/self/fd/{}", log)},
                    {}, BOARD_OUTPUT_FILE, BOARD_OUTPUT_FILE, log < 0 ? std::vector<int>() : std::vector{log});
    const bool ready = within(START_PATIENCE, [&] { return is_ready(*this) || !board_.running(); });
    if (!ready || !board_.running())
        throw std::runtime_error(fmt::format("{}: {}\n{}", node_.name(), complaint("board", board_), story()));
}

void switch_t::start_daemon()
{
    std::vector<std::string> argv = settings_.daemon_wrapper;
    argv.push_back(settings_.daemon);
    if (settings_.rapid)
        argv.push_back("--rapid");
    argv.insert(argv.end(), settings_.daemon_options.begin(), settings_.daemon_options.end());
    std::vector<std::string> environment = settings_.daemon_environment;
    environment.push_back(fmt::format("LVT_CONSOLE={}", CONSOLE_FILE));

    std::filesystem::remove(node_.path(CONSOLE_FILE));
    daemon_ = launch(std::move(argv), std::move(environment), DAEMON_OUTPUT_FILE, DAEMON_ERROR_FILE);
    const bool ready = within(START_PATIENCE, [&] {
        return node_.read(CONSOLE_FILE).find(LAST_OF_BANNER) != std::string::npos || !daemon_.running();
    });
    if (!ready || !daemon_.running())
        throw std::runtime_error(fmt::format("{}: {}\n{}", node_.name(), complaint("daemon", daemon_), story()));
}

void switch_t::start()
{
    start_board();
    start_daemon();
}

board_client_t switch_t::client() const { return board_client_t(node_.path(BOARD_SOCKET)); }

void switch_t::send(std::span<const uint8_t> message) const
{
    const pipe_result_t result = write_to_pipe(node_.path(RSTP_IF_PIPE), message);
    if (!result.ok())
        throw std::runtime_error(fmt::format("{}: {}", node_.name(), result.message));
}

void switch_t::group(const aggr_status_t &groups) const
{
    board_client_t board = client();
    for (unsigned group = RSTP_PHYSICAL_PORTS + 1; group <= RSTP_PORTS; group++) {
        std::vector<unsigned> members;
        for (unsigned port = 1; port <= RSTP_PHYSICAL_PORTS; port++)
            if (groups.at(port) == group)
                members.push_back(port);
        board.set_trunk(group, members);
    }
    send(aggr_status_message(groups));
}

std::optional<bridge_status_t> switch_t::status() const { return parse_status(node_.read(STATUS_FILE)); }

std::string switch_t::story() const
{
    std::string text;
    for (const char *file :
         {BOARD_OUTPUT_FILE, BOARD_LOG_FILE, CONSOLE_FILE, DAEMON_OUTPUT_FILE, DAEMON_ERROR_FILE, STATUS_FILE}) {
        if (const std::string content = node_.read(file); !content.empty())
            text += fmt::format("--- {}:{}\n{}\n", node_.name(), file, content);
    }
    return text;
}

} // namespace lab
