#include "sim/switch.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <utility>

#include "board/chip/registers.h"
#include "daemon/rstp_daemon.h"
#include "l2_proto_utility/os_api.h"
#include "platform/link_mon_intf.h"
#include "platform/lvt_com.h"
#include "process/process.h"
#include "state.h"

namespace sim {

namespace {

switch_t *in_turn;    ///< whose state is in the process's memory
chip_time_t now_told; ///< the time of what goes on

size_t state_octets() { return static_cast<size_t>(__stop_lvt_state - __start_lvt_state); }
size_t process_octets() { return static_cast<size_t>(__stop_lvt_process - __start_lvt_process); }

/// Copies state. The address sanitizer keeps gaps between the variables, over which memcpy may not step.
#ifdef __SANITIZE_ADDRESS__
__attribute__((no_sanitize("address"))) void copy(void *to, const void *from, size_t octets)
{
    for (size_t i = 0; i < octets; i++)
        static_cast<volatile uint8_t *>(to)[i] = static_cast<const volatile uint8_t *>(from)[i];
}
#else
void copy(void *to, const void *from, size_t octets) { memcpy(to, from, octets); }
#endif

/// The daemon as the program began.
struct start_t {
    std::unique_ptr<uint8_t[]> state = std::make_unique<uint8_t[]>(state_octets());
    std::unique_ptr<uint8_t[]> process = std::make_unique<uint8_t[]>(process_octets());

    start_t()
    {
        copy(state.get(), __start_lvt_state, state_octets());
        copy(process.get(), __start_lvt_process, process_octets());
    }
};

const start_t start;

void give_turn(switch_t &device)
{
    if (in_turn == &device)
        return;
    if (in_turn)
        copy(in_turn->image, __start_lvt_state, state_octets());
    copy(__start_lvt_state, device.image, state_octets());
    in_turn = &device;
}

/// Gives the turn, and the time, for as long as it lives.
struct turn_t {
    turn_t(switch_t &device, chip_time_t now)
    {
        give_turn(device);
        now_told = now;
    }
};

rstp_port_status_t report_of(const link_t &link)
{
    const uint8_t speed = link.mbit >= 2500 ? 3 : link.mbit >= 1000 ? 2 : link.mbit >= 100 ? 1 : 0;
    return {.ignored = 0, .link = link.up, .speed = speed, .duplex = link.full_duplex};
}

void tell_links(switch_t &device)
{
    rstp_msg_t message;
    memset(&message.header, 0, sizeof message.header);
    message.header.type = RSTP_MSG_PORT_STATUS;
    for (unsigned i = 0; i < FRONT_PORTS; i++) {
        const rstp_port_status_t report = report_of(device.links[i]);
        memcpy(message.body + i * sizeof report, &report, sizeof report);
    }
    rstp_dispatch(&message);
}

/// The frame daemon's part and the reader's: a trapped frame becomes a message that names its front port.
void hand_over(unsigned port, std::span<const uint8_t> frame)
{
    rstp_msg_t message;
    memset(&message.header, 0, sizeof message.header);
    message.header.type = RSTP_MSG_BPDU;
    message.header.port = static_cast<uint8_t>(port);
    message.header.length = static_cast<uint16_t>(frame.size());
    memcpy(message.body, frame.data(), frame.size());
    rstp_dispatch(&message);
}

void send_by(switch_t &device, uint8_t chip_ports, std::span<const uint8_t> frame)
{
    for (unsigned chip_port = 1; chip_port < CHIP_PORTS; chip_port++)
        if (chip_ports >> chip_port & 1)
            device.calls->sends(device.calls->context, device, front_port_of_chip(chip_port), frame);
}

} // namespace

void switch_create(switch_t &device, uint32_t number, const world_calls_t &calls, uint8_t *image)
{
    device.number = number;
    device.mac = {
        0x02, 0x00, static_cast<uint8_t>(number >> 16), static_cast<uint8_t>(number >> 8), static_cast<uint8_t>(number),
        0x00};
    device.calls = &calls;
    device.links = {};
    device.chip = {};
    device.image = image;
    memcpy(image, start.state.get(), state_octets());
    device.daemon_runs = false;
    device.rapid = false;
}

void switch_destroy(switch_t &device)
{
    if (in_turn == &device)
        in_turn = nullptr;
}

void switch_power_on(switch_t &device, chip_time_t now)
{
    device.chip = {};
    for (unsigned port = 1; port <= FRONT_PORTS; port++)
        chip_link_set(device.chip, chip_port_of_front(port), device.links[port - 1].up);
    device.calls->chip_changed(device.calls->context, device);
    switch_start_daemon(device, now);
}

void switch_kill_daemon(switch_t &device) { device.daemon_runs = false; }

void switch_start_daemon(switch_t &device, chip_time_t now)
{
    const turn_t turn(device, now);
    copy(__start_lvt_state, start.state.get(), state_octets());
    copy(__start_lvt_process, start.process.get(), process_octets());
    initSocket(&rstp_socket_fd, &rstp_socket_addr, RSTP_CPU_INTERFACE);
#ifdef LVT_RAPID
    lvt_rstp_rapid = device.rapid;
#endif
    device.daemon_runs = true;
    rstp_start_tables();
    rstp_start_bridge();
}

void switch_power_off(switch_t &device)
{
    device.daemon_runs = false;
    device.chip = {};
    device.calls->chip_changed(device.calls->context, device);
}

void switch_tick(switch_t &device, chip_time_t now)
{
    if (!device.daemon_runs)
        return;
    const turn_t turn(device, now);
    rstp_second_passed();
}

void switch_set_link(switch_t &device, unsigned port, link_t link, chip_time_t now)
{
    device.links[port - 1] = link;
    chip_link_set(device.chip, chip_port_of_front(port), link.up);
    device.calls->chip_changed(device.calls->context, device);
    if (!device.daemon_runs)
        return;
    const turn_t turn(device, now);
    tell_links(device);
}

void switch_receive(switch_t &device, unsigned port, std::span<const uint8_t> frame, chip_time_t now)
{
    const unsigned chip_port = chip_port_of_front(port);
    const chip_verdict_t verdict = chip_receive(device.chip, chip_port, frame, now);
    if (verdict.trapped && device.daemon_runs) {
        const turn_t turn(device, now);
        hand_over(port, frame);
    } else if (!verdict.trapped)
        send_by(device, verdict.ports, frame);
}

void switch_control(switch_t &device, std::span<const uint8_t> message, chip_time_t now)
{
    if (!device.daemon_runs)
        return;
    rstp_msg_t record = {};
    const size_t octets = message.size() - sizeof(rstp_frame_header_t);
    memcpy(&record, message.data() + sizeof(rstp_frame_header_t), octets < sizeof record ? octets : sizeof record);
    const turn_t turn(device, now);
    rstp_dispatch(&record);
}

bool switch_forwards(const switch_t &device, unsigned port) { return switch_port_state(device, port) >= HW_FORWARDING; }

unsigned switch_port_state(const switch_t &device, unsigned port)
{
    return chip_port_state(device.chip, chip_port_of_front(port));
}

bool empties_addresses(const mdio_op_t &op)
{
    return op.op == MDIO_OP_WRITE && op.reg == REG_ADDRESS_COMMAND &&
           address_command(op.value) == address_command_t::delete_all;
}

const lvt_rstp_vars_t &switch_vars(switch_t &device)
{
    give_turn(device);
    return lvt_rstp_vars;
}

size_t switch_image_octets() { return state_octets(); }

} // namespace sim

// ---- the board's libraries, for the switch that has its turn -------------------------------------------

int mdio_intf_access_multi(mdio_multi_t *request)
{
    sim::switch_t &device = *sim::in_turn;
    if (device.calls->chip_refuses(device.calls->context, device))
        return -1;
    const int result = chip_execute(device.chip, *request, sim::now_told);
    device.calls->chip_written(device.calls->context, device, *request);
    device.calls->chip_changed(device.calls->context, device);
    return result;
}

int link_mon_intf_param_get(link_mon_status_t *status)
{
    for (unsigned i = 0; i < sim::FRONT_PORTS; i++) {
        const rstp_port_status_t report = sim::report_of(sim::in_turn->links[i]);
        status->status[i] = static_cast<uint32_t>(report.speed) |
                            static_cast<uint32_t>(report.duplex) << LINK_MON_DUPLEX_BIT |
                            static_cast<uint32_t>(report.link) << LINK_MON_LINK_BIT;
    }
    return 0;
}

int osPrintfConsole(const char *, ...) { return 0; }

// ---- the process ---------------------------------------------------------------------------------------

int process_open_pipe(const char *, pipe_mode_t) { return 3; }
int process_write_pipe(int, const void *, size_t length) { return static_cast<int>(length); }
int process_write_once(const char *, const void *, size_t length) { return static_cast<int>(length); }
int process_wait_pipes(int, fd_set *) { return -1; }

int process_open_socket(const char *, sockaddr_ll *) { return 3; }
void process_deafen_socket(int) {}

int process_send_frame(int, const void *frame, size_t length, const sockaddr_ll *)
{
    sim::switch_t &device = *sim::in_turn;
    uint8_t octets[1600];
    if (length > sizeof octets)
        return -1;
    memcpy(octets, frame, length);
    const chip_verdict_t verdict = chip_receive_from_cpu(device.chip, {octets, length});
    if (verdict.ports)
        sim::send_by(device, verdict.ports, chip_untag({octets, length}));
    return 0;
}

int process_interface_address(const char *, sockaddr *address)
{
    address->sa_family = 1;
    memcpy(address->sa_data, sim::in_turn->mac.data(), sim::in_turn->mac.size());
    return 0;
}

FILE *process_create_file(const char *) { return nullptr; }
int process_place_file(FILE *, const char *, const char *) { return -1; }
time_t process_now() { return 0; }
int process_wait_second() { return -1; }
void process_sleep_second() {}
int process_start_thread(pthread_t *, void *(*)(void *)) { return -1; }
void *process_alloc(size_t size) { return malloc(size); }
