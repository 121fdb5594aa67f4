#include "daemon/rstp_msg.h"

#include <sys/ioctl.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "daemon/diag_out.h"
#include "l2_proto_utility/os_api.h"
#include "process/process.h"
#include "state.h"

namespace {

LVT_PROCESS int rstp_fd;
LVT_PROCESS int rstp_dbg_fd;
LVT_PROCESS int maxfd;
LVT_PROCESS fd_set master_readfds;
LVT_PROCESS fd_set working_readfds;

/// Drops up to `octets` of what the pipe holds now. Never waits for more.
void discard(int fd, uint64_t octets)
{
    int held = 0;
    if (ioctl(fd, FIONREAD, &held) != 0 || held < 0)
        return;
    uint64_t left = octets < static_cast<uint64_t>(held) ? octets : static_cast<uint64_t>(held);
    while (left) {
        uint8_t waste[512];
        const ssize_t got = read(fd, waste, left < sizeof waste ? left : sizeof waste);
        if (got <= 0)
            return;
        left -= static_cast<uint64_t>(got);
    }
}

/// Turns the chip port + 1 of a BPDU into a logical port. False when there is no such port.
bool map_port(rstp_msg_header_t *header)
{
    constexpr uint8_t CHIP_PORTS = 7;
    if (header->port - 1u >= CHIP_PORTS)
        return false;
    header->port = static_cast<uint8_t>(phy_to_sw_port_map_arr[header->port - 1] + 1);
    return true;
}

/// Takes one message: the header in one read, the rest in another. What is short stays zero;
/// after a wrong magic the pipe is not searched for the next message.
int read_message(int fd, rstp_msg_t *message)
{
    rstp_frame_header_t header = {};
    if (read(fd, &header, sizeof header) < 0 || memcmp(header.magic, rstp_magic_number_arr, sizeof header.magic) != 0)
        return -1;

    const uint32_t body = swap_big_to_lit_32(header.length);
    if (body > RSTP_BODY_MAX) {
        discard(fd, uint64_t{body} + sizeof(rstp_msg_header_t));
        return -1;
    }
    *message = {};
    if (read(fd, message, sizeof(rstp_msg_header_t) + body) < 0)
        return -1;
    if (message->header.type == RSTP_MSG_BPDU && !map_port(&message->header))
        return -1;
    return 1;
}

void serve_debug(int fd)
{
    char text[RSTP_DBG_MAX + 1] = {};
    if (read(fd, text, RSTP_DBG_MAX) > 0 && is_dbg_msg(text))
        excute_dbg_cmd(text);
}

} // namespace

void rstp_msg_open(int control_fd, int debug_fd)
{
    rstp_fd = control_fd;
    rstp_dbg_fd = debug_fd;
    if (rstp_dbg_fd > maxfd)
        maxfd = rstp_dbg_fd;
    if (rstp_fd > maxfd)
        maxfd = rstp_fd;
    FD_ZERO(&master_readfds);
    FD_SET(rstp_fd, &master_readfds);
    FD_SET(rstp_dbg_fd, &master_readfds);
}

int rstp_msg_recv(rstp_msg_t *message)
{
    working_readfds = master_readfds;
    if (process_wait_pipes(maxfd + 1, &working_readfds) < 1) {
        perror("RSTP: select() failed");
        exit(1);
    }

    int result = 0;
    if (FD_ISSET(rstp_fd, &working_readfds))
        result = read_message(rstp_fd, message);
    if (FD_ISSET(rstp_dbg_fd, &working_readfds))
        serve_debug(rstp_dbg_fd);
    return result;
}

uint32_t swap_big_to_lit_32(uint32_t value) { return value; }
