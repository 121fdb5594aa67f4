#include "tools/ctl/history.h"

#include <algorithm>

#include <fmt/format.h>
#include <fmt/ranges.h>
#include <nlohmann/json.hpp>
#include <sys/stat.h>
#include <unistd.h>

#include "platform/messages.h"
#include "tools/ctl/changes.h"
#include "tools/ctl/config_edit.h"
#include "tools/ctl/memory.h"

namespace {

using json_t = nlohmann::ordered_json;
using std::chrono::microseconds;
using std::chrono::system_clock;
using namespace std::chrono_literals;

constexpr char SEEN[] = "seen.json";
constexpr int HELLOS_MISSED_MAX = 3; ///< for so many hello times information stays valid
constexpr auto PASSES_ROUNDING = 2s; ///< between two estimates of one time

int64_t micros_of(system_clock::time_point time)
{
    return std::chrono::duration_cast<microseconds>(time.time_since_epoch()).count();
}

system_clock::time_point time_of_micros(const json_t &micros)
{
    return system_clock::time_point(microseconds(micros.get<int64_t>()));
}

bool listens(int role) { return role == ROLE_ROOT || role == ROLE_ALTERNATE || role == ROLE_BACKUP; }

bool has_neighbour(const port_status_t &port) { return neighbour_name(port) != "none"; }

bool is_silent(const reading_t &reading, const history_t &history, int port)
{
    return reading.status.port(port).received.all() > 0 &&
           history.silence_of(port) >= std::chrono::seconds(HELLOS_MISSED_MAX * reading.status.hello_time);
}

/// It speaks for its link now, though it last listened there, and no BPDU came since.
bool took_over_in_silence(const reading_t &reading, const history_t &history, int port)
{
    const port_status_t &status = reading.status.port(port);
    return !status.group && status.role == ROLE_DESIGNATED && listens(history.role_when_heard(port)) &&
           is_silent(reading, history, port);
}

std::vector<int> ports_with(const bridge_status_t &status, const auto &is_so)
{
    std::vector<int> ports;
    for (int port = 1; port <= static_cast<int>(RSTP_PORTS); port++)
        if (is_shown(status, port) && is_so(port))
            ports.push_back(port);
    return ports;
}

std::string likely_cause(const bridge_status_t &status, bool nobody_is_heard)
{
    if (!nobody_is_heard)
        return "does its cable carry one way only, does its neighbour hang, or is there none any more?";
    const auto off = ports_with(status, [&](int port) { return role_name(status.port(port)) == "off"; });
    if (off.empty())
        return "do frames reach the CPU port at all?";
    return fmt::format("port {} is off, which may have taken back the trap of BPDUs:\n  lvt_rstpctl apply arms it.",
                       fmt::join(off, ", "));
}

} // namespace

// ---- what was seen -----------------------------------------------------------------------

history_t::history_t(const ctl_t &ctl, reading_t &first)
{
    begin_with(first);
    const std::optional<history_t> earlier = find(ctl);
    if (!earlier || !earlier->is_before(first))
        return;
    *this = *earlier;
    watched_since_ = first.written;
    take(first);
}

void history_t::begin_with(const reading_t &reading)
{
    written_ = watched_since_ = reading.written;
    last_ = reading.status;
    for (size_t i = 0; i < RSTP_PORTS; i++) {
        const port_status_t &port = reading.status.ports[i];
        ports_[i] = {port.received.all(), port.sent.all(), reading.written, port.role};
    }
}

/// Another daemon's counters begin anew.
bool history_t::is_before(const reading_t &reading) const
{
    if (written_ > reading.written)
        return false;
    for (size_t i = 0; i < RSTP_PORTS; i++) {
        const port_status_t &port = reading.status.ports[i];
        if (port.received.all() < ports_[i].received || port.sent.all() < ports_[i].sent)
            return false;
    }
    return true;
}

void history_t::take(reading_t &next)
{
    bridge_status_t &now = next.status;
    if (last_.has_changed() && now.has_changed() && last_.changed_by == now.changed_by) {
        const auto before = daemon_time(last_.changed_at), after = daemon_time(now.changed_at);
        if (!topology_changes_between(last_, now) || (before && after && *after - *before <= PASSES_ROUNDING))
            now.changed_at = last_.changed_at;
    }
    for (size_t i = 0; i < RSTP_PORTS; i++) {
        const port_status_t &port = now.ports[i];
        const bool hears = port.received.all() != ports_[i].received;
        if (hears)
            ports_[i].heard = next.written;
        if (hears || port.role == ROLE_DISABLED || port.role == ROLE_NON_STP || port.group)
            ports_[i].role = port.role;
        ports_[i].received = port.received.all();
        ports_[i].sent = port.sent.all();
    }
    if (next.written - written_ > STATUS_STALE_AFTER)
        watched_since_ = next.written;
    last_ = now;
    written_ = next.written;
}

std::chrono::seconds history_t::silence_of(int port) const
{
    return std::chrono::floor<std::chrono::seconds>(written_ - ports_.at(static_cast<size_t>(port) - 1).heard);
}

// ---- what is kept ------------------------------------------------------------------------

std::string history_t::text() const
{
    json_t ports = json_t::array();
    for (const port_t &port : ports_)
        ports.push_back({port.received, port.sent, micros_of(port.heard), port.role});
    return json_t({{"written", micros_of(written_)},
                   {"running", last_.topology_change},
                   {"changed_at", last_.changed_at},
                   {"changed_by", last_.changed_by},
                   {"since_change", last_.since_change},
                   {"ports", ports}})
               .dump() +
           "\n";
}

std::optional<history_t> history_t::find(const ctl_t &ctl)
{
    try {
        const auto text = find_runtime_text(ctl, SEEN);
        if (!text)
            return {};
        const json_t seen = json_t::parse(*text);
        history_t history;
        history.written_ = time_of_micros(seen.at("written"));
        history.last_ = {};
        history.last_.topology_change = seen.at("running");
        history.last_.changed_at = seen.at("changed_at");
        history.last_.changed_by = seen.at("changed_by");
        history.last_.since_change = seen.at("since_change");
        for (size_t i = 0; i < RSTP_PORTS; i++) {
            const json_t &port = seen.at("ports").at(i);
            history.ports_[i] = {port.at(0), port.at(1), time_of_micros(port.at(2)), port.at(3)};
        }
        return history;
    } catch (const json_t::exception &) { // of an older version, say
    } catch (const refused_t &) {
    }
    return {};
}

void history_t::keep(const ctl_t &ctl) const
{
    struct stat report = {};
    if (stat((ctl.root + RSTP_MONITOR_FILE).c_str(), &report) != 0 || report.st_uid != geteuid())
        return; // whoever else looks must not make the folder in the place of those who rule the daemon
    try {
        make_runtime_folder(ctl);
        save_config(runtime_file(ctl, SEEN), text());
    } catch (const refused_t &) {
    }
}

// ---- what follows ------------------------------------------------------------------------

bool is_deaf(const reading_t &reading, const history_t &history, int port)
{
    const port_status_t &status = reading.status.port(port);
    if (status.group)
        return false;
    if (listens(status.role))
        return is_silent(reading, history, port);
    return !status.stp_neighbour && status.point_to_point && history.is_watched(port) &&
           took_over_in_silence(reading, history, port);
}

std::vector<note_t> silence_notes(const reading_t &reading, const history_t &history)
{
    const bridge_status_t &status = reading.status;
    const auto neighbours = ports_with(status, [&](int port) { return has_neighbour(status.port(port)); });
    const auto deaf = ports_with(status, [&](int port) { return is_deaf(reading, history, port); });
    const auto doubtful = ports_with(status, [&](int port) { return took_over_in_silence(reading, history, port); });
    const bool nobody = std::ranges::all_of(neighbours, [&](int port) { return is_silent(reading, history, port); });

    if (!deaf.empty())
        return {{fmt::format("port {} is deaf, no BPDU for {} s: {}", fmt::join(deaf, ", "),
                             history.silence_of(deaf.front()).count(), likely_cause(status, nobody)),
                 true}};
    if (!doubtful.empty())
        return {{fmt::format("port {} heard its last BPDU {} s ago, when it was no designated port. Either the other\n"
                             "  end follows this bridge now, or is another, or the port is deaf:\n  {}",
                             fmt::join(doubtful, ", "), history.silence_of(doubtful.front()).count(),
                             likely_cause(status, nobody)),
                 false}};
    if (nobody && !neighbours.empty())
        return {{fmt::format("nobody is heard, no BPDU for {} s on port {}: as it should be if the other\n"
                             "  ends are root ports or alternates. Else this bridge is deaf:\n  {}",
                             history.silence_of(neighbours.front()).count(), fmt::join(neighbours, ", "),
                             likely_cause(status, true)),
                 false}};
    return {};
}
