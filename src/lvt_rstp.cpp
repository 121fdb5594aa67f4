#include "lvt_rstp.h"

#include <cstring>

#include "l2_proto_utility/os_api.h"
#include "platform/messages.h"
#include "process/process.h"
#include "rstp/port.h"
#include "rstp/stp_in.h"
#include "rstp/stpm.h"
#include "shared_value.h"
#include "state.h"
#include "switch/sw_cfg.h"

LVT_STATE lvt_rstp_vars_t lvt_rstp_vars;
LVT_STATE stpm_t *current_stpm;
LVT_STATE port_t *current_port;

#ifdef LVT_RAPID
LVT_STATE bool lvt_rstp_rapid;
#endif
LVT_STATE uint8_t lacp_enable_port[RSTP_PHYSICAL_PORTS];
LVT_STATE uint8_t cached_stpstates[RSTP_PORTS + 1];
LVT_STATE uint8_t cached_fwdstates[RSTP_PORTS + 1];
LVT_PROCESS int port_mux_fd = -1;

namespace {

constexpr char SOURCE[] = "lvt_rstp";
constexpr char IS_POAG[] = "((poag) > 0 && (poag) <= (((6) * 1)) + ((3 * 1)+(0 )))";

constexpr uint16_t PRIORITY_BITS = 0xF000; ///< of a bridge priority; the rest is the VLAN part
constexpr uint16_t VLAN_BITS = 0x0FFF;

bool is_physical(uint32_t l2port) { return l2port_is_port(l2port); }

port_t *record_of(uint32_t l2port) { return &lvt_rstp_vars.ports[l2port - 1]; }

/// The record that stands for physical port 1 to 6.
port_t *&representative_of(uint32_t port) { return lvt_rstp_vars.representative[port - 1]; }

bool is_member(uint32_t port, const port_t *group) { return representative_of(port) == group; }

void lvt_rstp_vars_init()
{
    current_stpm = nullptr;
    current_port = nullptr;
    lvt_rstp_vars = {};
    lvt_rstp_vars.initialised = 1;
    lvt_rstp_vars.config = LVT_RSTP_SYSTEM_DEFAULTS;

    for (uint32_t l2port = 1; l2port <= RSTP_PORTS; l2port++) {
        port_t *port = record_of(l2port);
        port->port_number = l2port;
        port->config = LVT_RSTP_PORT_DEFAULTS;
        lvt_rstp_vars.by_l2port[l2port - 1] = port;
        if (is_physical(l2port)) {
            representative_of(l2port) = port;
            port->stpEnabled = 1;
        } else
            port->nonStp = 1;
    }
    STP_stpm_free(&lvt_rstp_vars.bridge);
}

void need_defaults()
{
    if (!lvt_rstp_vars.initialised)
        lvt_rstp_vars_init();
}

void set_system_config(stpm_t *bridge)
{
    STP_ASSERT(bridge, "this", SOURCE, 0, "set_system_config");
    const lvt_rstp_system_config_t &config = lvt_rstp_vars.config;

    bridge->BrId.prio =
        static_cast<uint16_t>((config.bridge_priority & PRIORITY_BITS) | (bridge->BrId.prio & VLAN_BITS));
    bridge->BrTimes.MaxAge = static_cast<uint8_t>(config.max_age);
    bridge->BrTimes.ForwardDelay = static_cast<uint8_t>(config.forward_delay);
    bridge->BrTimes.HelloTime = static_cast<uint8_t>(config.hello_time);
    STP_stpm_update_after_bridge_management(bridge);
}

/// Puts a record into another bridge, or (null) into none. False when it is there already.
bool lvt_rstp_port_move(port_t *port, stpm_t *bridge)
{
    if (port->owner == bridge)
        return false;
    if (port->owner)
        STP_port_delete(port);
    if (bridge)
        STP_port_create(bridge, port);
    return true;
}

void first_hw_state(uint32_t l2port)
{
    port_t *port = record_of(l2port);
    STP_ASSERT(port->port_number == l2port, "pp->port_number == pix", SOURCE, 0, "rstp_hw_init");

    const uint32_t link = static_cast<uint32_t>(lvt_aggr_get_linkstate(l2port));
    if (link)
        lvt_os_get_portmac(l2port, port->mac);
    lvt_hw_set_fwdstate(l2port, 1);
    const uint8_t code = !port->config.adminEnable ? HW_NO_STP : link ? HW_DISCARDING : HW_DISABLED;
    lvt_aggr_set_stpstate(l2port, code);
    lvt_rstp_port_link_apply(port, link);
}

} // namespace

// ---- answers to the engine --------------------------------------------------------------

#ifdef LVT_RAPID
bool STP_OUT_rapid() { return lvt_rstp_rapid; }
#endif
stpm_t **STP_OUT_bridges() { return &lvt_rstp_vars.bridges; }
stpm_t **STP_OUT_free_bridges() { return &lvt_rstp_vars.free_bridges; }
port_t *STP_OUT_port(uint32_t port_index) { return record_of(port_index); }
port_t *STP_OUT_sending_port(uint32_t port_index) { return lvt_rstp_vars.by_l2port[port_index - 1]; }
uint8_t STP_OUT_force_version() { return lvt_rstp_vars.config.force_version; }

int STP_OUT_tx_bpdu(uint32_t port_index, uint16_t /*vlan_id*/, const uint8_t *frame, uint16_t /*tag*/, size_t length)
{
    STP_ASSERT(l2port_is_poag(port_index), "((port_index) > 0 && (port_index) <= (((6) * 1)) + ((3 * 1)+(0 )))", SOURCE,
               1314, "STP_OUT_tx_bpdu");

    port_t *port = STP_OUT_sending_port(port_index);
    if (!port)
        return 0;
    switch (reinterpret_cast<const bpdu_t *>(frame)->type) {
    case BPDU_TYPE_CONFIG:
        port->stp_frame_xmits++;
        break;
    case BPDU_TYPE_RST:
        port->rstp_frame_xmits++;
        break;
    case BPDU_TYPE_TCN:
        port->tcn_frame_xmits++;
        break;
    }
    return rstp_rawSocketIfTx(frame, port->port_number, length);
}

int STP_OUT_flush_lt(uint32_t, uint16_t, int, int)
{
    lvt_flush_mac_table_per_switch();
    return 0;
}

int lvt_aggr_get_linkstate(uint32_t l2port)
{
    if (is_physical(l2port))
        return is_member(l2port, record_of(l2port)) ? lvt_os_get_linkstate(l2port) : 0;
    if (!l2port_is_poag(l2port))
        return 0;
    for (uint32_t member = 1; member <= RSTP_PHYSICAL_PORTS; member++)
        if (is_member(member, record_of(l2port)) && lvt_os_get_linkstate(member))
            return 1;
    return 0;
}

uint32_t lvt_aggr_get_linkspeed(uint32_t l2port)
{
    if (is_physical(l2port))
        return lvt_os_get_linkspeed(l2port);
    uint32_t speed = 0;
    if (l2port_is_poag(l2port))
        for (uint32_t member = 1; member <= RSTP_PHYSICAL_PORTS; member++)
            if (is_member(member, record_of(l2port)))
                speed += lvt_os_get_linkspeed(member);
    return speed;
}

int lvt_aggr_get_linkduplex(uint32_t l2port)
{
    if (is_physical(l2port))
        return lvt_os_get_linkduplex(l2port);
    if (l2port_is_poag(l2port))
        for (uint32_t member = 1; member <= RSTP_PHYSICAL_PORTS; member++)
            if (is_member(member, record_of(l2port)) && !lvt_os_get_linkduplex(member))
                return 0;
    return 1;
}

// ---- life -------------------------------------------------------------------------------

int lvt_rstp_init()
{
    port_mux_fd = process_open_pipe(PORT_MUX_IF_PIPE, PIPE_NEVER_WAITS);
    need_defaults();
    for (uint32_t port = 1; port <= RSTP_PHYSICAL_PORTS; port++)
        first_hw_state(port);

    stpm_t *bridge = STP_stpm_create(LVT_RSTP_DEFAULT_VLAN);
    STP_ASSERT(bridge, "this", SOURCE, 0, "rstp_hw_init");
    lvt_rstp_vars.default_vlan = bridge;
    for (port_t &port : lvt_rstp_vars.ports)
        STP_port_create(bridge, &port);
    set_system_config(bridge);
    return STP_stpm_enable(bridge, 1);
}

// ---- settings ---------------------------------------------------------------------------

int lvt_rstp_set_config(const lvt_rstp_system_config_t *config)
{
    need_defaults();
    if (memcmp(&lvt_rstp_vars.config, config, sizeof *config) == 0)
        return 0;
    lvt_rstp_vars.config = *config;
    for (stpm_t *bridge = lvt_rstp_vars.bridges; bridge; bridge = bridge->next)
        set_system_config(bridge);
    return 0;
}

void lvt_rstp_get_config(lvt_rstp_system_config_t *config)
{
    need_defaults();
    *config = lvt_rstp_vars.config;
}

void lvt_rstp_system_config_init(lvt_rstp_system_config_t *config) { *config = lvt_rstp_vars.config; }

int lvt_rstp_set_portconfig(uint32_t portno, const lvt_rstp_port_config_t *config)
{
    STP_ASSERT(portno <= RSTP_PHYSICAL_PORTS, "portno == 0 || ((portno) <= (((6) * 1)))", SOURCE, 0,
               "lvt_rstp_set_portconfig");
    need_defaults();
    lvt_rstp_run_pending();

    const uint32_t first = portno ? portno : RSTP_PHYSICAL_PORTS + 1;
    const uint32_t last = portno ? portno : RSTP_PORTS;
    for (uint32_t l2port = first; l2port <= last; l2port++) {
        port_t *port = record_of(l2port);
        if (memcmp(&port->config, config, sizeof *config) == 0)
            continue;
        lvt_rstp_run_pending();
        port->config = *config;
        STP_IN_set_port_cfg(port);
        if (port->nonStp) {
            port->role = ROLE_NON_STP;
            port->selectedRole = ROLE_NON_STP;
            lvt_aggr_set_stpstate(l2port, HW_NO_STP);
        }
    }
    return 0;
}

void lvt_rstp_get_portconfig(uint32_t portno, lvt_rstp_port_config_t *config)
{
    STP_ASSERT(portno <= RSTP_PHYSICAL_PORTS, "portno == 0 || ((portno) <= (((6) * 1)))", SOURCE, 0,
               "lvt_rstp_get_portconfig");
    need_defaults();
    *config = record_of(portno ? portno : RSTP_PHYSICAL_PORTS + 1)->config;
}

void lvt_rstp_port_config_init(uint32_t index, lvt_rstp_port_config_t *config)
{
    need_defaults();
    const lvt_rstp_port_config_t &stored = record_of(index + 1)->config;
    config->port_priority = stored.port_priority;
    config->adminEnable = stored.adminEnable;
    config->adminEdge = stored.adminEdge;
    config->adminPointToPoint = stored.adminPointToPoint;
}

void lvt_rstp_lacp_enable_set(const uint8_t *enable)
{
    for (uint32_t i = 0; i < RSTP_PHYSICAL_PORTS; i++)
        store_shared(lacp_enable_port[i], enable[i]);
}

uint8_t lvt_rstp_lacp_enable_port_check(uint32_t index)
{
    return index < RSTP_PHYSICAL_PORTS ? load_shared(lacp_enable_port[index]) : 0;
}

// ---- events -----------------------------------------------------------------------------

namespace {

/// True when the engine knows the link to be so already, or it is neither up nor down.
bool is_known_link(const port_t *port, uint32_t link) { return link > 1 || port->portEnabled == link; }

} // namespace

int lvt_rstp_receive(uint32_t from_port, const uint8_t *frame, uint32_t length)
{
    STP_ASSERT(from_port <= RSTP_PHYSICAL_PORTS, "((from_port) <= (((6) * 1)))", SOURCE, 1197, "lvt_rstp_receive");
    STP_ASSERT(frame != nullptr, "bpdu != ((void *)0)", SOURCE, 1198, "lvt_rstp_receive");
    if (from_port == 0)
        return -1;
    need_defaults();

    port_t *port = representative_of(from_port);
    if (!STP_bpdu_is_valid(frame, length))
        return static_cast<int>(++port->illegal_frame_recvs);

    lvt_rstp_run_pending();
    const auto *bpdu = reinterpret_cast<const bpdu_t *>(frame);
    return STP_IN_rx_bpdu(port, bpdu, bpdu_get16(bpdu->length) - static_cast<uint32_t>(BPDU_LLC_OCTETS));
}

void lvt_rstp_linkstate_changed(uint32_t portno, uint32_t link)
{
    STP_ASSERT(portno <= RSTP_PHYSICAL_PORTS, "((portno) <= (((6) * 1)))", SOURCE, 1112, "lvt_rstp_linkstate_changed");
    if (!lvt_rstp_vars.initialised)
        return;
    lvt_rstp_run_pending();
    if (portno == 0)
        return; // no port has this number
    if (link == 1)
        lvt_os_get_portmac(portno, record_of(portno)->mac);

    port_t *port = representative_of(portno);
    if (port != record_of(portno))
        link = static_cast<uint32_t>(lvt_aggr_get_linkstate(port->port_number));
    if (!is_known_link(port, link))
        lvt_rstp_port_link_apply(port, link);
    // No pass is begun here: the next event or tick evaluates the new link.
    if (STP_OUT_rapid())
        STP_stpm_update();
}

void lvt_rstp_port_link_apply(port_t *port, uint32_t link)
{
    const uint32_t number = port->port_number;

    if (link == 1) {
        STP_IN_changed_port_duplex(number);
        STP_IN_changed_port_speed(number, lvt_aggr_get_linkspeed(number));
        if (port->config.adminEnable)
            STP_OUT_flush_lt(number, 0, 0, 0);
    }
    STP_IN_enable_port(number, link == 1);
}

void lvt_rstp_tick()
{
    need_defaults();
    lvt_rstp_run_pending();
    lvt_rstp_vars.time++;

    for (port_t &port : lvt_rstp_vars.ports)
        STP_port_tick(&port);
    STP_stpm_update();
}

// ---- aggregated ports -------------------------------------------------------------------

void lvt_rstp_aggr_add(uint32_t aid, const uint8_t *members)
{
    STP_ASSERT(members != nullptr, "members != ((void *)0)", SOURCE, 930, "lvt_rstp_aggr_add");
    STP_ASSERT(aid > RSTP_PHYSICAL_PORTS, "((aid) > (((6) * 1)))", SOURCE, 931, "lvt_rstp_aggr_add");
    need_defaults();
    lvt_rstp_run_pending();

    port_t *group = record_of(aid);
    port_t *first = nullptr;
    bool all_edge = true;
    for (uint32_t number = 1; number <= RSTP_PHYSICAL_PORTS; number++) {
        port_t *port = record_of(number);
        if (members[number]) {
            representative_of(number) = group;
            lvt_rstp_port_link_apply(port, 0);
            port->stpEnabled = 0;
            STP_IN_set_port_cfg(port);
            if (!first)
                first = port;
            if (group->stpEnabled)
                lvt_aggr_set_stpstate(number, group->hw_state);
            all_edge = all_edge && port->operEdge;
        } else if (is_member(number, group))
            lvt_aggr_port_restore(port);
    }
    if (!first)
        return;

    lvt_rstp_vars.by_l2port[aid - 1] = first;
    lvt_rstp_port_move(group, first->owner);
    memcpy(group->mac, first->mac, sizeof group->mac);
    group->stpEnabled = 1;
    group->config.adminEdge = all_edge;
    STP_IN_set_port_cfg(group);

    if (!group->config.adminEnable) {
        lvt_aggr_force_state(group);
        return;
    }
    // The group comes up whatever its members' links are; the machines then ask for them.
    lvt_rstp_port_link_apply(group, 0);
    STP_stpm_update();
    lvt_rstp_port_link_apply(group, 1);
    STP_stpm_update();
}

void lvt_rstp_aggr_del(uint32_t aid)
{
    STP_ASSERT(l2port_is_poag(aid), "((aid) > 0 && (aid) <= (((6) * 1)) + ((3 * 1)+(0 )))", SOURCE, 1007,
               "lvt_rstp_aggr_del");
    need_defaults();
    if (!lvt_rstp_vars.by_l2port[aid - 1])
        return;
    lvt_rstp_run_pending();

    port_t *group = record_of(aid);
    lvt_rstp_vars.by_l2port[aid - 1] = nullptr;
    lvt_rstp_port_link_apply(group, 0);
    lvt_rstp_port_move(group, lvt_rstp_vars.default_vlan);
    group->stpEnabled = 0;
    STP_IN_set_port_cfg(group);
    for (uint32_t number = 1; number <= RSTP_PHYSICAL_PORTS; number++)
        if (is_member(number, group))
            lvt_aggr_port_restore(record_of(number));
}

void lvt_aggr_force_state(port_t *group)
{
    STP_ASSERT(l2port_is_poag(group->port_number),
               "((ppoag->port_number) > 0 && (ppoag->port_number) <= (((6) * 1)) + ((3 * 1)+(0 )))", SOURCE, 917,
               "lvt_aggr_force_state");
    group->hw_state = HW_NO_STP;
    for (uint32_t number = 1; number <= RSTP_PHYSICAL_PORTS; number++)
        if (is_member(number, group))
            lvt_port_hw_state_set(record_of(number), HW_NO_STP);
}

void lvt_aggr_port_restore(port_t *port)
{
    const uint32_t number = port->port_number;

    // The record's own note of the hardware state stays as it was.
    lvt_hw_set_stpstate(number, HW_DISCARDING);
    const bool edge = representative_of(number)->operEdge;
    representative_of(number) = port;
    port->stpEnabled = 1;
    STP_IN_set_port_cfg(port);
    port->operEdge = edge;

    if (port->config.adminEnable) {
        lvt_rstp_port_link_apply(port, static_cast<uint32_t>(lvt_os_get_linkstate(number)));
        return;
    }
    const uint8_t code = lvt_os_get_linkstate(number) ? HW_NO_STP : HW_DISABLED;
    STP_port_cfg(port);
    lvt_port_hw_state_set(port, code);
}

// ---- hardware state ---------------------------------------------------------------------
//
// The ladder that a state code goes down, each step called by the one above it:
//   lvt_aggr_set_stpstate         the engine's call: drops a code that the record has, else notes it there
//   lvt_port_hw_state_set         for each member of a group, and where a port is forced: notes, drops nothing
//   lvt_hw_set_stpstate           as it is with spanning tree on, else forwarding unless LACP rules; notes in the cache
//   lvt_hw_set_fwdstate           beside it, at start: forwarding on or off; drops what the cache has
//   stp_state_set                 the chip, then the port multiplexer; no filter, no memory
//   sw_cfg_stp_mstpState_set_api  one register; a refusal is told, and the notes above stay as they are

int stp_state_set(uint32_t l2port, uint8_t code)
{
    const int result = sw_cfg_stp_mstpState_set_api(l2port - 1, code);
    sent_msg_to_port_mux(PORT_MUX_IF_PIPE, l2port, code >= HW_FORWARDING);
    return result;
}

int sent_msg_to_port_mux(const char * /*pipe*/, uint32_t l2port, uint8_t forwarding)
{
    port_mux_msg_t message = {};
    memcpy(message.magic, PORT_MUX_MAGIC, sizeof message.magic);
    message.length = PORT_MUX_LENGTH;
    message.type = PORT_MUX_MSG_FORWARDING;
    message.l2port = static_cast<uint8_t>(l2port);
    message.forwarding = forwarding;
    return process_write_pipe(port_mux_fd, &message, sizeof message);
}

int lvt_hw_set_stpstate(uint32_t l2port, uint8_t code)
{
    STP_ASSERT(l2port_is_valid(l2port), "l2port_is_valid(port_no)", SOURCE, 2047, "lvt_hw_set_stpstate");

    if (record_of(l2port)->config.adminEnable) {
        cached_stpstates[l2port] = code;
        return cached_fwdstates[l2port] == 1 ? stp_state_set(l2port, code) : 1;
    }

    if (const uint8_t lacp = lvt_rstp_lacp_enable_port_check(l2port - 1))
        return lacp;
    stp_state_set(l2port, HW_FORWARDING);
    cached_stpstates[l2port] = HW_FORWARDING;
    return HW_FORWARDING;
}

void lvt_hw_set_fwdstate(uint32_t l2port, uint8_t enable)
{
    STP_ASSERT(l2port_is_valid(l2port), "l2port_is_valid(port_no)", SOURCE, 2061, "lvt_hw_set_fwdstate");

    uint8_t &forwarding = cached_fwdstates[l2port];
    if (enable > 1 || forwarding == enable)
        return;
    forwarding = enable;
    const uint8_t code = enable ? HW_FORWARDING : HW_DISCARDING;
    stp_state_set(l2port, code);
    cached_stpstates[l2port] = code;
}

int lvt_aggr_set_stpstate(uint32_t l2port, uint8_t code)
{
    port_t *port = record_of(l2port);
    if (port->hw_state == code)
        return is_physical(l2port);
    port->hw_state = code;
    if (is_physical(l2port))
        return lvt_hw_set_stpstate(l2port, code);

    int result = 0;
    for (uint32_t number = 1; number <= RSTP_PHYSICAL_PORTS; number++) {
        if (!is_member(number, port))
            continue;
        port_t *member = record_of(number);
        result = member->hw_state;
        if (member->hw_state != code)
            result = lvt_port_hw_state_set(member, code);
    }
    return result;
}

int lvt_port_hw_state_set(port_t *port, uint8_t code)
{
    port->hw_state = code;
    return lvt_hw_set_stpstate(port->port_number, code);
}

int lvt_flush_mac_table_per_switch() { return sw_cfg_l2_addr_delAll_api(); }

// ---- status -----------------------------------------------------------------------------

LVT_UNLOCKED_READ void lvt_rstp_read_bridge_status(lvt_rstp_bridge_status_t *status)
{
    *status = {};
    const stpm_t *bridge = lvt_rstp_vars.default_vlan;
    if (!bridge)
        return;

    status->admin_enabled = bridge->admin_state;
    status->vlan_id = bridge->vlan_id;
    status->bridge = bridge->BrId;
    status->designated_root = bridge->rootPrio.root_bridge;
    status->root_cost = bridge->rootPrio.root_path_cost;
    status->root_port = bridge->rootPortId;
    status->root_times = bridge->rootTimes;
    status->in_tc = bridge->topoChange;
    status->tc_count = bridge->tcCount;
    status->time_since_tc = bridge->timeSinceTc;
    status->secs_since_last_tc = lvt_rstp_vars.time - bridge->timeSinceTc;
    status->last_tc_port = bridge->lastTcPort;
    for (const port_t *port = bridge->ports; port; port = port->next)
        if (port->role != ROLE_DISABLED && !port->nonStp)
            status->num_active_ports++;
}

LVT_UNLOCKED_READ void lvt_rstp_read_port_status(uint32_t poag, lvt_rstp_port_status_t *status)
{
    STP_ASSERT(poag - 1 < RSTP_PORTS, IS_POAG, SOURCE, 0, "lvt_rstp_get_port_status");
    const port_t *port = &lvt_rstp_vars.ports[poag - 1];
    const stpm_t *bridge = port->owner;

    *status = {};
    status->vlan_id = bridge ? bridge->vlan_id : 0;
    status->designated_root = port->portPrio.root_bridge;
    status->designated_root_cost = port->portPrio.root_path_cost;
    status->designated_bridge = port->portPrio.design_bridge;
    status->designated_port = port->portPrio.design_port;
    status->role = port->role;
    if (status->role == ROLE_DISABLED || status->role == ROLE_NON_STP) {
        status->state = status->role;
        status->is_p2p = port->config.adminPointToPoint != 1;
        status->is_edge = port->config.adminEdge;
    } else {
        status->state = port->forwarding ? HW_FORWARDING : port->learning ? HW_LEARNING : HW_DISCARDING;
        status->is_p2p = port->operPointToPoint;
        status->is_edge = port->operEdge;
        status->stp_neigb = !port->sendRSTP;
    }
    status->oper_pathcost = port->pathCost;
    if (poag <= RSTP_PHYSICAL_PORTS) {
        const port_t *standing = lvt_rstp_vars.representative[poag - 1];
        status->part_of_aggr = standing && standing != port ? standing->port_number : 0;
    }
    status->stp_viewable = port->stpEnabled && !port->nonStp;
    status->stp_frame_xmits = port->stp_frame_xmits;
    status->stp_frame_recvs = port->stp_frame_recvs;
    status->rstp_frame_xmits = port->rstp_frame_xmits;
    status->rstp_frame_recvs = port->rstp_frame_recvs;
    status->tcn_frame_xmits = port->tcn_frame_xmits;
    status->tcn_frame_recvs = port->tcn_frame_recvs;
    status->unknown_frame_recvs = port->unknown_frame_recvs;
    status->illegal_frame_recvs = port->illegal_frame_recvs;
}

LVT_UNLOCKED_READ void lvt_rstp_read_hw_state(uint32_t port, uint8_t *stpstate, uint8_t *fwdstate)
{
    *stpstate = cached_stpstates[port];
    *fwdstate = cached_fwdstates[port];
}

// ---- what only other programs of the board would call: the linker leaves it out of the daemon ---------

uint8_t lvt_port_enable_rstp_get(uint32_t index)
{
    need_defaults();
    return record_of(index + 1)->config.adminEnable;
}

uint8_t lvt_rstp_aggr_enable_get() { return lvt_port_enable_rstp_get(RSTP_PHYSICAL_PORTS); }

int lvt_rstp_port_is_aggregated(uint32_t index)
{
    if (index >= RSTP_PHYSICAL_PORTS)
        return 0;
    need_defaults();
    return representative_of(index + 1)->port_number > RSTP_PHYSICAL_PORTS;
}

void lvt_rstp_reset_config() { lvt_rstp_vars_init(); }

void lvt_rstp_set_mcheck(uint32_t poag)
{
    STP_ASSERT(l2port_is_poag(poag), IS_POAG, SOURCE, 743, "lvt_rstp_set_mcheck");
    need_defaults();
    lvt_rstp_run_pending();
    record_of(poag)->rstpVersion = 1;
    STP_port_reselect(record_of(poag));
}

void lvt_rstp_vlan_add(uint16_t vid, const uint8_t *members)
{
    need_defaults();
    lvt_rstp_run_pending();
    stpm_t *bridge = stpapi_stpm_find(vid);
    if (!bridge) {
        bridge = STP_stpm_create(vid);
        if (!bridge)
            return;
        if (vid == LVT_RSTP_DEFAULT_VLAN) {
            STP_ASSERT(lvt_rstp_vars.default_vlan == nullptr, "(&lvt_rstp_vars)->default_vlan == ((void *)0)", SOURCE,
                       0, "lvt_rstp_vlan_add");
            lvt_rstp_vars.default_vlan = bridge;
        }
    }

    bool moved = false;
    for (uint32_t number = 1; number <= RSTP_PHYSICAL_PORTS; number++) {
        port_t *port = record_of(number);
        const bool inside = port->owner == bridge;
        if (inside == (members[number] != 0))
            continue;
        stpm_t *target = inside ? lvt_rstp_vars.default_vlan : bridge;
        moved |= lvt_rstp_port_move(port, target);
        moved |= lvt_rstp_port_move(representative_of(number), target);
    }
    if (moved) {
        set_system_config(bridge);
        STP_stpm_enable(bridge, 1);
    }
}

void lvt_rstp_vlan_del(uint16_t vid)
{
    need_defaults();
    stpm_t *bridge = stpapi_stpm_find(vid);
    if (!bridge)
        return;
    lvt_rstp_run_pending();
    if (bridge == lvt_rstp_vars.default_vlan)
        lvt_rstp_vars.default_vlan = nullptr;
    while (bridge->ports)
        lvt_rstp_port_move(bridge->ports, lvt_rstp_vars.default_vlan);
    STP_stpm_delete(bridge);
}

int lvt_rstp_get_bridge_status(uint32_t vlan_index, lvt_rstp_bridge_status_t *status)
{
    STP_ASSERT(vlan_index < 1, "vlan_index < 1", SOURCE, 0, "lvt_rstp_get_bridge_status");
    need_defaults();
    lvt_rstp_run_pending();
    lvt_rstp_read_bridge_status(status);
    const uint16_t priority = status->designated_root.prio;
    status->designated_root.prio = static_cast<uint16_t>((priority & PRIORITY_BITS) >> 8);
    status->designated_root_vlan = priority & VLAN_BITS;
    return 0;
}

int lvt_rstp_get_port_status(uint32_t poag, lvt_rstp_port_status_t *status)
{
    need_defaults();
    lvt_rstp_run_pending();
    lvt_rstp_read_port_status(poag, status);
    return 0;
}
