#include "lvt_board/wires.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <system_error>

#include <arpa/inet.h>
#include <linux/filter.h>
#include <linux/if_ether.h>
#include <linux/if_packet.h>
#include <sys/socket.h>
#include <sys/uio.h>

namespace {

constexpr std::size_t ADDRESSES_OCTETS = 2 * ETH_ALEN;
constexpr std::size_t VLAN_TAG_OCTETS = 4;
constexpr std::uint8_t CHECKSUM_WANTED = 1;

template <typename option_t>
void set_option(const fd_t &wire, int name, const option_t &value, int level = SOL_PACKET)
{
    if (setsockopt(wire.number(), level, name, &value, sizeof value) != 0)
        throw std::system_error(errno, std::generic_category(), "cannot set up a packet socket");
}

constexpr std::array<unsigned char, ETH_ALEN> BRIDGE_GROUP = {0x01, 0x80, 0xC2, 0x00, 0x00, 0x00};

void hear_bpdus_only(const fd_t &wire)
{
    constexpr auto special = static_cast<std::uint32_t>(SKF_AD_OFF);
    sock_filter program[] = {
        BPF_STMT(BPF_LD | BPF_W | BPF_ABS, 0),
        BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, 0x0180C200, 0, 5),
        BPF_STMT(BPF_LD | BPF_H | BPF_ABS, 4),
        BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, 0x0000, 0, 3),
        BPF_STMT(BPF_LD | BPF_B | BPF_ABS, special + SKF_AD_VLAN_TAG_PRESENT),
        BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, 0, 0, 1),
        BPF_STMT(BPF_RET | BPF_K, UINT32_MAX),
        BPF_STMT(BPF_RET | BPF_K, 0),
    };
    const sock_fprog filter = {std::size(program), program};
    set_option(wire, SO_ATTACH_FILTER, filter, SOL_SOCKET);
}

const tpacket_auxdata *auxdata_of(msghdr &message)
{
    for (cmsghdr *part = CMSG_FIRSTHDR(&message); part != nullptr; part = CMSG_NXTHDR(&message, part))
        if (part->cmsg_level == SOL_PACKET && part->cmsg_type == PACKET_AUXDATA)
            return reinterpret_cast<const tpacket_auxdata *>(CMSG_DATA(part));
    return nullptr;
}

void restore_vlan_tag(wire_frame_t &frame, const tpacket_auxdata &auxdata)
{
    const std::uint16_t protocol =
        (auxdata.tp_status & TP_STATUS_VLAN_TPID_VALID) != 0 ? auxdata.tp_vlan_tpid : ETH_P_8021Q;
    const std::array<std::uint16_t, 2> tag = {htons(protocol), htons(auxdata.tp_vlan_tci)};

    std::uint8_t *const place = frame.octets.data() + ADDRESSES_OCTETS;
    std::memmove(place + VLAN_TAG_OCTETS, place, frame.size - ADDRESSES_OCTETS);
    std::memcpy(place, tag.data(), VLAN_TAG_OCTETS);
    frame.size += VLAN_TAG_OCTETS;

    if ((frame.offload.flags & CHECKSUM_WANTED) != 0)
        frame.offload.checksum_start += VLAN_TAG_OCTETS;
    if (frame.offload.headers_octets != 0)
        frame.offload.headers_octets += VLAN_TAG_OCTETS;
}

} // namespace

fd_t wire_open(int index, ear_t ear)
{
    // Bound to no protocol at first, so that it does not hear every interface until the bind below.
    fd_t wire(socket(AF_PACKET, SOCK_RAW | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
    if (!wire)
        throw std::system_error(errno, std::generic_category(), "cannot open a packet socket");
    set_option(wire, PACKET_IGNORE_OUTGOING, 1);
    set_option(wire, PACKET_AUXDATA, 1);
    set_option(wire, PACKET_VNET_HDR, 1);
    if (ear != ear_t::everything)
        hear_bpdus_only(wire);

    sockaddr_ll address = {};
    address.sll_family = AF_PACKET;
    address.sll_protocol = htons(ear == ear_t::passed_bpdus ? ETH_P_802_2 : ETH_P_ALL);
    address.sll_ifindex = index;
    if (bind(wire.number(), reinterpret_cast<const sockaddr *>(&address), sizeof address) != 0)
        throw std::system_error(errno, std::generic_category(), "cannot bind a packet socket");

    packet_mreq wanted = {};
    wanted.mr_ifindex = index;
    wanted.mr_type = PACKET_MR_PROMISC;
    if (ear != ear_t::everything) {
        wanted.mr_type = PACKET_MR_MULTICAST;
        wanted.mr_alen = BRIDGE_GROUP.size();
        std::copy(BRIDGE_GROUP.begin(), BRIDGE_GROUP.end(), wanted.mr_address);
    }
    set_option(wire, PACKET_ADD_MEMBERSHIP, wanted);
    return wire;
}

wire_result_t wire_receive(const fd_t &wire, wire_frame_t &frame)
{
    // Room is kept for a VLAN tag.
    iovec parts[] = {{&frame.offload, sizeof frame.offload},
                     {frame.octets.data(), frame.octets.size() - VLAN_TAG_OCTETS}};
    alignas(cmsghdr) std::array<char, CMSG_SPACE(sizeof(tpacket_auxdata))> control;
    msghdr message = {};
    message.msg_iov = parts;
    message.msg_iovlen = std::size(parts);
    message.msg_control = control.data();
    message.msg_controllen = control.size();

    const ssize_t got = recvmsg(wire.number(), &message, 0);
    if (got < 0)
        return errno == EAGAIN ? wire_result_t::nothing : wire_result_t::failed;
    if (got < static_cast<ssize_t>(sizeof frame.offload) || (message.msg_flags & MSG_TRUNC) != 0)
        return wire_result_t::failed;

    frame.size = static_cast<std::size_t>(got) - sizeof frame.offload;
    const tpacket_auxdata *auxdata = auxdata_of(message);
    if (auxdata != nullptr && (auxdata->tp_status & TP_STATUS_VLAN_VALID) != 0 && frame.size > ADDRESSES_OCTETS)
        restore_vlan_tag(frame, *auxdata);
    if (frame.size < ETH_ZLEN) {
        std::fill(frame.octets.begin() + static_cast<std::ptrdiff_t>(frame.size), frame.octets.begin() + ETH_ZLEN,
                  std::uint8_t{0});
        frame.size = ETH_ZLEN;
    }
    return wire_result_t::frame;
}

bool wire_send(const fd_t &wire, const wire_offload_t &offload, std::span<const std::uint8_t> octets)
{
    const iovec parts[] = {{const_cast<wire_offload_t *>(&offload), sizeof offload},
                           {const_cast<std::uint8_t *>(octets.data()), octets.size()}};
    return writev(wire.number(), parts, std::size(parts)) == static_cast<ssize_t>(sizeof offload + octets.size());
}
