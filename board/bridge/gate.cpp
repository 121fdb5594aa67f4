#include "board/bridge/gate.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <iterator>
#include <stdexcept>
#include <string_view>
#include <system_error>

#include <fmt/format.h>
#include <fmt/ranges.h>
#include <libmnl/libmnl.h>
#include <linux/netfilter.h>
#include <linux/netfilter/nf_tables.h>
#include <linux/netfilter/nfnetlink.h>
#include <linux/netlink.h>
#include <net/if.h>
#include <nftables/libnftables.h>
#include <sys/socket.h>

#include "board/bridge/gate_table.h"

namespace {

constexpr char BPDUS[] = "ether daddr 01:80:c2:00:00:00 ";

/// Deaf ports drop what they hear, and no other port pays for that.
constexpr char DEAF_DEVICES[] = R"(table netdev {0} {{
  chain deaf {{ type filter hook ingress devices = {{ {1} }} priority -350; policy drop; }}
}}
)";

/// A rule against some frames that come from ports ("iif") or go to them ("oif").
std::string drop(const char *way, const std::set<int> &ports, const char *frames = "")
{
    if (ports.empty())
        return {};
    const std::string numbers = fmt::format("{}", fmt::join(ports, ", "));
    return fmt::format("    {}{} {} drop\n", frames, way, ports.size() == 1 ? numbers : "{ " + numbers + " }");
}

/// Before the kernel's own filters, which may change a frame.
std::string chain(const char *hook, const std::string &rules)
{
    static constexpr char text[] = "  chain {0} {{\n    type filter hook {0} priority -350; policy accept;\n{1}  }}\n";
    return rules.empty() ? "" : fmt::format(text, hook, rules);
}

std::set<int> without(const std::set<int> &all, const std::set<int> &some)
{
    std::set<int> rest;
    std::ranges::set_difference(all, some, std::inserter(rest, rest.end()));
    return rest;
}

/// A table that is made anew, or goes: made first, so that there is one to be deleted.
std::string gone(const char *family, const std::string &table)
{
    return fmt::format("table {0} {1}\ndelete table {0} {1}\n", family, table);
}

std::string deaf_text(const std::string &table, const std::vector<std::string> &devices)
{
    if (devices.empty())
        return gone("netdev", table);
    return gone("netdev", table) +
           fmt::format(DEAF_DEVICES, table, fmt::format("\"{}\"", fmt::join(devices, "\", \"")));
}

} // namespace

/// What goes to a port is dropped where it would leave, so that a port may hear and learn and yet let nothing through.
/// Every frame is held against every rule, so there are none but those that are needed now.
std::string gate_made(const std::string &table, const gate_state_t &state, const deaf_devices_t &devices)
{
    const std::set<int> shut = without(state.ports, state.open);
    const std::set<int> heard = devices ? without(shut, state.deaf) : shut;
    return gone("bridge", table) + fmt::format("table bridge {} {{\n", table) +
           (devices ? "" : chain("prerouting", drop("iif", state.deaf))) +
           chain("input", drop("iif", state.ports, BPDUS) + drop("iif", heard)) +
           chain("forward", drop("iif", state.ports, BPDUS) + drop("iif", heard) + drop("oif", shut)) +
           chain("output", drop("oif", state.ports, BPDUS) + drop("oif", shut)) + "}\n" +
           (devices ? deaf_text(table, *devices) : "");
}

bool tells_of_loss(const std::string &table, const void *message, std::size_t length)
{
    const auto *header = static_cast<const nlmsghdr *>(message);
    if (length < sizeof *header || !mnl_nlmsg_ok(header, static_cast<int>(length)) ||
        mnl_nlmsg_get_payload_len(header) < sizeof(nfgenmsg))
        return false;
    const unsigned subsystem = header->nlmsg_type >> 8, type = header->nlmsg_type & 0xFF;
    const bool loss = type == NFT_MSG_DELTABLE || type == NFT_MSG_DELCHAIN || type == NFT_MSG_DELRULE ||
                      type == NFT_MSG_DELSET || type == NFT_MSG_DELSETELEM;
    const auto *family = static_cast<const nfgenmsg *>(mnl_nlmsg_get_payload(header));
    if (subsystem != NFNL_SUBSYS_NFTABLES || !loss ||
        (family->nfgen_family != NFPROTO_BRIDGE && family->nfgen_family != NFPROTO_NETDEV))
        return false;

    struct search_t {
        std::string_view table;
        bool found = false;
    } search{table};
    mnl_attr_parse(
        header, sizeof(nfgenmsg),
        [](const nlattr *attribute, void *data) {
            auto *wanted = static_cast<search_t *>(data);
            const std::string_view text(static_cast<const char *>(mnl_attr_get_payload(attribute)),
                                        mnl_attr_get_payload_len(attribute));
            if (mnl_attr_get_type(attribute) == NFTA_TABLE_NAME) // and so it is in all these messages
                wanted->found = text.substr(0, text.find('\0')) == wanted->table;
            return MNL_CB_OK;
        },
        &search);
    return search.found;
}

gate_t::gate_t(const std::string &bridge)
    : table_(gate_table(bridge)), firewall_(nft_ctx_new(NFT_CTX_DEFAULT), nft_ctx_free),
      events_(socket(AF_NETLINK, SOCK_RAW | SOCK_CLOEXEC | SOCK_NONBLOCK, NETLINK_NETFILTER))
{
    sockaddr_nl address = {};
    address.nl_family = AF_NETLINK;
    address.nl_groups = 1U << (NFNLGRP_NFTABLES - 1);
    if (!events_ || bind(events_.number(), reinterpret_cast<const sockaddr *>(&address), sizeof address) != 0)
        throw std::system_error(errno, std::generic_category(), "cannot watch the firewall");
    if (!firewall_)
        throw std::runtime_error("the firewall's library cannot be used");
    nft_ctx_buffer_error(firewall_.get());
    nft_ctx_buffer_output(firewall_.get());
}

void gate_t::run(const std::string &commands)
{
    if (nft_run_cmd_from_buffer(firewall_.get(), commands.c_str()) == 0)
        return;
    const char *words = nft_ctx_get_error_buffer(firewall_.get());
    throw std::runtime_error(fmt::format("the firewall refuses the table {}: {}", table_, words ? words : "no reason"));
}

/// Whether something of the table was taken away since the last question.
bool gate_t::lost()
{
    alignas(nlmsghdr) std::array<char, 32768> buffer;
    bool lost = false;
    for (;;) {
        const ssize_t got = recv(events_.number(), buffer.data(), buffer.size(), 0);
        if (got < 0 && errno == ENOBUFS) {
            lost = true; // perhaps; nobody tells
            continue;
        }
        if (got <= 0)
            return lost;
        int left = static_cast<int>(got);
        for (auto *message = reinterpret_cast<nlmsghdr *>(buffer.data()); mnl_nlmsg_ok(message, left);
             message = mnl_nlmsg_next(message, &left))
            lost = lost || tells_of_loss(table_, message, message->nlmsg_len);
    }
}

void gate_t::set(const gate_state_t &state)
{
    if (there_ && state == state_)
        return;
    state_ = state;
    make();
    lost(); // what was told of these changes themselves
}

/// The names of what is deaf now; what is gone has none, and says nothing.
deaf_devices_t gate_t::deaf_devices() const
{
    if (!by_device_)
        return {};
    std::vector<std::string> names;
    std::array<char, IF_NAMESIZE> name;
    for (const int index : state_.deaf)
        if (if_indextoname(static_cast<unsigned>(index), name.data()) != nullptr)
            names.emplace_back(name.data());
    return names;
}

void gate_t::make()
{
    there_ = false; // until the next attempt, should this one fail
    try {
        run(gate_made(table_, state_, deaf_devices()));
    } catch (const std::runtime_error &) {
        if (!by_device_)
            throw;
        remove_devices();
        by_device_ = false;
        run(gate_made(table_, state_, {}));
    }
    there_ = true;
}

void gate_t::remove_devices()
{
    try {
        run(gone("netdev", table_));
    } catch (const std::runtime_error &) { // there are none where it knows none
    }
}

void gate_t::remove()
{
    run(gone("bridge", table_));
    remove_devices();
    there_ = false;
    lost();
}

bool gate_t::look_after()
{
    if (!lost() || !there_)
        return false;
    make();
    lost();
    return true;
}
