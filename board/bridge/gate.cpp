#include "board/bridge/gate.h"

#include <array>
#include <cctype>
#include <cstring>
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
#include <nftables/libnftables.h>
#include <sys/socket.h>

namespace {

/// Before the kernel's own filters, which may change a frame. What goes to a port is dropped where it would leave, so
/// that a port may hear and learn and yet let nothing through. Every frame pays for what is looked up, so what usually
/// passes is found first, with three questions on its way from port to port.
constexpr char CHAINS[] = R"(  chain prerouting {{
    type filter hook prerouting priority -350; policy accept;
    ether daddr 01:80:c2:00:00:00 iif @ports drop
    iif @deaf drop
  }}
  chain input {{
    type filter hook input priority -350; policy accept;
    iif @open accept
    iif @ports drop
  }}
  chain forward {{
    type filter hook forward priority -350; policy accept;
    iif @open oif @open accept
    iif @ports drop
    oif @ports drop
  }}
  chain output {{
    type filter hook output priority -350; policy accept;
    ether daddr 01:80:c2:00:00:00 oif @ports drop
    oif @open accept
    oif @ports drop
  }}
)";

constexpr int PORTS_MAX = 1024; ///< that the kernel gives a bridge; sets that cannot grow are quicker

std::string set_text(const char *name, const std::set<int> &numbers)
{
    const std::string elements = numbers.empty() ? "" : fmt::format(" elements = {{ {} }};", fmt::join(numbers, ", "));
    return fmt::format("  set {} {{ type iface_index; size {};{} }}\n", name, PORTS_MAX, elements);
}

std::string change_text(const std::string &table, const char *name, const std::set<int> &numbers)
{
    std::string text = fmt::format("flush set bridge {} {}\n", table, name);
    if (!numbers.empty())
        text += fmt::format("add element bridge {} {} {{ {} }}\n", table, name, fmt::join(numbers, ", "));
    return text;
}

} // namespace

std::string gate_table(const std::string &bridge)
{
    std::string name = "lvt_bridge_";
    for (const char letter : bridge)
        if (std::isalnum(static_cast<unsigned char>(letter)) != 0)
            name += letter;
        else
            name += fmt::format("_{:02x}", static_cast<unsigned char>(letter));
    return name;
}

std::string gate_made(const std::string &table, const gate_state_t &state)
{
    // Made first, so that there is one to be deleted.
    return fmt::format("table bridge {0}\ndelete table bridge {0}\ntable bridge {0} {{\n{1}{2}{3}{4}}}\n", table,
                       set_text("ports", state.ports), set_text("deaf", state.deaf), set_text("open", state.open),
                       fmt::format(CHAINS));
}

std::string gate_changed(const std::string &table, const gate_state_t &state)
{
    return change_text(table, "ports", state.ports) + change_text(table, "deaf", state.deaf) +
           change_text(table, "open", state.open);
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
    if (subsystem != NFNL_SUBSYS_NFTABLES || !loss || family->nfgen_family != NFPROTO_BRIDGE)
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
    bool lost_before = there_ && lost();
    if (there_ && !lost_before) {
        try {
            run(gate_changed(table_, state));
        } catch (const std::runtime_error &) {
            lost_before = true;
        }
    }
    state_ = state;
    if (!there_ || lost_before)
        make();
    lost(); // what was told of these changes themselves
}

void gate_t::make()
{
    there_ = false; // until the next attempt, should this one fail
    run(gate_made(table_, state_));
    there_ = true;
}

void gate_t::remove()
{
    run(fmt::format("table bridge {0}\ndelete table bridge {0}\n", table_));
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
