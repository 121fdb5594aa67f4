/// BPDUs as neighbours say them.
#pragma once

#include <cstdint>

#include "tools/bpdu_frame.h"

/// The shortest that the standard allows.
constexpr timevalues_t SHORT_TIMES = {.MessageAge = 0, .MaxAge = 6, .ForwardDelay = 4, .HelloTime = 1};

/// A bridge identifier with the address 02:00:00:00:LAST:00, as the lab's machines have.
bridge_id_t made_up_bridge(uint16_t priority, uint8_t last);

/// A bridge that calls itself the root, with the shortest times.
told_t root_bridge(uint16_t priority, uint8_t last);

told_t with_times(told_t told, timevalues_t times);

bpdu_t config_bpdu(const told_t &told, uint8_t flags = 0);

/// By default that of a designated port.
bpdu_t rst_bpdu(const told_t &told, uint8_t flags = 0, uint8_t role = BPDU_ROLE_DESIGNATED);

bpdu_t tcn_bpdu();

// ---- kinds of BPDUs ---------------------------------------------------------------------------

bool is_rst(const bpdu_t &bpdu);
bool is_config(const bpdu_t &bpdu);
bool is_tcn(const bpdu_t &bpdu);
bool is_ack(const bpdu_t &bpdu); ///< a configuration BPDU that acknowledges a notification
bool has_flag(const bpdu_t &bpdu, uint8_t flag);
bool tells_change(const bpdu_t &bpdu);
