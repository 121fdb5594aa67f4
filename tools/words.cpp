#include "tools/words.h"

#include <fmt/format.h>
#include <fmt/ranges.h>

#include "platform/messages.h"
#include "rstp/bpdu.h"
#include "tools/bpdu_frame.h"
#include "tools/hex.h"
#include "tools/rules.h"

const char *on_off(uint8_t value) { return value ? "on" : "off"; }

const char *point_to_point_word(uint8_t value) { return value == 0 ? "on" : value == 1 ? "off" : "auto"; }

std::string path_cost_word(uint32_t cost) { return cost ? fmt::to_string(cost) : "auto"; }

std::string speed_word(uint8_t code)
{
    const bool known = code < RSTP_SPEED_CODES && RSTP_SPEEDS[code] != 0;
    return known ? fmt::format("{} Mbit/s", RSTP_SPEEDS[code]) : fmt::format("unknown speed {}", code);
}

const char *role_word(int role)
{
    switch (role) {
    case ROLE_DISABLED:
        return "disabled";
    case ROLE_ALTERNATE:
        return "alternate";
    case ROLE_BACKUP:
        return "backup";
    case ROLE_ROOT:
        return "root";
    case ROLE_DESIGNATED:
        return "designated";
    default:
        return "off";
    }
}

const char *state_word(int state)
{
    switch (state) {
    case HW_DISABLED:
        return "down";
    case HW_DISCARDING:
        return "discarding";
    case HW_LEARNING:
        return "learning";
    case HW_FORWARDING:
        return "forwarding";
    default:
        return "off";
    }
}

const char *state_verb(int state)
{
    switch (state) {
    case HW_DISABLED:
        return "down";
    case HW_DISCARDING:
        return "discards";
    case HW_LEARNING:
        return "learns";
    default:
        return "forwards";
    }
}

const char *forwarding_word(bool forwarding) { return forwarding ? "forwards" : "does not forward"; }

std::string group_word(uint8_t group)
{
    return fault_of(GROUP, group).empty() ? fmt::format("in group {}", group) : "alone";
}

const char *force_version_word(uint8_t version) { return version < 2 ? "STP only" : "RSTP"; }

const char *const UNKNOWN_MESSAGE = "unknown message";

const char *message_name(uint8_t type)
{
    switch (type) {
    case RSTP_MSG_BPDU:
        return "received frame";
    case RSTP_MSG_PORT_STATUS:
        return "links of ports";
    case RSTP_MSG_AGGR_STATUS:
        return "groups of ports";
    case RSTP_MSG_SYSTEM_CONFIG:
        return "bridge settings";
    case RSTP_MSG_AGGR_CONFIG:
        return "settings of all groups";
    case RSTP_MSG_PORT_CONFIG:
        return "port settings";
    case RSTP_MSG_WORK_FLUSH:
        return "empty the work table";
    case RSTP_MSG_PORT_CONFIG_ONLY:
        return "port settings, queued group work stays queued";
    case RSTP_MSG_LACP_ENABLE:
        return "LACP on ports";
    default:
        return UNKNOWN_MESSAGE;
    }
}

std::string bpdu_bridge_text(const uint8_t *priority, std::span<const uint8_t, 6> address)
{
    return fmt::format("{}/{}", bpdu_get16(priority), address_text(address));
}

std::string bpdu_flags_words(uint8_t type, uint8_t flags)
{
    constexpr const char *roles[] = {"role unknown", "alternate or backup", "root", "designated"};
    std::string words;
    const auto add = [&](bool set, const char *word) {
        if (set)
            words += fmt::format("{}{}", words.empty() ? "" : ", ", word);
    };
    const bool rst = type == BPDU_TYPE_RST;
    add(rst, roles[bpdu_role(flags)]);
    add(rst && flags & BPDU_FLAG_PROPOSAL, "proposal");
    add(rst && flags & BPDU_FLAG_LEARNING, "learning");
    add(rst && flags & BPDU_FLAG_FORWARDING, "forwarding");
    add(rst && flags & BPDU_FLAG_AGREEMENT, "agreement");
    add(flags & BPDU_FLAG_TC, "topology change");
    add(flags & BPDU_FLAG_TC_ACK, "acknowledgement");
    return words.empty() ? "none" : words;
}
