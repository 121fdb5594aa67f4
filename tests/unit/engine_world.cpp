#include "engine_world.h"

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <cstring>
#include <sstream>

#include "engine_table.h"
#include "rstp/port.h"

stpm_t *current_stpm;
port_t *current_port;

namespace {

world_t *entered;

void forget_unit()
{
    entered->unit_port = nullptr;
    entered->unit_moves.clear();
}

} // namespace

// ---- what the engine asks ---------------------------------------------------------------

stpm_t **STP_OUT_bridges() { return &entered->bridges; }
stpm_t **STP_OUT_free_bridges() { return &entered->free_bridges; }
port_t *STP_OUT_port(uint32_t port_index) { return &entered->records.ports.at(port_index - 1); }
#ifdef LVT_RAPID
bool STP_OUT_rapid() { return entered->rapid; }
#endif
uint8_t STP_OUT_force_version() { return entered->force_version; }
int lvt_aggr_get_linkstate(uint32_t l2port) { return entered->links.at(l2port).up; }
uint32_t lvt_aggr_get_linkspeed(uint32_t l2port) { return entered->links.at(l2port).speed; }
int lvt_aggr_get_linkduplex(uint32_t l2port) { return entered->links.at(l2port).duplex; }
void lvt_os_get_systemmac(uint8_t *mac) { memcpy(mac, entered->mac.data(), entered->mac.size()); }

port_t *STP_OUT_sending_port(uint32_t port_index)
{
    const auto other = entered->sending_ports.find(port_index);
    return other == entered->sending_ports.end() ? STP_OUT_port(port_index) : other->second;
}

int lvt_aggr_set_stpstate(uint32_t l2port, uint8_t code)
{
    entered->actions.push_back(fmt::format("state {} {}", l2port, code));
    if (entered->on_state)
        entered->on_state();
    return 0;
}

int STP_OUT_flush_lt(uint32_t port_index, uint16_t vlan_id, int type, int reason)
{
    entered->actions.push_back(fmt::format("flush {} {} {} {}", port_index, vlan_id, type, reason));
    return 0;
}

uint8_t *lvt_os_alloc_xmit(uint32_t l2port, size_t length, uint16_t *tag)
{
    if (entered->short_of_memory || l2port < 1 || l2port > RSTP_PHYSICAL_PORTS)
        return nullptr;
    *tag = 0;
    entered->buffers_out++;
    auto *buffer = new uint8_t[length];
    memset(buffer, 0xEE, length); // what was in memory before
    return buffer;
}

void packet_tx_free(uint8_t *buffer)
{
    entered->buffers_out--;
    delete[] buffer;
}

int STP_OUT_tx_bpdu(uint32_t port_index, uint16_t vlan_id, const uint8_t *frame, uint16_t tag, size_t length)
{
    entered->actions.push_back(fmt::format("send {} {}", port_index, kind_of(frame[TYPE_AT])));
    entered->sent.push_back({port_index, vlan_id, tag, octets_t(frame, frame + length)});
    return entered->send_result;
}

void STP_OUT_trace(const state_mach_t *mach, rstpstate_t state)
{
    const stp_mach_identity_t identity = STP_mach_identify(mach);
    entered->moves.push_back(
        {identity.port_number, identity.machine, identity.state_name(mach->State), identity.state_name(state)});

    const port_t *port = identity.port_number ? static_cast<const port_t *>(mach->owner) : nullptr;
    if (port != entered->unit_port)
        forget_unit();
    entered->unit_port = port;
    if (++entered->unit_moves[mach] == entered->moves_max + 1)
        ADD_FAILURE() << "port " << identity.port_number << ": machine " << identity.machine
                      << " does not come to rest";
}

// ---- worlds -----------------------------------------------------------------------------

world_t::world_t(uint8_t address) : mac{2, 0, 0, 0, 0, address}
{
    for (stpm_t &bridge : records.bridges) {
        bridge.next = free_bridges;
        free_bridges = &bridge;
    }
    for (uint32_t i = 0; i < RSTP_PORTS; i++) {
        records.ports[i].port_number = i + 1;
        memcpy(records.ports[i].mac, mac.data(), mac.size());
        records.ports[i].mac[4] = static_cast<uint8_t>(i + 1);
    }
}

world_t::~world_t()
{
    if (entered != this)
        return;
    entered = nullptr;
    current_stpm = nullptr;
    current_port = nullptr;
}

void world_enter(world_t *world)
{
    if (entered) {
        entered->cursor_bridge = current_stpm;
        entered->cursor_port = current_port;
    }
    entered = world;
    current_stpm = world->cursor_bridge;
    current_port = world->cursor_port;
}

world_t &world_now() { return *entered; }

void world_forget()
{
    entered->actions.clear();
    entered->sent.clear();
    entered->moves.clear();
    forget_unit();
}

port_t *port_of(uint32_t number) { return &entered->records.ports.at(number - 1); }

// ---- bridges ----------------------------------------------------------------------------

stpm_t *bridge_create(uint16_t vlan_id)
{
    stpm_t *bridge = STP_stpm_create(vlan_id);
    bridge->BrId.prio = 32768;
    bridge->BrTimes = {.MessageAge = 0, .MaxAge = 20, .ForwardDelay = 15, .HelloTime = 2};
    return bridge;
}

port_t *port_attach(stpm_t *bridge, uint32_t number)
{
    port_t *port = port_of(number);
    port->config = LVT_RSTP_PORT_DEFAULTS;
    port->config.adminEnable = 1;
    port->config.adminEdge = 0;
    port->stpEnabled = 1;
    STP_port_create(bridge, port);
    return port;
}

port_t *boring_port_attach(stpm_t *bridge, uint32_t number)
{
    port_t *port = port_attach(bridge, number);
    port->config.adminEnable = 0;
    STP_port_cfg(port);
    return port;
}

stpm_t *bridge_start(std::initializer_list<uint32_t> numbers)
{
    stpm_t *bridge = bridge_create();
    for (const uint32_t number : numbers)
        port_attach(bridge, number);
    EXPECT_EQ(STP_stpm_enable(bridge, 1), 0);
    settle();
    return bridge;
}

// ---- time -------------------------------------------------------------------------------

void settle()
{
    forget_unit();
    lvt_rstp_run_pending();
}

void tick(unsigned seconds)
{
    for (; seconds; seconds--) {
        settle();
        for (port_t &port : entered->records.ports)
            STP_port_tick(&port);
        forget_unit();
        STP_stpm_update();
    }
}

// ---- frames -----------------------------------------------------------------------------

int receive(port_t *port, const octets_t &frame)
{
    forget_unit();
    return STP_IN_rx_bpdu(port, reinterpret_cast<const bpdu_t *>(frame.data()),
                          static_cast<uint32_t>(frame.size() - 17));
}

int receive(port_t *port, const heard_t &heard) { return receive(port, frame_of(heard)); }

// ---- looking ----------------------------------------------------------------------------

std::ostream &operator<<(std::ostream &out, const move_t &move)
{
    return out << fmt::format("port {} {}: {} -> {}", move.port, move.machine, move.from, move.to);
}

namespace {

std::string text_of(const bridge_id_t &id) { return fmt::format("{}/{}", id.prio, address_text(id.addr)); }

std::string text_of(const prio_vector_t &vector)
{
    return fmt::format("{} {} {} {:#x} {:#x}", text_of(vector.root_bridge), vector.root_path_cost,
                       text_of(vector.design_bridge), vector.design_port, vector.bridge_port);
}

std::string text_of(const timevalues_t &times)
{
    return fmt::format("age {} max {} forward {} hello {}", times.MessageAge, times.MaxAge, times.ForwardDelay,
                       times.HelloTime);
}

/// A record by its name: its address tells a reader nothing.
std::string text_of(const void *record)
{
    for (size_t i = 0; i < entered->records.bridges.size(); i++)
        if (record == &entered->records.bridges[i])
            return fmt::format("bridge {}", i);
    for (const port_t &port : entered->records.ports)
        if (record == &port)
            return fmt::format("port {}", port.port_number);
    return record ? "an unknown record" : "none";
}

std::string text_of(const state_mach_t &mach, stp_name_t state_name)
{
    return fmt::format("{} of {}", state_name(mach.State), text_of(mach.owner));
}

/// "3 Root".
std::string text_of(uint8_t value, std::initializer_list<const char *> names)
{
    return fmt::format("{} {}", value, value < names.size() ? names.begin()[value] : "?");
}

std::string role_text(uint8_t role)
{
    return text_of(role, {"Disabled", "Alternate", "Backup", "Root", "Designated", "Non-STP"});
}

std::string info_is_text(uint8_t info_is) { return text_of(info_is, {"Mine", "Aged", "Received", "Disabled"}); }

std::string rcvd_info_text(uint8_t rcvd_info)
{
    return text_of(rcvd_info, {"superior", "repeated", "agreement", "other"});
}

std::string text_of(const lvt_rstp_port_config_t &config)
{
    return fmt::format("cost {} priority {} enable {} edge {} p2p {}", config.adminPathCost, config.port_priority,
                       config.adminEnable, config.adminEdge, config.adminPointToPoint);
}

/// Gathers lines "prefix name: value".
struct lines_t {
    std::string prefix;
    std::string text;

    template <typename value_t>
    void add(const char *name, const value_t &value)
    {
        if constexpr (std::is_integral_v<value_t>)
            text += fmt::format("{} {}: {}\n", prefix, name, +value);
        else if constexpr (std::is_same_v<value_t, std::string>)
            text += fmt::format("{} {}: {}\n", prefix, name, value);
        else
            text += fmt::format("{} {}: {}\n", prefix, name, text_of(value));
    }
};

} // namespace

#define ADD(field) lines.add(#field, record.field)

static void describe_bridge(lines_t &lines, const stpm_t &record)
{
    ADD(next);
    ADD(ports);
    lines.add("rolesel", text_of(record.rolesel, STP_rolesel_state_name));
    ADD(BrId);
    ADD(BrTimes);
    ADD(rootPortId);
    ADD(rootPrio);
    ADD(rootTimes);
    ADD(timeSinceTc);
    ADD(tcCount);
    ADD(topoChange);
    ADD(prevTcPort);
    ADD(lastTcPort);
    ADD(vlan_id);
    ADD(admin_state);
}

static void describe_port(lines_t &lines, const port_t &record)
{
    ADD(port_number);
    ADD(config);
    ADD(hw_state);
    for (const flag_t &flag : port_flags)
        lines.add(flag.name, flag.get(record));
    for (const stp_machine_t &machine : STP_port_machines)
        lines.add(machine.name, text_of(record.*machine.mach, machine.state_name));
    ADD(owner);
    ADD(next);
    for (const timer_field_t &timer : port_timers)
        lines.add(timer.name, record.*timer.field);
    ADD(designatedPrio);
    ADD(designatedTimes);
    lines.add("infoIs", info_is_text(record.infoIs));
    ADD(msgPrio);
    ADD(msgTimes);
    ADD(port_id);
    ADD(portPrio);
    ADD(portTimes);
    lines.add("rcvdInfo", rcvd_info_text(record.rcvdInfo));
    lines.add("role", role_text(record.role));
    lines.add("selectedRole", role_text(record.selectedRole));
    ADD(rcvdVersion);
    ADD(rcvdType);
    ADD(rcvdRole);
    ADD(rcvdFlags);
    ADD(pathCost);
    ADD(speed);
    ADD(usedSpeed);
    ADD(stp_frame_xmits);
    ADD(stp_frame_recvs);
    ADD(rstp_frame_xmits);
    ADD(rstp_frame_recvs);
    ADD(tcn_frame_xmits);
    ADD(tcn_frame_recvs);
    ADD(unknown_frame_recvs);
    ADD(illegal_frame_recvs);
}

#undef ADD

std::string describe(const records_t &records)
{
    lines_t lines;
    for (size_t i = 0; i < records.bridges.size(); i++) {
        lines.prefix = fmt::format("bridge {}", i);
        describe_bridge(lines, records.bridges[i]);
    }
    for (size_t i = 0; i < records.ports.size(); i++) {
        lines.prefix = fmt::format("port {}", i + 1);
        describe_port(lines, records.ports[i]);
    }
    return lines.text;
}

std::string port_text(const port_t &port)
{
    std::string flags;
    for (const flag_t &flag : port_flags)
        if (flag.get(port))
            flags += fmt::format(" {}", flag.name);
    std::string timers;
    for (const timer_field_t &timer : port_timers)
        if (port.*timer.field)
            timers += fmt::format(" {} {}", timer.name, port.*timer.field);
    return fmt::format(
        "port {}: role {}, selectedRole {}, infoIs {}, rcvdInfo {}, pathCost {}, adminPathCost {}, "
        "speed {}, usedSpeed {}\n  flags:{}\n  timers:{}\n",
        port.port_number, role_text(port.role), role_text(port.selectedRole), info_is_text(port.infoIs),
        rcvd_info_text(port.rcvdInfo), port.pathCost, port.config.adminPathCost, port.speed, port.usedSpeed, flags,
        timers);
}

testing::AssertionResult same_records(const records_t &expected, const records_t &actual)
{
    if (memcmp(&expected, &actual, sizeof expected) == 0)
        return testing::AssertionSuccess();

    std::istringstream expected_lines(describe(expected));
    std::istringstream actual_lines(describe(actual));
    std::string differences;
    for (std::string want, have; getline(expected_lines, want) && getline(actual_lines, have);)
        if (want != have)
            differences += fmt::format("expected {}\n but    {}\n", want, have);
    if (differences.empty())
        differences = "the records differ in a value that describe() leaves out";
    return testing::AssertionFailure() << differences;
}

size_t moves_to(uint32_t port, const std::string &machine, const std::string &state)
{
    size_t count = 0;
    for (const move_t &move : entered->moves)
        count += move.port == port && move.machine == machine && move.to == state;
    return count;
}

std::vector<std::string> path_of(uint32_t port, const std::string &machine)
{
    std::vector<std::string> path;
    for (const move_t &move : entered->moves)
        if (move.port == port && move.machine == machine)
            path.push_back(move.to);
    return path;
}

std::string assertion(const std::string &text, const std::string &source, const std::string &function, unsigned line)
{
    std::string escaped;
    for (const char c : text) {
        if (strchr("()[]{}*+?.|^$\\", c))
            escaped += '\\';
        escaped += c;
    }
    return fmt::format("{}:{}: {}: Assertion `{}' failed", source, line ? std::to_string(line) : "[0-9]+", function,
                       escaped);
}
