#include "tools/ctl/inject.h"

#include <algorithm>
#include <chrono>
#include <utility>

#include <fmt/format.h>

#include "rstp/bpdu.h"
#include "tools/bpdu_frame.h"
#include "tools/ctl/arguments.h"
#include "tools/ctl/capture.h"
#include "tools/ctl/hex.h"
#include "tools/ctl/send.h"
#include "tools/decode.h"

namespace {

constexpr char LINK_FORM[] = "LIST=up|down|SPEED/full|SPEED/half";

/// A daemon that takes nothing for so long does not read.
constexpr std::chrono::seconds ROOM_PATIENCE{2};

constexpr setting_rule_t ANY_PATH_COST = {"path cost", 0, UINT32_MAX, 1, ""};
constexpr setting_rule_t ANY_PRIORITY = {"priority", 0, UINT16_MAX, 1, ""};
constexpr setting_rule_t ANY_PORT_ID = {"port identifier", 0, UINT16_MAX, 1, ""};

rstp_port_status_t parse_link(const std::string &text)
{
    if (text == "down")
        return {};
    if (text == "up")
        return LINK_UP;

    const size_t slash = text.find('/');
    if (slash == std::string::npos)
        throw usage_t(fmt::format("LINK: \"{}\" should read up, down, SPEED/full or SPEED/half", text));
    std::vector<std::string> speeds;
    for (const uint32_t mbit : RSTP_SPEEDS)
        if (mbit != 0)
            speeds.push_back(fmt::to_string(mbit));
    const size_t speed = parse_word("LINK", text.substr(0, slash), speeds);
    const size_t duplex = parse_word("LINK", text.substr(slash + 1), {"half", "full"});
    return {.ignored = 0, .link = 1, .speed = static_cast<uint8_t>(speed), .duplex = static_cast<uint8_t>(duplex)};
}

// ---- fields of a BPDU ------------------------------------------------------------------

bridge_id_t parse_bridge(const char *option, const std::string &text)
{
    const size_t slash = text.find('/');
    if (slash == std::string::npos)
        throw usage_t(fmt::format("{}: \"{}\" should read PRIORITY/ADDRESS", option, text));
    bridge_id_t id;
    id.prio = static_cast<uint16_t>(parse_setting(option, text.substr(0, slash), ANY_PRIORITY));
    std::ranges::copy(parse_address(option, text.substr(slash + 1)), id.addr);
    return id;
}

uint8_t parse_time(const char *option, const std::string &text)
{
    const setting_rule_t octet = {option, 0, 255, 1, " s"};
    return static_cast<uint8_t>(parse_setting(option, text, octet));
}

told_t parse_told(const bpdu_words_t &words)
{
    return {.root = parse_bridge("--root-id", words.root),
            .cost = static_cast<uint32_t>(parse_setting("--cost", words.cost, ANY_PATH_COST)),
            .bridge = parse_bridge("--bridge-id", words.bridge.empty() ? words.root : words.bridge),
            .port = static_cast<uint16_t>(parse_setting("--port-id", words.port_id, ANY_PORT_ID)),
            .times = {.MessageAge = parse_time("--message-age", words.message_age),
                      .MaxAge = parse_time("--max-age", words.max_age),
                      .ForwardDelay = parse_time("--forward-delay", words.forward_delay),
                      .HelloTime = parse_time("--hello", words.hello_time)}};
}

uint8_t parse_flags(const std::string &text)
{
    constexpr uint8_t bits[] = {BPDU_FLAG_TC,         BPDU_FLAG_PROPOSAL,  BPDU_FLAG_LEARNING,
                                BPDU_FLAG_FORWARDING, BPDU_FLAG_AGREEMENT, BPDU_FLAG_TC_ACK};
    uint8_t flags = 0;
    for (size_t start = 0, comma = 0; !text.empty() && comma != std::string::npos; start = comma + 1) {
        comma = text.find(',', start);
        flags = static_cast<uint8_t>(
            flags | bits[parse_word("--flags", text.substr(start, comma - start),
                                    {"tc", "proposal", "learning", "forwarding", "agreement", "tc-ack"})]);
    }
    return flags;
}

/// What a BPDU of this type has no octets for must not have been named.
void refuse_other_fields(uint8_t type, const bpdu_words_t &words)
{
    bpdu_words_t bare;
    bare.type = words.type;
    bare.source = words.source;
    if (type == BPDU_TYPE_TCN && words != bare)
        throw usage_t("--type tcn has no fields but --source");
    if (type == BPDU_TYPE_CONFIG && words.role != bare.role)
        throw usage_t("--role goes with --type rst only");
}

/// In the order of their words.
constexpr uint8_t TYPES[] = {BPDU_TYPE_RST, BPDU_TYPE_CONFIG, BPDU_TYPE_TCN};

/// The message for a frame as received on a front port, with a switch tag taken out.
std::vector<uint8_t> received(unsigned port, const std::vector<uint8_t> &frame)
{
    const std::vector<uint8_t> plain = without_switch_tag(frame);
    if (plain.empty() || plain.size() > RSTP_BODY_MAX)
        throw refused_t(fmt::format("a frame has 1 to {} octets, this one has {}", RSTP_BODY_MAX, plain.size()));
    return received_message(port, plain);
}

} // namespace

port_statuses_t parse_links(const std::vector<std::string> &assignments)
{
    port_statuses_t ports{};
    for (const std::string &text : assignments) {
        const assignment_t assignment = parse_assignment("LINK", text, LINK_FORM);
        const rstp_port_status_t link = parse_link(assignment.right);
        for (const unsigned port : parse_ports("LINK", assignment.left))
            ports[port - 1] = link;
    }
    return ports;
}

std::vector<uint8_t> make_bpdu(const bpdu_words_t &words)
{
    const uint8_t type = TYPES[parse_word("--type", words.type, {"rst", "config", "tcn"})];
    refuse_other_fields(type, words);
    const size_t role = parse_word("--role", words.role, {"unknown", "alternate", "root", "designated"});

    const uint8_t role_flags = type == BPDU_TYPE_RST ? bpdu_role_flags(static_cast<uint8_t>(role)) : 0;
    bpdu_t bpdu = bpdu_of(type, parse_told(words), parse_flags(words.flags) | role_flags);
    std::ranges::copy(parse_address("--source", words.source), bpdu.source);
    return frame_of(bpdu);
}

void inject_frame(const ctl_t &ctl, const std::vector<unsigned> &ports, const std::vector<uint8_t> &frame)
{
    for (const unsigned port : ports)
        send_one_of_several(ctl, received(port, frame), ROOM_PATIENCE);
    demand_heard(ctl);
    tell_sent(ctl, fmt::format("a frame of {} octets, as received on port {}", frame.size(), ports_text(ports)));
}

void inject_capture(const ctl_t &ctl, const std::vector<unsigned> &ports, const std::string &path,
                    std::optional<int64_t> number)
{
    std::vector<std::vector<uint8_t>> wanted;
    const size_t count = for_each_captured(path, [&](const captured_t &frame) {
        if (number ? std::cmp_equal(frame.number, *number) : is_bpdu(without_switch_tag(frame.octets)))
            for (const unsigned port : ports)
                wanted.push_back(received(port, frame.octets));
    });
    if (wanted.empty() && number)
        throw refused_t(fmt::format("{} has no frame {}: it has {}", path, *number, count));
    if (wanted.empty())
        throw refused_t(fmt::format("none of the {} frames of {} is a BPDU", count, path));

    size_t sent = 0;
    try {
        for (; sent < wanted.size(); sent++)
            send_one_of_several(ctl, wanted[sent], ROOM_PATIENCE);
    } catch (const refused_t &refusal) {
        refuse_as(refusal, fmt::format("{}\nOnly {} of {} BPDUs were sent.", refusal.what(), sent, wanted.size()));
    }
    fmt::print("{} of {} frames {}\n", sent / ports.size(), count, ctl.dry_run ? "would be sent" : "sent");
    demand_heard(ctl);
}
