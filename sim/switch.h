/// Whole switches as records: the daemon's own sources and a switch chip each. They take turns in the
/// process's memory (state.h), have no thread and no file, and know no time but what they are told.
#pragma once

#include <array>
#include <cstdint>
#include <span>

#include "board/chip/chip.h"
#include "lvt_rstp.h"
#include "platform/messages.h"

namespace sim {

constexpr unsigned FRONT_PORTS = RSTP_PHYSICAL_PORTS;

struct switch_t;

/// What a switch does to the world around it. `context` is the world's.
struct world_calls_t {
    void *context;
    /// A frame leaves by front port 1 to 6, without tag, from its destination address on.
    void (*sends)(void *context, switch_t &from, unsigned port, std::span<const uint8_t> frame);
    /// The chip has executed a batch of register writes, or has another link or power.
    void (*chip_changed)(void *context, switch_t &from);
    /// The batch, before that.
    void (*chip_written)(void *context, switch_t &from, const mdio_multi_t &batch);
    /// Whether the chip refuses the next batch.
    bool (*chip_refuses)(void *context, switch_t &from);
};

struct link_t {
    bool up;
    uint32_t mbit; ///< 10, 100, 1000, 2500
    bool full_duplex;
};

struct switch_t {
    uint32_t number;            ///< the world's
    std::array<uint8_t, 6> mac; ///< of its CPU interface
    const world_calls_t *calls; ///< the world's
    std::array<link_t, FRONT_PORTS> links;
    chip_t chip;
    uint8_t *image; ///< the daemon's state while another switch has its turn
    bool daemon_runs;
    bool rapid; ///< its daemon is started with --rapid
};

/// A switch that was never switched on: nothing runs, the chip passes nothing. Its state gets `image`, of
/// switch_image_octets(). The record must not move.
void switch_create(switch_t &device, uint32_t number, const world_calls_t &calls, uint8_t *image);

/// Before its memory is given back.
void switch_destroy(switch_t &device);

/// Switches it on: the chip forgets all, the daemon starts and reads the links.
void switch_power_on(switch_t &device, chip_time_t now);

/// The daemon ends; the chip goes on as it is.
void switch_kill_daemon(switch_t &device);

/// The daemon starts anew beside a chip that goes on.
void switch_start_daemon(switch_t &device, chip_time_t now);

/// Takes the power: daemon and chip end.
void switch_power_off(switch_t &device);

/// A second of the daemon's own has passed.
void switch_tick(switch_t &device, chip_time_t now);

/// Front port 1 to 6 has another link: the chip knows it at once, the daemon is told.
void switch_set_link(switch_t &device, unsigned port, link_t link, chip_time_t now);

/// A frame arrives at front port 1 to 6, from its destination address on.
void switch_receive(switch_t &device, unsigned port, std::span<const uint8_t> frame, chip_time_t now);

/// Another program of the board sends a control message: one frame of tools/messages.h.
void switch_control(switch_t &device, std::span<const uint8_t> message, chip_time_t now);

/// Whether the chip passes data between front port 1 to 6 and its other forwarding ports.
bool switch_forwards(const switch_t &device, unsigned port);

/// Spanning tree state code of front port 1 to 6 in the chip.
unsigned switch_port_state(const switch_t &device, unsigned port);

/// Whether an operation makes the chip forget all addresses.
bool empties_addresses(const mdio_op_t &op);

/// The daemon's records, for looking. They are those of this switch until another has its turn.
const lvt_rstp_vars_t &switch_vars(switch_t &device);

/// Octets of a switch's state.
size_t switch_image_octets();

} // namespace sim
