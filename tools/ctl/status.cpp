#include "tools/ctl/status.h"

#include <cerrno>
#include <cstring>
#include <ctime>
#include <thread>

#include <fmt/chrono.h>
#include <fmt/format.h>
#include <sys/stat.h>

#include "platform/messages.h"
#include "tools/ctl/text_file.h"
#include "tools/messages.h"
#include "tools/words.h"

namespace {

using std::chrono::duration_cast;
using std::chrono::seconds;
using std::chrono::system_clock;
using namespace std::chrono_literals;

constexpr size_t STATUS_OCTETS_MAX = 1 << 16;

std::string path_of(const ctl_t &ctl) { return ctl.root + RSTP_MONITOR_FILE; }

[[noreturn]] void refuse(int error, const ctl_t &ctl)
{
    const std::string path = path_of(ctl);
    if (error == ENOENT || error == ENOTDIR)
        throw untold_t(fmt::format("no status file at {}: is the daemon running? It writes the file every second.{}",
                                   path, root_hint(ctl)));
    throw untold_t(fmt::format("cannot read {}: {}", path, std::strerror(error)));
}

system_clock::time_point time_of(const timespec &time)
{
    return system_clock::time_point(seconds(time.tv_sec) + std::chrono::microseconds(time.tv_nsec / 1000));
}

system_clock::time_point written_at(const ctl_t &ctl)
{
    struct stat file = {};
    if (stat(path_of(ctl).c_str(), &file) != 0)
        refuse(errno, ctl);
    return time_of(file.st_mtim);
}

void demand_fresh(const ctl_t &ctl, system_clock::time_point written)
{
    const auto age = system_clock::now() - written;
    if (age < -STATUS_STALE_AFTER)
        throw untold_t(
            fmt::format("{} is dated {} s ahead: the clock was set back, and the daemon, which "
                        "writes it every second, has not written it since. Look at what it printed "
                        "last, and start it again.",
                        path_of(ctl), duration_cast<seconds>(-age).count()));
    if (age > STATUS_STALE_AFTER)
        throw untold_t(
            fmt::format("{} is {} s old: the daemon writes it every second, so it has ended or hangs. "
                        "Look at what it printed last, and start it again.",
                        path_of(ctl), duration_cast<seconds>(age).count()));
}

std::string content_of(const ctl_t &ctl)
{
    try {
        if (const auto text = read_text_file(path_of(ctl), STATUS_OCTETS_MAX))
            return *text;
    } catch (const refused_t &refusal) {
        throw untold_t(refusal.what());
    }
    refuse(errno, ctl);
}

} // namespace

reading_t read_status(const ctl_t &ctl)
{
    // The time comes first: should a new file come between, the next look sees it once more.
    const system_clock::time_point written = written_at(ctl);
    demand_fresh(ctl, written);

    std::string fault;
    const auto status = parse_status(content_of(ctl), &fault);
    if (!status)
        throw untold_t(
            fmt::format("{} is no status file of this daemon: {}. Does another program write there? "
                        "The daemon puts a sound one in its place within a second.",
                        path_of(ctl), fault));
    return {*status, written};
}

std::optional<reading_t> try_status(const ctl_t &ctl)
{
    try {
        return read_status(ctl);
    } catch (const refused_t &) {
        return {};
    }
}

std::optional<reading_t> next_status(const ctl_t &ctl, const reading_t &last,
                                     std::chrono::steady_clock::time_point deadline)
{
    for (;;) {
        const system_clock::time_point written = written_at(ctl);
        if (written != last.written)
            return read_status(ctl);
        demand_fresh(ctl, written);
        if (std::chrono::steady_clock::now() >= deadline)
            return {};
        std::this_thread::sleep_for(STATUS_POLL_PAUSE);
    }
}

reading_t next_status(const ctl_t &ctl, const reading_t &last)
{
    return *next_status(ctl, last, std::chrono::steady_clock::time_point::max());
}

bool is_shown(const bridge_status_t &status, int port)
{
    return port <= static_cast<int>(FRONT_PORTS) || !members_text(status, port).empty();
}

std::string members_text(const bridge_status_t &status, int group)
{
    std::string text;
    for (int port = 1; port <= static_cast<int>(FRONT_PORTS); port++)
        if (status.port(port).group == group)
            text += fmt::format("{}{}", text.empty() ? "" : ", ", port);
    return text;
}

std::string role_name(const port_status_t &port) { return port.group ? "member" : role_word(port.role); }

int state_of(const bridge_status_t &status, int port)
{
    const int group = status.port(port).group;
    return status.port(group ? group : port).state;
}

std::string state_name(const bridge_status_t &status, int port) { return state_word(state_of(status, port)); }

std::string neighbour_name(const port_status_t &port)
{
    const bool outside = port.group || port.role == ROLE_DISABLED || port.role == ROLE_NON_STP;
    if (outside || port.edge)
        return "none";
    if (port.received.all() == 0)
        return "none";
    return port.stp_neighbour ? "STP" : "RSTP";
}

std::optional<int> looped_to(const port_status_t &port)
{
    return !port.group && port.role == ROLE_BACKUP ? std::optional(port.designated_port) : std::nullopt;
}

std::optional<uint32_t> root_path_cost(const bridge_status_t &status)
{
    if (status.is_root())
        return 0;
    const port_status_t &port = status.port(status.root_port);
    return same_bridge(port.designated_bridge, status.root) ? std::optional(port.path_cost) : std::nullopt;
}

std::optional<system_clock::time_point> daemon_time(const std::string &text)
{
    tm local = {};
    if (!strptime(text.c_str(), "%Y/%m/%d %H:%M:%S", &local))
        return {};
    local.tm_isdst = -1;
    return system_clock::from_time_t(mktime(&local));
}

std::string time_text(system_clock::time_point time)
{
    const time_t seconds = system_clock::to_time_t(time);
    tm local = {};
    localtime_r(&seconds, &local); // of every time that the clock can tell
    return fmt::format("{:%Y-%m-%d %H:%M:%S}", local);
}

std::string time_text_of_micros(system_clock::time_point time)
{
    const auto micros = std::chrono::floor<std::chrono::microseconds>(time.time_since_epoch()).count() % 1'000'000;
    return fmt::format("{}.{:06}", time_text(time), micros);
}
