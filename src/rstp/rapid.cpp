#include "rstp/rapid.h"

#include <cstring>

#include "rstp/machines.h"
#include "rstp/state_mach.h"
#include "rstp/step.h"
#include "rstp/vect.h"

namespace {

constexpr uint8_t HELD_BACK = 0x80; ///< in txCount: more than any hold count

/// Passes that one event may take. None is known that needs more than 9.
constexpr unsigned PASSES_MAX = 100;

/// Of the RST BPDUs that a port sends, one in so many counts: the hold count of 3 (TxHoldCount, clause 17.13) lets 24
/// leave at once, and 8 a second from then on. Once a root has died, what is still told of it goes round until it is
/// too old, some hops a millisecond; with 3 or 6 BPDUs that takes seconds, and a port that is held back tells what is
/// no longer so.
constexpr uint8_t SENDS_A_COUNT = 8;

/// Seconds for which a word may still be answered by bridges of another kind. Until then rcvdInfoWhile, which else has
/// no meaning at a designated port, is above 0, and above this when there were two words in that time.
constexpr uint8_t FRESH = 3;

/// Number of what a bridge of another kind tells, which no bridge of ours does.
constexpr uint8_t NO_NUMBER = 0;

/// In wordHeld, which at a designated port is 0 while no bridge of another kind has agreed: one has, in the second in
/// which fdWhile was what the other bits are.
constexpr uint8_t AGREED_AT = 0x80;

/// In a vector: the designated bridge and its port.
constexpr size_t SENDER_OCTETS = offsetof(prio_vector_t, bridge_port) - offsetof(prio_vector_t, design_bridge);

/// What a port tells from now on has a number of its own, and a forward delay to be agreed with. An agreement lasts
/// while it gets no worse (updtInfo in 17.27, UPDATE). When it gets worse a port to a bridge blocks, agreed or not,
/// until the neighbour has agreed to that: whoever still counts on the better word may lead back here. So does a root
/// port that becomes designated, for its neighbour may still forward as such. A neighbour of another kind may become
/// designated and not block: its agreement ends with the word, so that the port has to sync before this bridge agrees
/// to anything.
void tell_anew(port_t *port)
{
    const bool by_our_kind = port->wordHeld == 0;

    if (++port->wordTold == NO_NUMBER)
        port->wordTold++;
    port->wordHeld = 0;
    port->rcvdInfoWhile = port->rcvdInfoWhile ? 2 * FRESH : FRESH;
    port->fdWhile = port->owner->rootTimes.ForwardDelay;
    port->helloWhen = 0; // the hello time may be another one now
    if (port->infoIs == INFO_IS_MINE && STP_VECT_compare_vector(&port->designatedPrio, &port->portPrio) != VECT_WORSE) {
        port->agreed = port->agreed && by_our_kind;
        if (!port->agreed)
            return;
        port->portPrio = port->designatedPrio;
        port->portTimes = port->designatedTimes;
        port->updtInfo = 0;
        port->newInfo = 1;
        port->synced = 1;
    } else if (port->infoIs != INFO_IS_AGED && port->rcvdBpdu && port->sendRSTP && port->operPointToPoint)
        port->sync = 1;
}

/// Whether a bridge of another kind that agrees has agreed before in this second, and was asked again. Those of ours
/// that are not asked to be rapid agree first without a look at their other ports; asked again, they look. They are
/// asked once for each word, for they may send but one BPDU a second.
bool agrees_again(port_t *port)
{
    if (port->wordHeld)
        return port->wordHeld == (AGREED_AT | port->fdWhile);
    port->wordHeld = AGREED_AT | port->fdWhile;
    port->newInfo = 1;
    return false;
}

void before_pass(port_t *port)
{
    port->txCount |= HELD_BACK;
    if (port->rcvdBpdu)
        port->operEdge = 0; // also when the setting comes later: who has agreed says nothing more
    if (port->updtInfo)
        tell_anew(port);
    // A port that is not where role selection wants it keeps the bridge from agreeing (allSynced, clause 17.20).
    if (!port->selected || port->updtInfo || port->role != port->selectedRole)
        port->synced = 0;
}

void before_telling(port_t *port)
{
    port->txCount &= static_cast<uint8_t>(~HELD_BACK);
    // A root or alternate port repeats the vector that it agrees with, to its own kind. Others of our bridges would
    // take that for an agreement with whatever they tell by then.
    if (port->infoIs == INFO_IS_RECEIVED && port->wordHeld != NO_NUMBER)
        port->designatedPrio = port->portPrio;
    // A blocked port answers a proposal: there is no loop through it (compare 17.29.3, ALTERNATE_AGREED). One of a port
    // that forwards already needs no answer.
    if (port->role == ROLE_ALTERNATE && port->proposed && port->sendRSTP && port->txCount < TX_HOLD_COUNT &&
        !(port->rcvdFlags & BPDU_FLAG_FORWARDING)) {
        port->proposed = 0;
        STP_hop_2_state(&port->transmit, TRANSMIT_RSTP);
        STP_transmit_enter_state(&port->transmit);
    }
}

} // namespace

void STP_rapid_event()
{
    stpm_t *bridge = *STP_OUT_bridges();
    port_t was[RSTP_PORTS];
    unsigned passes = PASSES_MAX; // to come; the last one tells

    while (bridge && passes) {
        passes--;
        for (port_t *port = next_interesting_port(bridge->ports); port; port = next_interesting_port(port->next))
            passes ? before_pass(port) : before_telling(port);
        memcpy(was, STP_OUT_port(1), sizeof was);
        current_stpm = bridge;
        current_port = bridge->ports;
        lvt_rstp_run_pending();
        if (passes && memcmp(was, STP_OUT_port(1), sizeof was) == 0)
            passes = 1;
    }
}

void STP_rapid_hear(port_t *port, const bpdu_t *bpdu)
{
    if (!port->rcvdMsg || port->rcvdType == BPDU_TYPE_TCN)
        return;

    prio_vector_t &heard = port->msgPrio;
    const prio_vector_t &held = port->portPrio;
    const uint8_t role = port->rcvdFlags >> BPDU_FLAG_ROLE_SHIFT & 3;
    const int how = STP_VECT_compare_vector(&heard, &held);
    const bool same_port = memcmp(&heard.design_bridge, &held.design_bridge, SENDER_OCTETS) == 0;
    bool agreed = false;

    if (port->rcvdType == BPDU_TYPE_CONFIG || role == BPDU_ROLE_DESIGNATED) {
        // It counts as it stands: what is worse than the port's last word replaces that at once, as what has other
        // times does (compare rcvInfo, clause 17.21).
        if (how != VECT_WORSE || same_port)
            port->wordHeld = bpdu->message_age[1];
        if (how == VECT_WORSE && same_port)
            port->portTimes.HelloTime = static_cast<uint8_t>(~port->msgTimes.HelloTime);
    } else if (port->infoIs == INFO_IS_MINE) {
        // An agreement with what the port told before may still be on its way, and would make a loop. So it counts if
        // it repeats vector and number of what is told now, as those of this kind of bridge do (compare
        // recordAgreement, clause 17.21). Of another bridge it counts if its vector has the same root, is not better,
        // and is given twice by a root port to which it is worse by just this link's cost, or comes when all that was
        // told before is old.
        if (same_port) {
            agreed = how == VECT_EQUAL && bpdu->message_age[1] == port->wordTold;
            port->wordHeld = 0;
        } else if (how == VECT_WORSE && memcmp(&heard.root_bridge, &held.root_bridge, sizeof held.root_bridge) == 0 &&
                   port->rcvdFlags & BPDU_FLAG_AGREEMENT && port->operPointToPoint && port->rcvdInfoWhile <= FRESH) {
            const bool by_root_port =
                role == BPDU_ROLE_ROOT && heard.root_path_cost - held.root_path_cost == port->pathCost;
            agreed = (by_root_port && agrees_again(port)) || port->rcvdInfoWhile <= FRESH - 2;
            if (agreed)
                port->wordHeld |= AGREED_AT;
        }
    } else if (port->infoIs == INFO_IS_RECEIVED && port->operPointToPoint) {
        // It was designated and takes its word back: that ages with the next tick. Not at once, for while two of them
        // change their minds as fast as their words cross, what one tells comes again and again, and an agreement
        // with it from the time before would count.
        port->rcvdInfoWhile = 1;
    }

    if (agreed)
        heard.design_bridge = held.design_bridge; // which is what the machine asks for
    else
        port->rcvdFlags &= static_cast<uint8_t>(~BPDU_FLAG_AGREEMENT);
}

void STP_rapid_tell(port_t *port, bpdu_t *bpdu)
{
    // Each new word of a designated port has a number, and an agreement carries that of what it agrees with: the same
    // vector may have been told before, then another, then the same. None who follow the standard look at it.
    bpdu->message_age[1] = port->infoIs == INFO_IS_RECEIVED ? port->wordHeld : port->wordTold;
    if (++port->sends % SENDS_A_COUNT)
        port->txCount--;
}
