#include "daemon_invariants.h"

#include "daemon_fixture.h"
#include "sim/invariants.h"

std::string daemon_faults()
{
    chip_states_t states = {};
    for (uint32_t port = 1; port <= 6; port++)
        states[port] = static_cast<uint8_t>(board_port_state(port));
    std::string text = record_faults(states);
    for (uint32_t port = 1; port <= 6; port++)
        if (board_multiplexer_forwards(port) != (states[port] >= 4))
            text += "the multiplexer knows the chip's state, " + std::to_string(port) + "\n";
    return text;
}
