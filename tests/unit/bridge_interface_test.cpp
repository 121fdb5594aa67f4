// What the kernel tells of interfaces, in messages that are sound and others.
#include <gmock/gmock.h>

#include <cstring>
#include <vector>

#include <linux/if.h>
#include <linux/if_bridge.h>
#include <linux/if_link.h>
#include <linux/rtnetlink.h>
#include <sys/socket.h>

#include "board/netlink/interface.h"

namespace {

using octets_t = std::vector<std::uint8_t>;

template <typename record_t>
octets_t octets_of(const record_t &record)
{
    const auto *first = reinterpret_cast<const std::uint8_t *>(&record);
    return {first, first + sizeof record};
}

octets_t text(const std::string &words) { return {words.c_str(), words.c_str() + words.size() + 1}; }

octets_t operator+(octets_t left, const octets_t &right)
{
    left.insert(left.end(), right.begin(), right.end());
    return left;
}

octets_t attribute(int type, const octets_t &value)
{
    octets_t octets =
        octets_of(nlattr{static_cast<__u16>(sizeof(nlattr) + value.size()), static_cast<__u16>(type)}) + value;
    octets.resize((octets.size() + 3) / 4 * 4);
    return octets;
}

octets_t message(unsigned char family, unsigned flags, const octets_t &attributes, int index = 7,
                 unsigned type = RTM_NEWLINK)
{
    ifinfomsg info = {};
    info.ifi_family = family;
    info.ifi_index = index;
    info.ifi_flags = flags;
    const octets_t body = octets_of(info) + attributes;
    return octets_of(nlmsghdr{static_cast<__u32>(sizeof(nlmsghdr) + body.size()), static_cast<__u16>(type), 0, 0, 0}) +
           body;
}

constexpr unsigned UP = IFF_UP | IFF_LOWER_UP;

octets_t port_message()
{
    return message(AF_BRIDGE, UP,
                   attribute(IFLA_IFNAME, text("lan1")) + attribute(IFLA_MASTER, octets_of(std::uint32_t{3})) +
                       attribute(IFLA_OPERSTATE, {IF_OPER_UP}) + attribute(IFLA_ADDRESS, {2, 0, 0, 0, 0, 9}) +
                       attribute(IFLA_PROTINFO | NLA_F_NESTED, attribute(IFLA_BRPORT_STATE, {4})));
}

octets_t bridge_message(std::uint32_t stp, const std::string &kind = "bridge")
{
    return message(
        AF_UNSPEC, UP,
        attribute(IFLA_IFNAME, text("br0")) +
            attribute(IFLA_LINKINFO,
                      attribute(IFLA_INFO_KIND, text(kind)) +
                          attribute(IFLA_INFO_DATA, attribute(IFLA_BR_STP_STATE, octets_of(std::uint32_t{stp})))));
}

TEST(bridge_interface, a_port_is_read)
{
    const auto port = parse_interface(port_message());
    ASSERT_TRUE(port);
    const interface_t expected = {
        .index = 7,
        .name = "lan1",
        .running = true,
        .up = true,
        .mac = {2, 0, 0, 0, 0, 9},
        .master = 3,
        .kind = "",
        .port_state = port_state_t::blocking,
        .stp = {},
    };
    EXPECT_EQ(*port, expected);
}

TEST(bridge_interface, a_bridge_is_read)
{
    const auto bridge = parse_interface(bridge_message(2));
    ASSERT_TRUE(bridge);
    EXPECT_EQ(bridge->kind, "bridge");
    EXPECT_EQ(bridge->stp, stp_t::user_space);
    EXPECT_FALSE(bridge->port_state);
    EXPECT_FALSE(parse_interface(bridge_message(1, "vlan"))->stp);
}

TEST(bridge_interface, a_link_is_up_when_nothing_is_in_its_way)
{
    const auto up = [](unsigned flags, unsigned char operstate) {
        return parse_interface(message(AF_BRIDGE, flags, attribute(IFLA_OPERSTATE, {operstate})))->up;
    };
    EXPECT_TRUE(up(UP, IF_OPER_UP));
    EXPECT_TRUE(up(UP, IF_OPER_UNKNOWN));
    EXPECT_FALSE(up(UP, IF_OPER_DORMANT));
    EXPECT_FALSE(up(UP, IF_OPER_LOWERLAYERDOWN));
    EXPECT_FALSE(up(IFF_UP, IF_OPER_UP));
    EXPECT_FALSE(up(IFF_LOWER_UP, IF_OPER_UP));
}

TEST(bridge_interface, what_is_cut_off_is_nothing)
{
    for (const octets_t &whole : {port_message(), bridge_message(0)})
        for (std::size_t length = 0; length < whole.size(); length++)
            EXPECT_FALSE(parse_interface(std::span(whole).first(length))) << length;
}

TEST(bridge_interface, what_is_not_sound_is_nothing)
{
    const octets_t name = attribute(IFLA_IFNAME, text("lan1"));
    EXPECT_TRUE(parse_interface(message(AF_BRIDGE, UP, name)));
    EXPECT_FALSE(parse_interface(message(AF_BRIDGE, UP, name, 7, RTM_DELLINK)));
    EXPECT_FALSE(parse_interface(message(AF_BRIDGE, UP, name, 0)));
    EXPECT_FALSE(parse_interface(message(AF_BRIDGE, UP, name, -1)));
    const octets_t bad_ones[] = {
        attribute(IFLA_IFNAME, {'l', 'a', 'n'}), // without an end
        attribute(IFLA_IFNAME, {}),              //
        attribute(IFLA_MASTER, {3}),             // too short
        attribute(IFLA_OPERSTATE, {6, 0, 0, 0}), // too long
        attribute(IFLA_PROTINFO, attribute(IFLA_BRPORT_STATE, {})),
        attribute(IFLA_LINKINFO, attribute(IFLA_INFO_KIND, text("bridge")) +
                                     attribute(IFLA_INFO_DATA, attribute(IFLA_BR_STP_STATE, {1}))),
        attribute(IFLA_LINKINFO, attribute(IFLA_INFO_KIND, {'x'})),
    };
    for (const octets_t &bad : bad_ones)
        EXPECT_FALSE(parse_interface(message(AF_BRIDGE, UP, bad))) << testing::PrintToString(bad);
}

TEST(bridge_interface, lengths_that_lie_lead_nowhere)
{
    // Every octet of a sound message becomes every power of two, and its opposite: whatever is read of it, nothing of
    // what lies around it may be.
    for (const octets_t &whole : {port_message(), bridge_message(1)})
        for (std::size_t at = 0; at < whole.size(); at++)
            for (unsigned bit = 0; bit < 8; bit++) {
                octets_t changed = whole;
                changed[at] = static_cast<std::uint8_t>(changed[at] ^ 1U << bit);
                const auto read = parse_interface(changed);
                EXPECT_TRUE(!read || read->name.size() <= whole.size());
            }
}

TEST(bridge_interface, states_have_the_kernels_names)
{
    EXPECT_STREQ(port_state_name(port_state_t::disabled), "disabled");
    EXPECT_STREQ(port_state_name(port_state_t::blocking), "blocking");
    EXPECT_STREQ(port_state_name(static_cast<port_state_t>(5)), "unknown");
}

} // namespace
