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
