/// The process: start-up, the dispatch of control messages and the tick.
#pragma once

#include "platform/messages.h"

/// Starts everything and waits for the main thread, which never ends. Returns 0.
int rstp_init();

/// Acts on one control message.
void rstp_dispatch(const rstp_msg_t *message);

/// Thread bodies; they never return.
void *rstp_thread(void *);
void *rstp_tick_thread(void *);

// ---- the parts of a start and of a tick, for those who step a daemon without threads --------------------

/// What rstp_init does before it starts the main thread: semaphores, the chip's rules, the tables.
void rstp_start_tables();
/// What the main thread does before it starts the tick: links, bridge and ports, settings.
void rstp_start_bridge();
/// What the tick thread does each second. Takes `rstp_core_sem`.
void rstp_second_passed();
