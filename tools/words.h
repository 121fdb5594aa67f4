/// The words for values of messages, for all who show them.
#pragma once

#include <cstdint>
#include <span>
#include <string>

const char *on_off(uint8_t value);

/// Of a port record: 0 on, 1 off, else from the duplex.
const char *point_to_point_word(uint8_t value);

/// "auto" for 0, from the speed.
std::string path_cost_word(uint32_t cost);

/// "1000 Mbit/s" of the speed code of a port status message.
std::string speed_word(uint8_t code);

/// "root", "alternate" ... of a role (lvt_rstp_port_role_t); "off" outside the spanning tree.
const char *role_word(int role);

/// "discarding", "learning", "forwarding" of a state (HW_DISABLED ...), "down" without link; "off" where the
/// spanning tree does not rule.
const char *state_word(int state);

/// What the port does with frames then: "discards", "learns", "forwards"; "down" without link.
const char *state_verb(int state);

/// "forwards" or "does not forward", as the port multiplexer is told.
const char *forwarding_word(bool forwarding);

/// "in group 7" or "alone", of the octet of a port in a message about groups.
std::string group_word(uint8_t group);

/// "RSTP" or "STP only".
const char *force_version_word(uint8_t version);

/// "bridge settings" of a control message's type; UNKNOWN_MESSAGE of one without a meaning.
const char *message_name(uint8_t type);
extern const char *const UNKNOWN_MESSAGE; ///< the name of all others

/// "32768/02:00:00:00:01:00" of a bridge identifier in a BPDU.
std::string bpdu_bridge_text(const uint8_t *priority, std::span<const uint8_t, 6> address);

/// "designated, learning, forwarding" of a BPDU's flags; "none" without any.
std::string bpdu_flags_words(uint8_t type, uint8_t flags);
