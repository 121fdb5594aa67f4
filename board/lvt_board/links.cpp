#include "lvt_board/links.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <climits>
#include <cstring>
#include <iterator>
#include <system_error>

#include <linux/ethtool.h>
#include <linux/if.h>
#include <linux/netlink.h>
#include <linux/rtnetlink.h>
#include <linux/sockios.h>
#include <sys/ioctl.h>
#include <sys/socket.h>

namespace {

ifreq request_for(const std::string &name, void *data = nullptr)
{
    ifreq request = {};
    name.copy(request.ifr_name, IFNAMSIZ - 1);
    request.ifr_data = static_cast<char *>(data);
    return request;
}

bool has_carrier(int fd, const std::string &name)
{
    ethtool_value value = {.cmd = ETHTOOL_GLINK, .data = 0};
    ifreq request = request_for(name, &value);
    if (ioctl(fd, SIOCETHTOOL, &request) == 0)
        return value.data != 0;

    request = request_for(name);
    return ioctl(fd, SIOCGIFFLAGS, &request) == 0 && (request.ifr_flags & IFF_RUNNING) != 0;
}

link_t settings_of(int fd, const std::string &name)
{
    // The record, followed by room for three masks of at most 127 words.
    alignas(ethtool_link_settings)
        std::array<char, sizeof(ethtool_link_settings) + 3 * SCHAR_MAX * sizeof(std::uint32_t)>
            room = {};
    auto *const settings = reinterpret_cast<ethtool_link_settings *>(room.data());
    ifreq request = request_for(name, settings);
    const auto ask = [&](int words) {
        settings->cmd = ETHTOOL_GLINKSETTINGS;
        settings->link_mode_masks_nwords = static_cast<std::int8_t>(words);
        return ioctl(fd, SIOCETHTOOL, &request) == 0;
    };

    // Asked for no mask, the kernel answers how long a mask is, as a negative number.
    const bool known = ask(0) && settings->link_mode_masks_nwords < 0 && ask(-settings->link_mode_masks_nwords) &&
                       settings->speed != 0 && settings->speed != static_cast<std::uint32_t>(SPEED_UNKNOWN);
    if (!known)
        return {true, 1000, true};
    return {true, std::min<unsigned>(settings->speed, PHY_SPEEDS.back()), settings->duplex != DUPLEX_HALF};
}

int master_in(nlmsghdr *message)
{
    auto left = static_cast<unsigned>(message->nlmsg_len - NLMSG_LENGTH(sizeof(ifinfomsg)));
    for (rtattr *attribute = IFLA_RTA(NLMSG_DATA(message)); RTA_OK(attribute, left);
         attribute = RTA_NEXT(attribute, left))
        if (attribute->rta_type == IFLA_MASTER && RTA_PAYLOAD(attribute) == sizeof(int)) {
            int master;
            std::memcpy(&master, RTA_DATA(attribute), sizeof master);
            return master;
        }
    return 0;
}

} // namespace

std::uint8_t link_speed_code(unsigned mbit)
{
    const auto above = std::ranges::upper_bound(PHY_SPEEDS, mbit);
    const auto code = std::max<std::ptrdiff_t>(above - PHY_SPEEDS.begin() - 1, 0);
    return static_cast<std::uint8_t>(code);
}

link_t link_sample(const std::string &name, int &index)
{
    const fd_t any_socket(socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0));
    ifreq request = request_for(name);
    index = any_socket && ioctl(any_socket.number(), SIOCGIFINDEX, &request) == 0 ? request.ifr_ifindex : 0;
    if (index == 0 || !has_carrier(any_socket.number(), name))
        return {};
    return settings_of(any_socket.number(), name);
}

fd_t link_events_open()
{
    fd_t events(socket(AF_NETLINK, SOCK_RAW | SOCK_CLOEXEC | SOCK_NONBLOCK, NETLINK_ROUTE));
    sockaddr_nl address = {};
    address.nl_family = AF_NETLINK;
    address.nl_groups = RTMGRP_LINK;
    if (!events || bind(events.number(), reinterpret_cast<const sockaddr *>(&address), sizeof address) != 0)
        throw std::system_error(errno, std::generic_category(), "cannot watch network interfaces");
    return events;
}

void link_events_read(const fd_t &events, const std::function<void(const link_news_t &)> &take)
{
    constexpr unsigned both = IFF_UP | IFF_LOWER_UP;
    alignas(nlmsghdr) std::array<char, 32768> buffer;
    for (;;) {
        const ssize_t got = recv(events.number(), buffer.data(), buffer.size(), 0);
        if (got < 0 && errno == ENOBUFS) {
            take({});
            continue;
        }
        if (got <= 0)
            return;

        auto left = static_cast<unsigned>(got);
        for (auto *message = reinterpret_cast<nlmsghdr *>(buffer.data()); NLMSG_OK(message, left);
             message = NLMSG_NEXT(message, left)) {
            if (message->nlmsg_len < NLMSG_LENGTH(sizeof(ifinfomsg)))
                continue;
            const auto *info = static_cast<const ifinfomsg *>(NLMSG_DATA(message));
            if (message->nlmsg_type == RTM_NEWLINK)
                take({info->ifi_index, (info->ifi_flags & both) == both, master_in(message)});
            else if (message->nlmsg_type == RTM_DELLINK)
                take({info->ifi_index, false, master_in(message)});
        }
    }
}
