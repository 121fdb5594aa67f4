/// Reading the control pipe and the debug pipe.
#pragma once

#include "platform/messages.h"

/// Names the two open pipes.
void rstp_msg_open(int control_fd, int debug_fd);

/// Waits for input on both pipes, serves a debug command, and reads at most one message.
/// Returns 1 with a message in `message`, 0 when there was none, -1 when one was dropped: a
/// wrong magic, a body over RSTP_BODY_MAX octets, or a BPDU from no port. Ends the process
/// when the wait fails.
int rstp_msg_recv(rstp_msg_t *message);

/// Host order already, in spite of the name: writers put the length in host order.
uint32_t swap_big_to_lit_32(uint32_t value);
