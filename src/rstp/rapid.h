/// What a bridge does beyond its usual rules while it is asked to be rapid (STP_OUT_rapid): between bridges of this
/// kind the handshake of proposal and agreement completes, and no news waits for a tick. The machines do not know of
/// it: the rules change what they see between their passes, what comes before they see it, and what leaves.
#pragma once

#include "rstp/bpdu.h"
#include "rstp/records.h"

/// A whole event, in place of the first unit of a pass: passes until one changes nothing, then what is to be told.
/// All that is told is what is so at the end.
[[gnu::cold]] void STP_rapid_event();

/// Rules on a received BPDU that STP_info_rx_bpdu has put into the port.
[[gnu::cold]] void STP_rapid_hear(port_t *port, const bpdu_t *bpdu);

/// Rules on an RST BPDU that is about to leave, which txCount counts already.
[[gnu::cold]] void STP_rapid_tell(port_t *port, bpdu_t *bpdu);
