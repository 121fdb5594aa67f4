#include "board/netlink/netlink.h"

#include <algorithm>
#include <cerrno>
#include <system_error>

#include <libmnl/libmnl.h>
#include <linux/if.h>
#include <linux/if_bridge.h>
#include <linux/if_link.h>
#include <linux/rtnetlink.h>
#include <linux/veth.h>

namespace {

constexpr int DUMPS_MAX = 10; ///< of one question, when interfaces change while they are told

[[noreturn]] void fail(const char *what) { throw std::system_error(errno, std::generic_category(), what); }

/// A request about an interface, with room for what is put into it.
struct request_t {
    alignas(nlmsghdr) std::array<char, 1024> room{};
    nlmsghdr *header;
    ifinfomsg *info;

    request_t(std::uint16_t type, std::uint16_t flags, unsigned char family = AF_UNSPEC, int index = 0)
    {
        header = mnl_nlmsg_put_header(room.data());
        header->nlmsg_type = type;
        header->nlmsg_flags = static_cast<std::uint16_t>(NLM_F_REQUEST | flags);
        info = static_cast<ifinfomsg *>(mnl_nlmsg_put_extra_header(header, sizeof *info));
        info->ifi_family = family;
        info->ifi_index = index;
    }
    request_t(const request_t &) = delete;
    request_t &operator=(const request_t &) = delete;
};

int hand_on(const nlmsghdr *message, void *data)
{
    const auto &take = *static_cast<const std::function<void(std::span<const std::uint8_t>)> *>(data);
    if (take)
        take({reinterpret_cast<const std::uint8_t *>(message), message->nlmsg_len});
    return MNL_CB_OK;
}

} // namespace

netlink_t::netlink_t()
    : socket_(mnl_socket_open2(NETLINK_ROUTE, SOCK_CLOEXEC), [](mnl_socket *s) { mnl_socket_close(s); })
{
    if (!socket_ || mnl_socket_bind(socket_.get(), 0, MNL_SOCKET_AUTOPID) != 0)
        fail("netlink");
}

int netlink_t::exchange(nlmsghdr *request, const message_fn &take)
{
    request->nlmsg_seq = ++sequence_;
    if (mnl_socket_sendto(socket_.get(), request, request->nlmsg_len) < 0)
        fail("netlink");
    const unsigned own = mnl_socket_get_portid(socket_.get());
    alignas(nlmsghdr) static thread_local std::array<char, 65536> answer;
    for (;;) {
        const ssize_t got = mnl_socket_recvfrom(socket_.get(), answer.data(), answer.size());
        if (got < 0 && errno == EINTR)
            continue;
        if (got < 0)
            fail("netlink");
        errno = 0;
        const int more = mnl_cb_run(answer.data(), static_cast<std::size_t>(got), sequence_, own, hand_on,
                                    const_cast<message_fn *>(&take));
        if (more < 0 && errno == ESRCH)
            continue; // the rest of an answer that was given up
        if (more < 0)
            return errno;
        if (more == MNL_CB_STOP)
            return 0;
    }
}

std::optional<interface_t> netlink_t::get(nlmsghdr *request)
{
    std::optional<interface_t> found;
    const int error = exchange(request, [&](auto message) { found = parse_interface(message); });
    if (error == ENODEV)
        return {};
    if (error != 0)
        throw std::system_error(error, std::generic_category(), "netlink");
    return found;
}

std::optional<interface_t> netlink_t::find(const std::string &name)
{
    if (name.size() >= IFNAMSIZ)
        return {};
    request_t request(RTM_GETLINK, NLM_F_ACK);
    mnl_attr_put_strz(request.header, IFLA_IFNAME, name.c_str());
    return get(request.header);
}

std::optional<interface_t> netlink_t::find(int index)
{
    request_t request(RTM_GETLINK, NLM_F_ACK, AF_UNSPEC, index);
    return get(request.header);
}

std::vector<interface_t> netlink_t::ports_of(int bridge)
{
    std::vector<interface_t> ports;
    int error = EINTR;
    for (int i = 0; error == EINTR && i < DUMPS_MAX; i++) {
        ports.clear();
        request_t request(RTM_GETLINK, NLM_F_DUMP, AF_BRIDGE);
        error = exchange(request.header, [&](auto message) {
            auto port = parse_interface(message);
            if (port && port->master == bridge && port->port_state)
                ports.push_back(std::move(*port));
        });
    }
    if (error != 0 && error != EINTR)
        throw std::system_error(error, std::generic_category(), "netlink");
    std::ranges::sort(ports, {}, &interface_t::index);
    return ports;
}

int netlink_t::set_port_state(int port, port_state_t state)
{
    request_t request(RTM_SETLINK, NLM_F_ACK, AF_BRIDGE, port);
    nlattr *nest = mnl_attr_nest_start(request.header, IFLA_PROTINFO);
    mnl_attr_put_u8(request.header, IFLA_BRPORT_STATE, static_cast<std::uint8_t>(state));
    mnl_attr_nest_end(request.header, nest);
    return exchange(request.header);
}

int netlink_t::flush_port(int port)
{
    request_t request(RTM_SETLINK, NLM_F_ACK, AF_BRIDGE, port);
    nlattr *nest = mnl_attr_nest_start(request.header, IFLA_PROTINFO);
    mnl_attr_put(request.header, IFLA_BRPORT_FLUSH, 0, nullptr);
    mnl_attr_nest_end(request.header, nest);
    return exchange(request.header);
}

int netlink_t::set_stp(int bridge, bool on)
{
    request_t request(RTM_NEWLINK, NLM_F_ACK, AF_UNSPEC, bridge);
    nlattr *link = mnl_attr_nest_start(request.header, IFLA_LINKINFO);
    mnl_attr_put_strz(request.header, IFLA_INFO_KIND, "bridge");
    nlattr *data = mnl_attr_nest_start(request.header, IFLA_INFO_DATA);
    mnl_attr_put_u32(request.header, IFLA_BR_STP_STATE, on);
    mnl_attr_nest_end(request.header, data);
    mnl_attr_nest_end(request.header, link);
    return exchange(request.header);
}

void netlink_t::set_running(const std::string &name)
{
    request_t request(RTM_NEWLINK, NLM_F_ACK);
    request.info->ifi_flags = request.info->ifi_change = IFF_UP;
    mnl_attr_put_strz(request.header, IFLA_IFNAME, name.c_str());
    errno = exchange(request.header);
    if (errno != 0)
        fail(name.c_str());
}

void netlink_t::make_cable(const std::string &near, const std::string &far, const std::array<std::uint8_t, 6> &mac)
{
    request_t request(RTM_NEWLINK, NLM_F_ACK | NLM_F_CREATE | NLM_F_EXCL);
    nlmsghdr *header = request.header;
    mnl_attr_put_strz(header, IFLA_IFNAME, near.c_str());
    mnl_attr_put(header, IFLA_ADDRESS, mac.size(), mac.data());
    nlattr *link = mnl_attr_nest_start(header, IFLA_LINKINFO);
    mnl_attr_put_strz(header, IFLA_INFO_KIND, "veth");
    nlattr *data = mnl_attr_nest_start(header, IFLA_INFO_DATA);
    nlattr *peer = mnl_attr_nest_start(header, VETH_INFO_PEER);
    mnl_nlmsg_put_extra_header(header, sizeof(ifinfomsg));
    mnl_attr_put_strz(header, IFLA_IFNAME, far.c_str());
    mnl_attr_nest_end(header, peer);
    mnl_attr_nest_end(header, data);
    mnl_attr_nest_end(header, link);
    errno = exchange(header);
    if (errno != 0)
        fail("virtual Ethernet cable");
    set_running(near);
    set_running(far);
}
