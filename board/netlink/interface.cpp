#include "board/netlink/interface.h"

#include <algorithm>
#include <cstring>
#include <map>
#include <string_view>

#include <libmnl/libmnl.h>
#include <linux/if.h>
#include <linux/if_bridge.h>
#include <linux/if_link.h>
#include <linux/rtnetlink.h>

namespace {

using attributes_t = std::map<std::uint16_t, const nlattr *>;

int keep(const nlattr *attribute, void *data)
{
    (*static_cast<attributes_t *>(data))[mnl_attr_get_type(attribute)] = attribute;
    return MNL_CB_OK;
}

attributes_t within(const nlattr *nest)
{
    attributes_t found;
    mnl_attr_parse_nested(nest, keep, &found);
    return found;
}

/// The attributes of one place, of which a sound message has each in its right length.
class reader_t {
public:
    explicit reader_t(attributes_t attributes) : attributes_(std::move(attributes)) {}

    template <typename number_t>
    std::optional<number_t> number(std::uint16_t type)
    {
        const nlattr *attribute = find(type, sizeof(number_t), sizeof(number_t));
        number_t value;
        if (attribute == nullptr)
            return {};
        std::memcpy(&value, mnl_attr_get_payload(attribute), sizeof value);
        return value;
    }

    std::string text(std::uint16_t type)
    {
        const nlattr *attribute = find(type, 1, UINT16_MAX);
        if (attribute == nullptr)
            return {};
        const std::string_view octets(mnl_attr_get_str(attribute), mnl_attr_get_payload_len(attribute));
        sound_ = sound_ && octets.ends_with('\0');
        return std::string(octets.substr(0, octets.find('\0')));
    }

    /// What is nested there; nothing where that is missing.
    reader_t nest(std::uint16_t type)
    {
        const nlattr *attribute = find(type, 0, UINT16_MAX);
        return reader_t(attribute != nullptr ? within(attribute) : attributes_t());
    }

    const nlattr *find(std::uint16_t type, std::size_t shortest, std::size_t longest)
    {
        const auto found = attributes_.find(type);
        if (found == attributes_.end())
            return nullptr;
        const std::size_t length = mnl_attr_get_payload_len(found->second);
        sound_ = sound_ && length >= shortest && length <= longest;
        return length >= shortest && length <= longest ? found->second : nullptr;
    }

    bool sound() const { return sound_; }

private:
    attributes_t attributes_;
    bool sound_ = true;
};

} // namespace

const char *port_state_name(port_state_t state)
{
    constexpr const char *names[] = {"disabled", "listening", "learning", "forwarding", "blocking"};
    const auto number = static_cast<std::size_t>(state);
    return number < std::size(names) ? names[number] : "unknown";
}

std::optional<interface_t> parse_interface(std::span<const std::uint8_t> message)
{
    // The message lies anywhere; the library reads it where its numbers are aligned.
    alignas(nlmsghdr) static thread_local std::array<std::uint8_t, 65536> room;
    if (message.size() > room.size())
        return {};
    std::copy(message.begin(), message.end(), room.begin());
    const auto *header = reinterpret_cast<const nlmsghdr *>(room.data());
    if (!mnl_nlmsg_ok(header, static_cast<int>(message.size())) || header->nlmsg_type != RTM_NEWLINK ||
        mnl_nlmsg_get_payload_len(header) < sizeof(ifinfomsg))
        return {};

    const auto *info = static_cast<const ifinfomsg *>(mnl_nlmsg_get_payload(header));
    attributes_t attributes;
    mnl_attr_parse(header, sizeof *info, keep, &attributes);
    reader_t reader(std::move(attributes));

    interface_t interface;
    interface.index = info->ifi_index;
    interface.name = reader.text(IFLA_IFNAME);
    interface.running = (info->ifi_flags & IFF_UP) != 0;
    const auto operstate = reader.number<std::uint8_t>(IFLA_OPERSTATE).value_or(IF_OPER_UNKNOWN);
    interface.up = interface.running && (info->ifi_flags & IFF_LOWER_UP) != 0 &&
                   (operstate == IF_OPER_UP || operstate == IF_OPER_UNKNOWN);
    if (const nlattr *mac = reader.find(IFLA_ADDRESS, 0, UINT16_MAX);
        mac != nullptr && mnl_attr_get_payload_len(mac) == interface.mac.size())
        std::memcpy(interface.mac.data(), mnl_attr_get_payload(mac), interface.mac.size());
    interface.master = static_cast<int>(reader.number<std::uint32_t>(IFLA_MASTER).value_or(0));

    reader_t port = reader.nest(IFLA_PROTINFO);
    if (info->ifi_family == AF_BRIDGE)
        if (const auto state = port.number<std::uint8_t>(IFLA_BRPORT_STATE))
            interface.port_state = static_cast<port_state_t>(*state);

    reader_t link = reader.nest(IFLA_LINKINFO);
    interface.kind = link.text(IFLA_INFO_KIND);
    reader_t data = link.nest(IFLA_INFO_DATA);
    if (interface.kind == "bridge")
        if (const auto stp = data.number<std::uint32_t>(IFLA_BR_STP_STATE))
            interface.stp = static_cast<stp_t>(*stp);

    if (!reader.sound() || !port.sound() || !link.sound() || !data.sound() || interface.index <= 0)
        return {};
    return interface;
}
