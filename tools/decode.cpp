#include "tools/decode.h"

#include <algorithm>

#include <fmt/format.h>
#include <fmt/ranges.h>

#include "board/chip/ports.h"
#include "l2_proto_utility/cpu_tag.h"
#include "rstp/bpdu.h"
#include "tools/bpdu_frame.h"
#include "tools/hex.h"
#include "tools/messages.h"
#include "tools/printable.h"
#include "tools/words.h"

namespace {

using octets_t = std::span<const uint8_t>;

bool begins(octets_t octets, octets_t start)
{
    return octets.size() >= start.size() && std::ranges::equal(octets.first(start.size()), start);
}

/// Collects the fields of records, one record after the other.
class fields_t {
public:
    explicit fields_t(octets_t octets) : octets_(octets) {}

    std::vector<decoded_field_t> fields;
    bool truncated = false;

    /// A record that begins at `offset`, zero where octets are missing, as the daemon reads it.
    template <typename record_t>
    record_t record(size_t offset) const
    {
        record_t record{};
        const octets_t there = from(offset);
        std::copy_n(there.begin(), std::min(there.size(), sizeof record), reinterpret_cast<uint8_t *>(&record));
        return record;
    }

    void add(size_t offset, size_t size, const std::string &name, const std::string &value)
    {
        const octets_t there = from(offset).first(std::min(size, from(offset).size()));
        truncated = truncated || there.size() < size;
        fields.push_back({offset, {there.begin(), there.end()}, name, there.size() < size ? "cut off" : value});
    }

    /// The member of a record that was read at `offset`.
    template <typename record_t, typename member_t>
    void add(size_t offset, const record_t &record, const member_t &member, const std::string &name,
             const std::string &value)
    {
        const auto place = reinterpret_cast<const char *>(&member) - reinterpret_cast<const char *>(&record);
        add(offset + static_cast<size_t>(place), sizeof member, name, value);
    }

    octets_t from(size_t offset) const { return octets_.subspan(std::min(offset, octets_.size())); }

private:
    octets_t octets_;
};

std::string number(uint64_t value) { return fmt::to_string(value); }

// ---- frames ----------------------------------------------------------------------------

bool is_tagged(octets_t frame) { return has_cpu_tag(frame.data(), frame.size()); }

std::string tag_words(octets_t frame)
{
    for (unsigned front = 1; front <= BOARD_PORTS; front++)
        if (cpu_tag_ports(frame.data()) == 1u << chip_port_of_front(front))
            return fmt::format("out of front port {}", front);
    return "no single front port";
}

/// Tags and headers between a frame's addresses and its BPDU.
struct envelope_t {
    size_t tag = 0;             ///< octets of the switch tag
    std::vector<size_t> vlans;  ///< offsets of VLAN tags, the outer first
    size_t snap = 0;            ///< octets that the header of a per-VLAN BPDU has more than LLC alone
    std::vector<uint8_t> plain; ///< the frame as if it had none of them

    size_t tags() const { return tag + VLAN_TAG_OCTETS * vlans.size(); }
    static constexpr size_t VLAN_TAG_OCTETS = 4;
};

constexpr size_t TAGS_OFFSET = offsetof(bpdu_t, length); // behind the addresses
constexpr uint8_t PER_VLAN_HEADER[] = {0xAA, 0xAA, 0x03, 0x00, 0x00, 0x0C, 0x01, 0x0B};
constexpr uint8_t LLC_HEADER[] = {BPDU_LLC_SAP, BPDU_LLC_SAP, BPDU_LLC_CONTROL};

/// 16 bits of the frame; -1 where it ends before.
int get16(octets_t frame, size_t offset) { return frame.size() < offset + 2 ? -1 : bpdu_get16(&frame[offset]); }

bool is_vlan_tag(int ether_type) { return ether_type == 0x8100 || ether_type == 0x88A8 || ether_type == 0x9100; }

envelope_t open_envelope(octets_t frame)
{
    envelope_t envelope;
    envelope.tag = is_tagged(frame) ? RSTP_CPU_TAG_OCTETS : 0;
    while (is_vlan_tag(get16(frame, TAGS_OFFSET + envelope.tags())))
        envelope.vlans.push_back(TAGS_OFFSET + envelope.tags());

    std::vector<uint8_t> &plain = envelope.plain;
    plain.assign(frame.begin(), frame.end());
    const size_t begin = std::min(TAGS_OFFSET, plain.size());
    const auto tags = plain.begin() + static_cast<long>(begin);
    plain.erase(tags, tags + static_cast<long>(std::min(envelope.tags(), plain.size() - begin)));
    if (plain.size() > BPDU_ETHERNET_OCTETS && begins(octets_t(plain).subspan(BPDU_ETHERNET_OCTETS), PER_VLAN_HEADER)) {
        envelope.snap = std::size(PER_VLAN_HEADER) - std::size(LLC_HEADER);
        const auto header = plain.begin() + BPDU_ETHERNET_OCTETS;
        std::ranges::copy(LLC_HEADER, header);
        plain.erase(header + BPDU_LLC_OCTETS, header + std::size(PER_VLAN_HEADER));
    }
    return envelope;
}

int vlan_of(octets_t frame, size_t tag) { return get16(frame, tag + 2) & 0xFFF; }

/// What follows an MST BPDU's version 1 length, after a length of its own.
struct mst_t {
    uint8_t length[2];
    uint8_t format;
    uint8_t name[32];
    uint8_t revision[2];
    uint8_t digest[16];
    uint8_t internal_cost[4];
    uint8_t bridge_priority[2];
    uint8_t bridge_address[6];
    uint8_t remaining_hops;
};

struct mst_instance_t {
    uint8_t flags;
    uint8_t root_priority[2]; ///< with the instance in its lower 12 bits
    uint8_t root_address[6];
    uint8_t internal_cost[4];
    uint8_t bridge_priority;
    uint8_t port_priority;
    uint8_t remaining_hops;
};
static_assert(sizeof(mst_t) == 66 && sizeof(mst_instance_t) == 16);

bool is_mst(octets_t plain)
{
    const bpdu_t bpdu = read_bpdu(plain);
    return bpdu.type == BPDU_TYPE_RST && bpdu.version >= 3 && get16(plain, sizeof(bpdu_t)) > 0;
}

const char *bpdu_name(uint8_t type)
{
    switch (type) {
    case BPDU_TYPE_CONFIG:
        return "configuration BPDU";
    case BPDU_TYPE_RST:
        return "RST BPDU";
    case BPDU_TYPE_TCN:
        return "topology change notification";
    default:
        return "BPDU of unknown type";
    }
}

std::string version_words(uint8_t version)
{
    return fmt::format("{}{}", version,
                       version == 0   ? ", STP"
                       : version == 2 ? ", RSTP"
                       : version > 2  ? ", taken as RSTP" // MSTP and what came after it
                                      : "");
}

std::string time_words(const uint8_t *time) { return fmt::format("{} s", bpdu_get16(time) / 256.0); }

std::string port_id_words(const uint8_t *id)
{
    return fmt::format("port {}, priority {}", bpdu_get16(id) & 0xFFF, id[0] & 0xF0);
}

/// The fields behind the type, which a notification does not have.
void add_bpdu_body(fields_t &fields, size_t at, const bpdu_t &bpdu)
{
    fields.add(at, bpdu, bpdu.flags, "flags", bpdu_flags_words(bpdu.type, bpdu.flags));
    fields.add(at, bpdu, bpdu.root_priority, "root priority", number(bpdu_get16(bpdu.root_priority)));
    fields.add(at, bpdu, bpdu.root_address, "root address", address_text(bpdu.root_address));
    fields.add(at, bpdu, bpdu.root_path_cost, "root path cost", number(bpdu_get32(bpdu.root_path_cost)));
    fields.add(at, bpdu, bpdu.bridge_priority, "bridge priority", number(bpdu_get16(bpdu.bridge_priority)));
    fields.add(at, bpdu, bpdu.bridge_address, "bridge address", address_text(bpdu.bridge_address));
    fields.add(at, bpdu, bpdu.port_id, "port identifier", port_id_words(bpdu.port_id));
    fields.add(at, bpdu, bpdu.message_age, "message age", time_words(bpdu.message_age));
    fields.add(at, bpdu, bpdu.max_age, "max age", time_words(bpdu.max_age));
    fields.add(at, bpdu, bpdu.hello_time, "hello time", time_words(bpdu.hello_time));
    fields.add(at, bpdu, bpdu.forward_delay, "forward delay", time_words(bpdu.forward_delay));
    if (bpdu.type == BPDU_TYPE_RST)
        fields.add(at, bpdu, bpdu.version_1_length, "version 1 length", number(bpdu.version_1_length));
}

std::string name_words(std::span<const uint8_t> name)
{
    return fmt::format("\"{}\"", printable(std::string(name.begin(), std::ranges::find(name, 0))));
}

void add_mst_instance(fields_t &fields, size_t at)
{
    const auto instance = fields.record<mst_instance_t>(at);
    const unsigned root = bpdu_get16(instance.root_priority);
    const std::string whose = fmt::format("MSTI {} ", root & 0xFFF);
    fields.add(at, instance, instance.flags, whose + "flags", bpdu_flags_words(BPDU_TYPE_RST, instance.flags & 0x7F));
    fields.add(at, instance, instance.root_priority, whose + "root priority", number(root & 0xF000));
    fields.add(at, instance, instance.root_address, whose + "root address", address_text(instance.root_address));
    fields.add(at, instance, instance.internal_cost, whose + "internal cost",
               number(bpdu_get32(instance.internal_cost)));
    fields.add(at, instance, instance.bridge_priority, whose + "bridge prio.", number(instance.bridge_priority << 8));
    fields.add(at, instance, instance.port_priority, whose + "port priority", number(instance.port_priority));
    fields.add(at, instance, instance.remaining_hops, whose + "hops left", number(instance.remaining_hops));
}

/// Returns where it ends.
size_t add_mst(fields_t &fields, size_t at)
{
    const auto mst = fields.record<mst_t>(at);
    const size_t length = bpdu_get16(mst.length);
    fields.add(at, mst, mst.length, "version 3 length", number(length));
    fields.add(at, mst, mst.format, "configuration format", number(mst.format));
    fields.add(at, mst, mst.name, "configuration name", name_words(mst.name));
    fields.add(at, mst, mst.revision, "configuration revision", number(bpdu_get16(mst.revision)));
    fields.add(at, mst, mst.digest, "configuration digest", hex(mst.digest, ""));
    fields.add(at, mst, mst.internal_cost, "CIST internal cost", number(bpdu_get32(mst.internal_cost)));
    fields.add(at, mst, mst.bridge_priority, "CIST bridge priority", number(bpdu_get16(mst.bridge_priority)));
    fields.add(at, mst, mst.bridge_address, "CIST bridge address", address_text(mst.bridge_address));
    fields.add(at, mst, mst.remaining_hops, "CIST hops left", number(mst.remaining_hops));
    const size_t end = at + std::max(sizeof mst, sizeof mst.length + length);
    for (at += sizeof mst; at + sizeof(mst_instance_t) <= end && !fields.truncated; at += sizeof(mst_instance_t))
        add_mst_instance(fields, at);
    return at;
}

/// A frame from `offset` to the end.
void add_frame(fields_t &fields, size_t offset)
{
    const octets_t frame = fields.from(offset);
    const envelope_t envelope = open_envelope(frame);
    const bool tagged = envelope.tag;
    size_t at = offset + envelope.tags(); // of all that comes behind the addresses

    const std::vector<uint8_t> &plain = envelope.plain;
    const bpdu_t bpdu = read_bpdu(plain);
    fields.add(offset, bpdu, bpdu.destination, "destination", address_text(bpdu.destination));
    fields.add(offset, bpdu, bpdu.source, "source", address_text(bpdu.source));
    if (tagged)
        fields.add(offset + RSTP_CPU_TAG_OFFSET, RSTP_CPU_TAG_OCTETS, "switch tag", tag_words(frame));
    for (const size_t vlan : envelope.vlans)
        fields.add(offset + vlan, envelope_t::VLAN_TAG_OCTETS, "VLAN tag",
                   fmt::format("VLAN {}, priority {}", vlan_of(frame, vlan), get16(frame, vlan + 2) >> 13 & 7));
    fields.add(at, bpdu, bpdu.length, "length", number(bpdu_get16(bpdu.length)));
    if (!is_bpdu(plain)) {
        fields.add(at + BPDU_ETHERNET_OCTETS, fields.from(at + BPDU_ETHERNET_OCTETS).size(), "payload", "no BPDU");
        return;
    }

    fields.add(at + offsetof(bpdu_t, dsap), BPDU_LLC_OCTETS + envelope.snap, envelope.snap ? "LLC and SNAP" : "LLC",
               envelope.snap ? "per-VLAN spanning tree" : "spanning tree");
    at += envelope.snap;
    fields.add(at, bpdu, bpdu.protocol, "protocol", number(bpdu_get16(bpdu.protocol)));
    fields.add(at, bpdu, bpdu.version, "version", version_words(bpdu.version));
    fields.add(at, bpdu, bpdu.type, "type", bpdu_name(bpdu.type));
    if (bpdu.type != BPDU_TYPE_TCN)
        add_bpdu_body(fields, at, bpdu);
    size_t end = at + BPDU_HEADER_OCTETS + bpdu_octets(bpdu.type);
    if (is_mst(plain))
        end = add_mst(fields, end);
    if (const size_t rest = fields.from(end).size())
        fields.add(end, rest, "rest", "padding or later additions");
}

/// What the fields of a whole BPDU say that they should not, in a few words; empty when nothing is wrong.
std::string bpdu_fault(const bpdu_t &bpdu)
{
    if (const unsigned protocol = bpdu_get16(bpdu.protocol))
        return fmt::format("protocol identifier {}, which is not 0", protocol);
    if (bpdu.type == BPDU_TYPE_RST && bpdu.version < 2)
        return fmt::format("version {}, which has no RST BPDUs", bpdu.version);
    const bool has_times = bpdu.type == BPDU_TYPE_CONFIG || bpdu.type == BPDU_TYPE_RST;
    if (has_times && bpdu_get16(bpdu.message_age) >= bpdu_get16(bpdu.max_age))
        return fmt::format("message age {}, not below max age {}", time_words(bpdu.message_age),
                           time_words(bpdu.max_age));
    return "";
}

std::string frame_fault(octets_t frame, bool truncated)
{
    if (truncated)
        return "the frame is cut off";
    const auto plain = open_envelope(frame).plain;
    if (!is_bpdu(plain))
        return "";
    const bpdu_t bpdu = read_bpdu(plain);
    const size_t stated = BPDU_ETHERNET_OCTETS + bpdu_get16(bpdu.length);
    const size_t there = plain.size() + open_envelope(frame).snap;
    if (stated > there)
        return fmt::format("its length field speaks of {} octets, but there are {}", stated, there);
    return bpdu_fault(bpdu);
}

decoded_t decode_frame(octets_t octets)
{
    fields_t fields(octets);
    add_frame(fields, 0);
    return {.title = frame_summary(octets),
            .fields = fields.fields,
            .fault = frame_fault(octets, fields.truncated),
            .octets = octets.size()};
}

// ---- control messages ------------------------------------------------------------------

void add_system_config(fields_t &fields, size_t at)
{
    const auto config = fields.record<lvt_rstp_system_config_t>(at);
    fields.add(at, config, config.bridge_priority, "bridge priority", number(config.bridge_priority));
    fields.add(at, config, config.max_age, "max age", fmt::format("{} s", config.max_age));
    fields.add(at, config, config.hello_time, "hello time", fmt::format("{} s", config.hello_time));
    fields.add(at, config, config.forward_delay, "forward delay", fmt::format("{} s", config.forward_delay));
    fields.add(at, config, config.force_version, "force version",
               fmt::format("{}, {}", config.force_version, force_version_word(config.force_version)));
    fields.add(at, config, config.reserved, "reserved", "");
}

void add_port_config(fields_t &fields, size_t at, const std::string &whose)
{
    const auto config = fields.record<lvt_rstp_port_config_t>(at);
    fields.add(at, config, config.adminPathCost, whose + " path cost", path_cost_word(config.adminPathCost));
    fields.add(at, config, config.port_priority, whose + " priority", number(config.port_priority));
    fields.add(at, config, config.adminEnable, whose + " spanning tree", on_off(config.adminEnable));
    fields.add(at, config, config.adminEdge, whose + " edge", on_off(config.adminEdge));
    fields.add(at, config, config.adminPointToPoint, whose + " point-to-point",
               point_to_point_word(config.adminPointToPoint));
    fields.add(at, config, config.reserved, whose + " reserved", "");
}

void add_port_configs(fields_t &fields, size_t at)
{
    fields.add(at, sizeof(lvt_rstp_port_config_t), "not used", "");
    for (size_t port = 1; port <= FRONT_PORTS; port++)
        add_port_config(fields, at + port * sizeof(lvt_rstp_port_config_t), fmt::format("port {}", port));
}

void add_port_statuses(fields_t &fields, size_t at)
{
    for (size_t port = 1; port <= FRONT_PORTS; port++, at += sizeof(rstp_port_status_t)) {
        const auto status = fields.record<rstp_port_status_t>(at);
        const std::string whose = fmt::format("port {} ", port);
        fields.add(at, status, status.ignored, whose + "reserved", "");
        fields.add(at, status, status.link, whose + "link", status.link ? "up" : "down");
        fields.add(at, status, status.speed, whose + "speed", speed_word(status.speed));
        fields.add(at, status, status.duplex, whose + "duplex", status.duplex == 1 ? "full" : "half");
    }
}

void add_aggr_status(fields_t &fields, size_t at)
{
    const auto groups = fields.record<aggr_status_t>(at);
    fields.add(at, 1, "not used", "");
    for (size_t port = 1; port <= FRONT_PORTS; port++)
        fields.add(at + port, 1, fmt::format("port {}", port), group_word(groups[port]));
}

void add_flags(fields_t &fields, size_t at, const char *what)
{
    const auto flags = fields.record<lacp_enables_t>(at);
    for (size_t port = 1; port <= FRONT_PORTS; port++)
        fields.add(at + port - 1, 1, fmt::format("port {} {}", port, what), on_off(flags[port - 1]));
}

void add_control_body(fields_t &fields, size_t at, uint8_t type, size_t size)
{
    const size_t before = fields.fields.size();
    switch (type) {
    case RSTP_MSG_BPDU:
        add_frame(fields, at);
        break;
    case RSTP_MSG_PORT_STATUS:
        add_port_statuses(fields, at);
        break;
    case RSTP_MSG_AGGR_STATUS:
        add_aggr_status(fields, at);
        break;
    case RSTP_MSG_SYSTEM_CONFIG:
        add_system_config(fields, at);
        break;
    case RSTP_MSG_AGGR_CONFIG:
        add_port_config(fields, at, "groups");
        break;
    case RSTP_MSG_PORT_CONFIG:
    case RSTP_MSG_PORT_CONFIG_ONLY:
        add_port_configs(fields, at);
        break;
    case RSTP_MSG_LACP_ENABLE:
        add_flags(fields, at, "LACP");
        break;
    default:
        break;
    }
    if (before == fields.fields.size() && size)
        fields.add(at, size, "body", "");
}

decoded_t decode_control(octets_t octets)
{
    const auto frame = fields_t(octets).record<rstp_frame_header_t>(0);
    constexpr size_t headers = sizeof(rstp_frame_header_t) + sizeof(rstp_msg_header_t);
    const size_t whole = headers + frame.length;
    fields_t fields(octets.first(std::min(octets.size(), whole)));

    const auto message = fields.record<rstp_msg_header_t>(sizeof frame);
    const bool is_bpdu_message = message.type == RSTP_MSG_BPDU;
    fields.add(0, frame, frame.magic, "magic", "control message");
    fields.add(0, frame, frame.length, "frame length", fmt::format("{} octets of body", frame.length));
    fields.add(sizeof frame, message, message.type, "type",
               fmt::format("{}, {}", message.type, message_name(message.type)));
    fields.add(sizeof frame, message, message.port, "port", is_bpdu_message ? received_on(message.port) : "ignored");
    fields.add(sizeof frame, message, message.length, "length",
               is_bpdu_message ? fmt::format("{} octets of frame", message.length) : "ignored");
    fields.add(sizeof frame, message, message.reserved, "reserved", "");
    add_control_body(fields, headers, message.type, frame.length);

    std::string fault;
    if (frame.length > RSTP_BODY_MAX)
        fault = fmt::format("a body has at most {} octets: the daemon drops this message", RSTP_BODY_MAX);
    else if (octets.size() < whole)
        fault = fmt::format("{} of its {} octets are missing", whole - octets.size(), whole);
    else if (fields.truncated)
        fault = fmt::format("the body is too short for type {}", message.type);
    const bool headed = octets.size() >= headers;
    if (headed && fault.empty() && message_name(message.type) == UNKNOWN_MESSAGE)
        fault = fmt::format("type {} is not known: the daemon ignores this message", message.type);
    return {.title = fmt::format("control message, {}{}", headed ? message_name(message.type) : "cut off",
                                 headed && fields.truncated ? ", cut off" : ""),
            .fields = fields.fields,
            .fault = fault,
            .octets = std::min(octets.size(), whole)};
}

// ---- what the daemon sends -------------------------------------------------------------

decoded_t decode_lacp(octets_t octets)
{
    const auto frame = fields_t(octets).record<lacp_frame_t>(0);
    const size_t whole = offsetof(lacp_frame_t, body) + frame.length;
    fields_t fields(octets.first(std::min(octets.size(), whole)));

    const bool known = frame.type == LACP_MSG_RSTP_STATUS;
    fields.add(0, frame, frame.magic, "magic", "to the LACP daemon");
    fields.add(0, frame, frame.length, "body length", number(frame.length));
    fields.add(0, frame, frame.type, "type", fmt::format("{}{}", frame.type, known ? ", spanning tree on ports" : ""));
    fields.add(0, frame, frame.reserved, "reserved", "");
    if (known)
        add_flags(fields, offsetof(lacp_frame_t, body), "spanning tree");
    else
        fields.add(offsetof(lacp_frame_t, body), frame.length, "body", "");
    return {.title = fields.truncated ? "message to the LACP daemon, cut off" : "message to the LACP daemon",
            .fields = fields.fields,
            .fault = fields.truncated ? "the message is cut off"
                     : known          ? ""
                                      : fmt::format("type {} is not known", frame.type),
            .octets = std::min(octets.size(), whole)};
}

decoded_t decode_mux(octets_t octets)
{
    fields_t fields(octets.first(std::min(octets.size(), sizeof(port_mux_msg_t))));
    const auto message = fields.record<port_mux_msg_t>(0);
    fields.add(0, message, message.magic, "magic", "to the port multiplexer");
    fields.add(0, message, message.length, "length", fmt::format("{}, whatever follows", message.length));
    fields.add(0, message, message.type, "type",
               fmt::format("{}{}", message.type, message.type == PORT_MUX_MSG_FORWARDING ? ", forwarding" : ""));
    fields.add(0, message, message.reserved0, "reserved", "");
    fields.add(0, message, message.l2port, "port", number(message.l2port));
    fields.add(0, message, message.reserved1, "reserved", "");
    fields.add(0, message, message.forwarding, "forwarding", message.forwarding ? "yes" : "no");
    fields.add(0, message, message.reserved2, "reserved", "");
    const std::string says = fmt::format("port {} {}", message.l2port, forwarding_word(message.forwarding));
    return {.title = fmt::format("message to the port multiplexer, {}", fields.truncated ? "cut off" : says),
            .fields = fields.fields,
            .fault = fields.truncated ? "the message is cut off" : "",
            .octets = std::min(octets.size(), sizeof message)};
}

kind_t kind_by_magic(octets_t octets)
{
    if (begins(octets, rstp_magic_number_arr))
        return kind_t::control;
    if (begins(octets, lacp_msg_magic))
        return kind_t::lacp;
    if (begins(octets, PORT_MUX_MAGIC))
        return kind_t::mux;
    return kind_t::any;
}

/// Of neighbours that are no bridges of the tree, or of their links.
const char *other_protocol(octets_t plain)
{
    const int ether_type = get16(plain, offsetof(bpdu_t, length));
    const int subtype = plain.size() > BPDU_ETHERNET_OCTETS ? plain[BPDU_ETHERNET_OCTETS] : 0;
    if (ether_type == 0x8809)
        return subtype == 1 ? "LACP frame" : subtype == 2 ? "marker frame" : "frame of a slow protocol";
    return ether_type == 0x88CC ? "LLDP frame" : "frame";
}

/// Of a frame without tags, which has `size` octets with them.
std::string plain_summary(octets_t plain, size_t size)
{
    const bpdu_t bpdu = read_bpdu(plain);
    if (!is_bpdu(plain))
        return fmt::format("{} of {} octets, no BPDU", other_protocol(plain), size);
    if (plain.size() < BPDU_HEADER_OCTETS + bpdu_octets(bpdu.type))
        return fmt::format("{}, cut off", plain.size() > offsetof(bpdu_t, type) ? bpdu_name(bpdu.type) : "BPDU");
    std::string fault = bpdu_fault(bpdu);
    if (!fault.empty())
        fault = ", " + fault;
    if (bpdu.type != BPDU_TYPE_CONFIG && bpdu.type != BPDU_TYPE_RST)
        return fmt::format("{} from {}{}", bpdu_name(bpdu.type), address_text(bpdu.source), fault);
    return fmt::format("{} of {}, root {}, cost {}, {} ({}){}", is_mst(plain) ? "MST BPDU" : bpdu_name(bpdu.type),
                       bpdu_bridge_text(bpdu.bridge_priority, bpdu.bridge_address),
                       bpdu_bridge_text(bpdu.root_priority, bpdu.root_address), bpdu_get32(bpdu.root_path_cost),
                       port_id_words(bpdu.port_id), bpdu_flags_words(bpdu.type, bpdu.flags), fault);
}

std::string field_octets_text(const std::vector<uint8_t> &octets)
{
    constexpr size_t shown_max = 8;
    if (octets.size() <= shown_max)
        return hex(octets);
    return hex(std::span(octets).first(shown_max - 1)) + " ...";
}

} // namespace

std::string received_on(uint8_t port_octet)
{
    const unsigned chip_port = port_octet - 1u;
    if (chip_port == CHIP_CPU_PORT || chip_port >= CHIP_PORTS)
        return fmt::format("{}, which is no front port", port_octet);
    return fmt::format("{}, front port {}", port_octet, front_port_of_chip(chip_port));
}

std::vector<uint8_t> without_switch_tag(octets_t frame)
{
    std::vector<uint8_t> plain(frame.begin(), frame.end());
    if (is_tagged(frame)) {
        const auto tag = plain.begin() + RSTP_CPU_TAG_OFFSET;
        plain.erase(tag, tag + RSTP_CPU_TAG_OCTETS);
    }
    return plain;
}

bool is_any_bpdu(octets_t frame) { return is_bpdu(open_envelope(frame).plain); }

std::string frame_summary(octets_t frame)
{
    const envelope_t envelope = open_envelope(frame);
    std::string vlans;
    for (const size_t vlan : envelope.vlans)
        vlans += fmt::format("{}{}", vlans.empty() ? ", in VLAN " : " in VLAN ", vlan_of(frame, vlan));
    const std::string summary = plain_summary(envelope.plain, frame.size());
    return fmt::format("{}{}{}", envelope.snap ? "per-VLAN " : "", summary, vlans);
}

decoded_t decode(octets_t octets, kind_t kind)
{
    switch (kind == kind_t::any ? kind_by_magic(octets) : kind) {
    case kind_t::control:
        return decode_control(octets);
    case kind_t::lacp:
        return decode_lacp(octets);
    case kind_t::mux:
        return decode_mux(octets);
    case kind_t::frame:
        return decode_frame(octets);
    case kind_t::any:
        break;
    }

    decoded_t frame = decode_frame(octets);
    if (!is_any_bpdu(octets))
        frame.fault = "this begins as none of the daemon's messages, and as a frame it carries no BPDU";
    return frame;
}

std::vector<decoded_t> decode_all(octets_t octets, kind_t kind)
{
    std::vector<decoded_t> all;
    while (!octets.empty()) {
        all.push_back(decode(octets, kind));
        octets = octets.subspan(all.back().octets);
    }
    return all;
}

std::string decoded_text(const decoded_t &decoded, bool brief)
{
    std::string text = decoded.title + "\n";
    for (const decoded_field_t &field : brief ? std::span<const decoded_field_t>() : decoded.fields) {
        std::string line = fmt::format("  {:>3}  {:<24}  {:<22}  {}", field.offset, field_octets_text(field.octets),
                                       field.name, field.value);
        line.erase(line.find_last_not_of(' ') + 1);
        text += fmt::format("{}\n", line);
    }
    if (!decoded.fault.empty())
        text += fmt::format("  fault: {}\n", decoded.fault);
    return text;
}
