/// BPDUs as neighbours send them, for the tests of src/: written and read octet by octet. Nothing here
/// comes from rstp/bpdu.h, so that a mistake there shows.
#pragma once

#include <cstdint>
#include <vector>

#include "rstp/records.h"

using octets_t = std::vector<uint8_t>;

constexpr bridge_id_t id_of(uint16_t priority, uint8_t last_octet) { return {priority, {2, 0, 0, 0, 0, last_octet}}; }

/// A BPDU to be received. Unless told otherwise it is an RST BPDU by which a better bridge, the root,
/// announces itself from a designated, forwarding port.
struct heard_t {
    uint8_t type = 2;
    uint8_t version = 2;
    uint8_t flags = 0x3C;
    bridge_id_t root = id_of(4096, 0x11);
    uint32_t cost = 0;
    bridge_id_t bridge = id_of(4096, 0x11);
    uint16_t port_id = 0x8001;
    timevalues_t times = {.MessageAge = 0, .MaxAge = 20, .ForwardDelay = 15, .HelloTime = 2};
};

/// The frame of a BPDU as the wire carries it: 53 octets, a configuration BPDU 52, a notification 21.
octets_t frame_of(const heard_t &heard);

/// A notification, which has nothing to tell.
inline octets_t tcn_frame() { return frame_of({.type = 0x80, .version = 0}); }

/// Where the type of a BPDU and its flags are in a frame.
constexpr size_t TYPE_AT = 20;
constexpr size_t FLAGS_AT = 21;

/// "rst", "config", "tcn" of a BPDU's type.
const char *kind_of(uint8_t type);
