#include "tools/ctl/history.h"

#include <algorithm>

#include <fmt/format.h>
#include <fmt/ranges.h>

#include "tools/ctl/changes.h"

namespace {

constexpr int HELLOS_MISSED_MAX = 3; ///< for so many hello times information stays valid

bool has_neighbour(const port_status_t &port) { return neighbour_name(port) != "none"; }

bool is_silent(const reading_t &reading, const history_t &history, int port)
{
    return has_neighbour(reading.status.port(port)) &&
           history.silence_of(port) >= std::chrono::seconds(HELLOS_MISSED_MAX * reading.status.hello_time);
}

std::vector<int> ports_with(const bridge_status_t &status, const auto &is_so)
{
    std::vector<int> ports;
    for (int port = 1; port <= static_cast<int>(RSTP_PORTS); port++)
        if (is_shown(status, port) && is_so(port))
            ports.push_back(port);
    return ports;
}

/// Nobody is heard at all.
std::string likely_cause(const bridge_status_t &status)
{
    const auto off = ports_with(status, [&](int port) { return role_name(status.port(port)) == "off"; });
    if (off.empty())
        return "do frames reach the CPU port at all?";
    return fmt::format("port {} is off, which may have taken back the trap of BPDUs:\n  lvt_rstpctl apply arms it.",
                       fmt::join(off, ", "));
}

} // namespace

history_t::history_t(const reading_t &first) : last_(first) { heard_.fill(first.written); }

void history_t::take(reading_t &next)
{
    bridge_status_t &now = next.status;
    const bridge_status_t &before = last_.status;
    if (before.has_changed() && now.has_changed() && before.changed_by == now.changed_by &&
        !topology_changes_between(before, now))
        now.changed_at = before.changed_at;
    for (size_t i = 0; i < RSTP_PORTS; i++)
        if (now.ports[i].received.all() != before.ports[i].received.all())
            heard_[i] = next.written;
    last_ = next;
}

std::chrono::seconds history_t::silence_of(int port) const
{
    return std::chrono::floor<std::chrono::seconds>(last_.written - heard_.at(static_cast<size_t>(port) - 1));
}

bool is_deaf(const reading_t &reading, const history_t &history, int port)
{
    const int role = reading.status.port(port).role;
    return role != ROLE_DESIGNATED && is_silent(reading, history, port);
}

std::vector<std::string> silence_notes(const reading_t &reading, const history_t &history)
{
    const bridge_status_t &status = reading.status;
    const auto neighbours = ports_with(status, [&](int port) { return has_neighbour(status.port(port)); });
    const auto deaf = ports_with(status, [&](int port) { return is_deaf(reading, history, port); });
    const bool all_silent = !neighbours.empty() && std::ranges::all_of(neighbours, [&](int port) {
        return is_silent(reading, history, port);
    });

    std::vector<std::string> notes;
    if (!deaf.empty())
        notes.push_back(fmt::format(
            "port {} is deaf, no BPDU for {} s: {}", fmt::join(deaf, ", "), history.silence_of(deaf.front()).count(),
            all_silent ? likely_cause(status) : "does its cable carry one way only, or its neighbour hang?"));
    else if (all_silent)
        notes.push_back(fmt::format(
            "nobody is heard, no BPDU for {} s on port {}: as it should be if the other\n"
            "  ends are root ports or alternates. Else this bridge is deaf:\n  {}",
            history.silence_of(neighbours.front()).count(), fmt::join(neighbours, ", "), likely_cause(status)));
    return notes;
}
