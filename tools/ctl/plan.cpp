#include "tools/ctl/plan.h"

#include <cstring>

#include <fmt/format.h>

namespace {

using before_t = std::optional<settings_t>;
using now_t = std::optional<bridge_status_t>;

/// As the daemon compares.
bool same_config(const lvt_rstp_port_config_t &a, const lvt_rstp_port_config_t &b)
{
    return std::memcmp(&a, &b, sizeof a) == 0;
}

int as_int(size_t port) { return static_cast<int>(port); }

// ---- groups ----------------------------------------------------------------------------

/// The group of each port as the daemon has it, as a type 2 message would tell it.
aggr_status_t groups_of(const bridge_status_t &status)
{
    aggr_status_t groups = AGGR_STATUS_ALONE;
    for (size_t port = 1; port <= FRONT_PORTS; port++)
        if (const int group = status.port(as_int(port)).group)
            groups[port] = static_cast<uint8_t>(group);
    return groups;
}

/// Who has to stand alone before the groups are formed: all that are not where they stay.
aggr_status_t groups_between(const now_t &now, const aggr_status_t &wanted)
{
    aggr_status_t groups = AGGR_STATUS_ALONE;
    const aggr_status_t present = now ? groups_of(*now) : AGGR_STATUS_ALONE;
    for (size_t port = 1; port <= FRONT_PORTS; port++)
        if (now && present[port] == wanted[port])
            groups[port] = wanted[port];
    return groups;
}

bool groups_need_settings(const settings_t &settings, const before_t &before, const now_t &now)
{
    if (!before || !same_config(before->ports[0], settings.ports[0]) || !now)
        return true;
    const aggr_status_t present = groups_of(*now);
    return present == AGGR_STATUS_ALONE || (settings.groups_stated && present != settings.groups);
}

// ---- the trap of spanning tree frames --------------------------------------------------

bool is_on(const settings_t &settings, size_t port) { return settings.ports[port].adminEnable; }

/// The daemon may find the record of this port, which is to be off, changed. What it has of a port
/// that is off it does not report, but a port that was never set has the default.
bool may_disarm(const settings_t &settings, const before_t &before, const now_t &now, size_t port)
{
    const lvt_rstp_port_config_t &config = settings.ports[port];
    const bool stays = before && same_config(config, before->ports[port]) &&
                       same_config(config, LVT_RSTP_PORT_DEFAULTS) && now &&
                       now->port(as_int(port)).role == ROLE_NON_STP;
    return !is_on(settings, port) && !stays;
}

/// How little it hurts to send a port its settings again, which restarts migration and makes its
/// edge status what it is set to: not at all without link, hardly where the port does not lead away
/// from the root.
int patience(const settings_t &settings, const now_t &now, size_t port)
{
    if (!now)
        return 0;
    const port_status_t &status = now->port(as_int(port));
    if (status.role == ROLE_DISABLED)
        return 3;
    if (status.role != ROLE_DESIGNATED)
        return 2;
    return status.edge == (settings.ports[port].adminEdge != 0);
}

/// The port to send twice so that the trap is armed in the end; 0 when there is no need.
size_t port_to_arm(const settings_t &settings, const before_t &before, const now_t &now)
{
    size_t chosen = 0;
    bool endangered = false;
    for (size_t port = 1; port <= FRONT_PORTS; port++) {
        endangered = endangered || may_disarm(settings, before, now, port);
        if (is_on(settings, port) && (!chosen || patience(settings, now, port) > patience(settings, now, chosen)))
            chosen = port;
    }
    return endangered ? chosen : 0;
}

void add_ports(std::vector<plan_step_t> &plan, const settings_t &settings, const before_t &before, const now_t &now,
               bool groups_wait)
{
    if (const size_t port = port_to_arm(settings, before, now)) {
        port_configs_t marked = settings.ports;
        marked[port].reserved[0] = 1;
        plan.push_back({port_config_only_message(marked),
                        fmt::format("the ports, with a mark on port {}, which is taken back next: the last port that "
                                    "changes is then one that is on, and BPDUs stay trapped",
                                    port)});
    }
    if (groups_wait)
        plan.push_back({port_config_only_message(settings.ports), "the ports; groups wait for what follows"});
    else
        plan.push_back({port_config_message(settings.ports), "the ports"});
}

} // namespace

std::vector<plan_step_t> plan_of_ports(const port_configs_t &ports, const now_t &now, bool groups_wait)
{
    settings_t settings;
    settings.ports = ports;
    std::vector<plan_step_t> plan;
    add_ports(plan, settings, {}, now, groups_wait);
    return plan;
}

std::vector<plan_step_t> plan_of(const settings_t &settings, const before_t &before, const now_t &now)
{
    std::vector<plan_step_t> plan = {
        {lacp_enable_message(settings.lacp), "where LACP runs, before a port's state changes"},
        {system_config_message(settings.bridge), "the bridge, before its ports speak"},
    };

    const bool form = settings.groups_stated && !(now && groups_of(*now) == settings.groups);
    const aggr_status_t between = groups_between(now, settings.groups);
    if (form && (!now || between != groups_of(*now)))
        plan.push_back({aggr_status_message(between), "ports that leave their group stand alone first"});

    const bool configure = groups_need_settings(settings, before, now);
    add_ports(plan, settings, before, now, configure || form);
    if (configure)
        plan.push_back({aggr_config_message(settings.ports[0]), "what all groups have in common"});
    if (form)
        plan.push_back({aggr_status_message(settings.groups), "the groups, formed of members that are ready"});
    return plan;
}
