#include "tools/ctl/changes.h"

#include <cstdint>

#include <fmt/format.h>

#include "tools/ctl/status.h"

namespace {

std::string root_port_text(const bridge_status_t &status)
{
    return status.is_root() ? "none" : fmt::to_string(status.root_port);
}

} // namespace

int topology_changes_between(const bridge_status_t &before, const bridge_status_t &now)
{
    if (now.topology_change)
        return !before.topology_change;

    // The count of passes starts anew with every change; else it goes on, round after 65535. No
    // second has anywhere near as many passes.
    constexpr uint16_t passes_of_a_second_max = 5000;
    const bool restarted = static_cast<uint16_t>(now.since_change - before.since_change) > passes_of_a_second_max;
    return restarted && !before.topology_change;
}

std::vector<change_t> changes_between(const bridge_status_t &before, const bridge_status_t &now)
{
    std::vector<change_t> changes;
    const auto compare = [&](const char *what, int port, const std::string &from, const std::string &to) {
        if (from != to)
            changes.push_back({what, port, from, to});
    };

    compare("root", 0, bridge_id_text(before.root), bridge_id_text(now.root));
    compare("root port", 0, root_port_text(before), root_port_text(now));
    if (before.topology_change && !now.topology_change)
        changes.push_back({"topology change", 0, "running", "over"});
    else if (topology_changes_between(before, now))
        changes.push_back({"topology change", 0, "none", now.topology_change ? "running" : "over"});

    for (int port = 1; port <= static_cast<int>(RSTP_PORTS); port++) {
        compare("role", port, role_name(before.port(port)), role_name(now.port(port)));
        compare("state", port, state_name(before, port), state_name(now, port));
    }
    return changes;
}

std::string change_text(const change_t &change)
{
    const std::string subject = change.port ? fmt::format("port {} {}", change.port, change.what) : change.what;
    return fmt::format("{} {} -> {}", subject, change.from, change.to);
}
