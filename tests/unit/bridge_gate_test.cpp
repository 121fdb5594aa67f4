// The firewall's table: its name, its text, and the news that it is gone.
#include <gmock/gmock.h>

#include <cstring>
#include <vector>

#include <linux/netfilter.h>
#include <linux/netfilter/nf_tables.h>
#include <linux/netfilter/nfnetlink.h>
#include <linux/netlink.h>

#include "board/bridge/gate.h"
#include "board/bridge/gate_table.h"

using testing::HasSubstr;
using testing::Not;

namespace {

TEST(bridge_gate, its_name_says_whose_it_is)
{
    EXPECT_EQ(gate_table("br0"), "lvt_bridge_br0");
    EXPECT_EQ(gate_table("br-lan"), "lvt_bridge_br_2dlan");
    EXPECT_EQ(gate_table("br_lan"), "lvt_bridge_br_5flan");
    EXPECT_EQ(gate_table("a.b"), "lvt_bridge_a_2eb");
}

TEST(bridge_gate, a_closed_one_lets_nothing_pass_and_hears_nothing)
{
    EXPECT_EQ(gate_made("t", {{3, 4}, {3, 4}, {}}, {{"lan1", "lan2"}}), R"(table bridge t
delete table bridge t
table bridge t {
  chain input {
    type filter hook input priority -350; policy accept;
    ether daddr 01:80:c2:00:00:00 iif { 3, 4 } drop
  }
  chain forward {
    type filter hook forward priority -350; policy accept;
    ether daddr 01:80:c2:00:00:00 iif { 3, 4 } drop
    oif { 3, 4 } drop
  }
  chain output {
    type filter hook output priority -350; policy accept;
    ether daddr 01:80:c2:00:00:00 oif { 3, 4 } drop
    oif { 3, 4 } drop
  }
}
table netdev t
delete table netdev t
table netdev t {
  chain deaf { type filter hook ingress devices = { "lan1", "lan2" } priority -350; policy drop; }
}
)");
}

TEST(bridge_gate, frames_of_open_ports_meet_no_rule_but_that_about_bpdus)
{
    EXPECT_EQ(gate_made("t", {{3, 4}, {}, {3, 4, 5}}, deaf_devices_t(std::vector<std::string>())), R"(table bridge t
delete table bridge t
table bridge t {
  chain input {
    type filter hook input priority -350; policy accept;
    ether daddr 01:80:c2:00:00:00 iif { 3, 4 } drop
  }
  chain forward {
    type filter hook forward priority -350; policy accept;
    ether daddr 01:80:c2:00:00:00 iif { 3, 4 } drop
  }
  chain output {
    type filter hook output priority -350; policy accept;
    ether daddr 01:80:c2:00:00:00 oif { 3, 4 } drop
  }
}
table netdev t
delete table netdev t
)");
}

TEST(bridge_gate, a_port_that_learns_is_heard_and_passes_nothing)
{
    EXPECT_THAT(gate_made("t", {{3, 4}, {}, {4}}, deaf_devices_t(std::vector<std::string>())), HasSubstr(R"(
    ether daddr 01:80:c2:00:00:00 iif { 3, 4 } drop
    iif 3 drop
    oif 3 drop
  }
)"));
}

TEST(bridge_gate, a_firewall_that_knows_no_devices_looks_at_every_frame)
{
    EXPECT_EQ(gate_made("t", {{3, 4}, {3}, {4}}, {}), R"(table bridge t
delete table bridge t
table bridge t {
  chain prerouting {
    type filter hook prerouting priority -350; policy accept;
    iif 3 drop
  }
  chain input {
    type filter hook input priority -350; policy accept;
    ether daddr 01:80:c2:00:00:00 iif { 3, 4 } drop
    iif 3 drop
  }
  chain forward {
    type filter hook forward priority -350; policy accept;
    ether daddr 01:80:c2:00:00:00 iif { 3, 4 } drop
    iif 3 drop
    oif 3 drop
  }
  chain output {
    type filter hook output priority -350; policy accept;
    ether daddr 01:80:c2:00:00:00 oif { 3, 4 } drop
    oif 3 drop
  }
}
)");
}

/// A message of the kernel about a table, with what may be wrong about it.
std::vector<char> news(unsigned type, const std::string &table, unsigned char family = NFPROTO_BRIDGE,
                       unsigned subsystem = NFNL_SUBSYS_NFTABLES)
{
    const std::size_t attribute = sizeof(nlattr) + table.size() + 1;
    std::vector<char> octets(sizeof(nlmsghdr) + sizeof(nfgenmsg) + (attribute + 3) / 4 * 4);
    const nlmsghdr header = {static_cast<__u32>(octets.size()), static_cast<__u16>(subsystem << 8 | type), 0, 0, 0};
    const nfgenmsg body = {family, 0, 0};
    const nlattr name = {static_cast<__u16>(attribute), NFTA_TABLE_NAME};
    std::memcpy(octets.data(), &header, sizeof header);
    std::memcpy(octets.data() + sizeof header, &body, sizeof body);
    std::memcpy(octets.data() + sizeof header + sizeof body, &name, sizeof name);
    std::memcpy(octets.data() + sizeof header + sizeof body + sizeof name, table.c_str(), table.size());
    return octets;
}

bool is_loss(const std::vector<char> &message) { return tells_of_loss("t", message.data(), message.size()); }

TEST(bridge_gate, only_what_is_taken_from_this_table_is_a_loss)
{
    for (const unsigned type :
         {NFT_MSG_DELTABLE, NFT_MSG_DELCHAIN, NFT_MSG_DELRULE, NFT_MSG_DELSET, NFT_MSG_DELSETELEM})
        EXPECT_TRUE(is_loss(news(type, "t"))) << type;
    EXPECT_FALSE(is_loss(news(NFT_MSG_NEWRULE, "t")));
    EXPECT_FALSE(is_loss(news(NFT_MSG_DELTABLE, "tt")));
    EXPECT_FALSE(is_loss(news(NFT_MSG_DELTABLE, "")));
    EXPECT_TRUE(is_loss(news(NFT_MSG_DELTABLE, "t", NFPROTO_NETDEV)));
    EXPECT_FALSE(is_loss(news(NFT_MSG_DELTABLE, "t", NFPROTO_IPV4)));
    EXPECT_FALSE(is_loss(news(NFT_MSG_DELTABLE, "t", NFPROTO_BRIDGE, NFNL_SUBSYS_CTNETLINK)));
}

TEST(bridge_gate, what_is_cut_off_is_no_loss)
{
    const std::vector<char> whole = news(NFT_MSG_DELTABLE, "t");
    for (std::size_t length = 0; length < whole.size(); length++)
        EXPECT_FALSE(tells_of_loss("t", whole.data(), length)) << length;
}

} // namespace
