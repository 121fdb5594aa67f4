/// What a bridge does beyond its usual rules while it is asked to be rapid (STP_OUT_rapid): between bridges
/// of this kind the handshake of proposal and agreement completes, and no news waits for a tick. Each rule is
/// one predicate that a machine asks beside its own; without the option each of them is false.
#pragma once

#include "rstp/machines.h"
#include "rstp/stp_out.h"
#include "rstp/vect.h"

/// The last RST BPDU, which has the agreement flag, agrees with what this port tells now (compare recordAgreement,
/// clause 17.21). It comes from a root or alternate port. An agreement with what the port told before may still be
/// on its way, and would make a loop. So it counts if it repeats what is told now, as those of this kind of bridge
/// do; of another bridge, if its vector has the same root, is not better, and is worse by just this link's cost or
/// was heard when the proposal was older than a second.
bool STP_rapid_agreement(const port_t *port);

/// Puts into an RST BPDU what a rapid bridge tells otherwise. Each new word of a designated port has a number, in the
/// fraction of its message age, and an agreement carries the vector and the number of what it agrees with. All who
/// follow the standard take it for one, since it is not better than theirs, and so do bridges of our kind that are not
/// asked to be rapid; none of them looks at a part of a second.
void STP_rapid_tell(const port_t *port, bpdu_t *bpdu);

/// Takes the number out of a BPDU.
inline void STP_rapid_hear(port_t *port, const bpdu_t *bpdu)
{
    if (STP_OUT_rapid())
        port->wordHeard = bpdu->message_age[1];
}

/// What the port tells from now on has a number of its own.
inline void STP_rapid_tell_anew(port_t *port)
{
    if (STP_OUT_rapid())
        port->wordTold++;
}

/// An agreement lasts while what the port tells gets no worse (updtInfo in 17.27, UPDATE).
inline bool STP_rapid_agreement_lasts(const port_t *port)
{
    return port->infoIs == INFO_IS_MINE && STP_OUT_rapid() &&
           STP_VECT_compare_vector(&port->designatedPrio, &port->portPrio) != VECT_WORSE;
}

/// When it gets worse the port blocks, until the neighbour has agreed to that: whoever still counts on the better
/// word may lead back here. So does a root port that becomes designated, for its neighbour may still forward as such.
inline void STP_rapid_sync_agreed(port_t *port)
{
    if ((port->agreed || port->infoIs == INFO_IS_RECEIVED) && port->sendRSTP && port->operPointToPoint &&
        STP_OUT_rapid())
        port->sync = 1;
}

/// How long a port that proposes waits for its agreement, from its present proposal on.
inline void STP_rapid_await_agreement(port_t *port)
{
    if (STP_OUT_rapid())
        port->fdWhile = port->owner->rootTimes.ForwardDelay;
}

/// A designated port's word counts as it stands: what is worse than its last one replaces that at once (rcvInfo,
/// clause 17.21).
inline bool STP_rapid_replaces() { return STP_OUT_rapid(); }

/// A neighbour that was designated and is a root or alternate port now takes its word back: that ages with the next
/// tick. Not at once, for while two of them change their minds as fast as their words cross, what one tells comes
/// again and again, and an agreement with it from the time before would count.
bool STP_rapid_takes_back(const port_t *port);

/// A port that is not where role selection wants it keeps the bridge from agreeing (allSynced, clause 17.20).
inline bool STP_rapid_unsettled(const port_t *port)
{
    return STP_OUT_rapid() && (!port->selected || port->updtInfo || port->role != port->selectedRole);
}

/// A blocked port answers a proposal: there is no loop through it (compare 17.29.3, ALTERNATE_AGREED).
inline bool STP_rapid_answers(const port_t *port)
{
    return port->proposed && port->role == ROLE_ALTERNATE && STP_OUT_rapid();
}

/// For which it sends.
inline bool STP_rapid_sends(const port_t *port) { return port->role == ROLE_ALTERNATE && STP_OUT_rapid(); }

/// What is sent is what is so once the event is finished, so that no BPDU and no place in the hold count is spent
/// on what is so for a moment.
inline bool STP_rapid_waits(const port_t *port) { return port->owner->settling; }

/// The hold count (TxHoldCount, clause 17.13). Once a root has died, what is still told of it goes round until it is
/// too old, some hops a millisecond; with the 3 or 6 of the standard that takes seconds, and a port that is held back
/// tells what is no longer so.
constexpr uint8_t STP_RAPID_HOLD_COUNT = 40;
inline bool STP_rapid_may_send(const port_t *port) { return port->txCount < STP_RAPID_HOLD_COUNT && STP_OUT_rapid(); }
