/// Everything that the engine asks of the world around it. The adaptation layer answers on a
/// switch; a test or a simulator may answer in its place. The engine is single-threaded: the
/// caller of any engine function holds whatever lock guards this world, and none of the
/// functions here may call back into the engine.
#pragma once

#include <cstddef>
#include <cstdint>

#include "rstp/records.h"

// ---- the records ------------------------------------------------------------------------

/// The pending-work cursor: the bridge under evaluation and the next of its ports. Both are
/// null while the engine is at rest; between calls both are null or neither is.
extern stpm_t *current_stpm;
extern port_t *current_port;

/// Head of the list of bridges in use, newest first.
stpm_t **STP_OUT_bridges();

/// Head of the list of free bridge records.
stpm_t **STP_OUT_free_bridges();

/// The record of logical port `port_index`, 1 to 9.
port_t *STP_OUT_port(uint32_t port_index);

/// The record through which logical port `port_index` (1 to 9) sends: its own, for a formed
/// group that of its first member. Null when the group is not formed.
port_t *STP_OUT_sending_port(uint32_t port_index);

/// Force protocol version (clause 17.13): below 2 the bridge speaks STP only.
uint8_t STP_OUT_force_version();

/// Whether the bridge is asked to be rapid (rstp/rapid.h). It stays so for as long as the bridge runs.
#ifndef LVT_RAPID
constexpr bool STP_OUT_rapid() { return false; }
#else
bool STP_OUT_rapid();
#endif

// ---- facts ------------------------------------------------------------------------------

/// Link of a logical port: 1 up, 0 down.
int lvt_aggr_get_linkstate(uint32_t l2port);

/// Speed of a logical port in Mbit/s; 0 when unknown.
uint32_t lvt_aggr_get_linkspeed(uint32_t l2port);

/// Duplex of a logical port: 1 full, 0 half or no link.
int lvt_aggr_get_linkduplex(uint32_t l2port);

/// Writes the bridge's six-octet MAC address. Zeros while it is not known.
void lvt_os_get_systemmac(uint8_t *mac);

// ---- actions ----------------------------------------------------------------------------

/// Brings a logical port (1 to 9) into a hardware state: the engine asks for HW_DISCARDING,
/// HW_LEARNING, HW_FORWARDING and HW_NO_STP. Repeated requests are filtered. The result means nothing to
/// the engine.
int lvt_aggr_set_stpstate(uint32_t l2port, uint8_t code);

/// Forgets learned addresses. This switch flushes its whole table whatever the arguments.
int STP_OUT_flush_lt(uint32_t port_index, uint16_t vlan_id, int type, int reason);

/// Gives a buffer for a frame of `length` octets that leaves by physical port `l2port`, and
/// sets `tag` for STP_OUT_tx_bpdu. Null when the port is not physical or memory is short.
uint8_t *lvt_os_alloc_xmit(uint32_t l2port, size_t length, uint16_t *tag);

/// Takes a buffer of lvt_os_alloc_xmit back.
void packet_tx_free(uint8_t *buffer);

/// Counts and sends one frame.
///
/// port_index  1 to 9; anything else is a programming error.
/// frame       from the destination address on; borrowed, not kept.
/// length      octets in `frame`, without switch tag and padding.
///
/// Returns 0, or -1 when the frame is lost.
int STP_OUT_tx_bpdu(uint32_t port_index, uint16_t vlan_id, const uint8_t *frame, uint16_t tag, size_t length);

/// A programming error was found. Reports it and ends the process.
[[noreturn]] void STP_OUT_assert_fail(const char *text, const char *source, unsigned line, const char *function);

/// A machine is about to move from `mach->State` to `state`. Called by traced builds only.
void STP_OUT_trace(const state_mach_t *mach, rstpstate_t state);

/// An assertion that is never compiled out. Text, source, line and function are fixed: they
/// are what support staff search for.
#define STP_ASSERT(condition, text, source, line, function)                                                            \
    ((condition) ? void(0) : STP_OUT_assert_fail(text, source, line, function))
