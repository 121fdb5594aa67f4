/// Messages to the link-aggregation daemon.
#pragma once

#include <cstddef>
#include <cstdint>

/// Tells on which ports spanning tree is on: six octets, nonzero for on. Says so on standard
/// output when it fails. Returns the result of write.
int set_lacp_rstp_status(const uint8_t *flags);

/// Frames and writes one message: four octets of header, the type first, and `length` octets
/// of body, at most 512. Returns the result of write.
int send_lacp_data(const uint8_t *message, uint32_t length);
