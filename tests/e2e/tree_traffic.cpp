#include "tree_traffic.h"

#include <algorithm>
#include <array>
#include <cstring>

#include <linux/if_packet.h>
#include <sys/socket.h>

#include "tools/hex.h"

namespace lab {

namespace {

struct frame_t {
    std::array<uint8_t, 6> to;
    std::array<uint8_t, 6> from;
    std::array<uint8_t, 2> type;
    std::array<uint8_t, 4> number;
    std::array<uint8_t, 42> padding;
};
static_assert(sizeof(frame_t) == 60);

constexpr std::array<uint8_t, 2> TYPE = {0x88, 0xB5}; // for local experiments

void set_option(const fd_t &socket, int level, int name, const void *value, socklen_t octets)
{
    checked(setsockopt(socket.number(), level, name, value, octets), "packet socket");
}

} // namespace

station_t::station_t(const node_t &node) : socket_(node.packet_socket("eth0")), mac_(node.mac())
{
    sockaddr_ll address = {};
    socklen_t octets = sizeof address;
    checked(getsockname(socket_.number(), reinterpret_cast<sockaddr *>(&address), &octets), "packet socket");

    packet_mreq everything = {};
    everything.mr_ifindex = address.sll_ifindex;
    everything.mr_type = PACKET_MR_PROMISC;
    set_option(socket_, SOL_PACKET, PACKET_ADD_MEMBERSHIP, &everything, sizeof everything);
    const int on = 1;
    set_option(socket_, SOL_PACKET, PACKET_IGNORE_OUTGOING, &on, sizeof on);
    const int room = 8 << 20;
    if (setsockopt(socket_.number(), SOL_SOCKET, SO_RCVBUFFORCE, &room, sizeof room) != 0)
        set_option(socket_, SOL_SOCKET, SO_RCVBUF, &room, sizeof room); // an ordinary user gets less
}

void station_t::send(const std::string &from, const std::string &to, uint32_t number) const
{
    frame_t frame = {read_address(to).value(), read_address(from).value(), TYPE, {}, {}};
    std::memcpy(frame.number.data(), &number, sizeof number);
    checked(static_cast<int>(::send(socket_.number(), &frame, sizeof frame, 0)), "numbered frame");
}

const std::vector<numbered_frame_t> &station_t::received()
{
    frame_t frame;
    for (ssize_t got; (got = recv(socket_.number(), &frame, sizeof frame, MSG_DONTWAIT)) >= 0;) {
        if (got < static_cast<ssize_t>(sizeof frame) || frame.type != TYPE)
            continue;
        uint32_t number;
        std::memcpy(&number, frame.number.data(), sizeof number);
        received_.push_back({address_text(frame.from), address_text(frame.to), number});
    }
    return received_;
}

void station_t::forget()
{
    received();
    received_.clear();
}

size_t station_t::times_received(const std::string &from, uint32_t number)
{
    const auto &frames = received();
    return static_cast<size_t>(std::count_if(frames.begin(), frames.end(), [&](const numbered_frame_t &frame) {
        return frame.from == from && frame.number == number;
    }));
}

} // namespace lab
