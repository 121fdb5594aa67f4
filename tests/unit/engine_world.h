/// A world around the engine that answers what a test says and records what the engine does,
/// with short ways to build bridges in it and to let time pass.
///
/// Several worlds may exist, one bridge address each; one of them is entered at a time.
#pragma once

#include <gtest/gtest.h>

#include <array>
#include <functional>
#include <initializer_list>
#include <map>
#include <string>
#include <vector>

#include "heard_bpdu.h"
#include "rstp/bpdu.h"
#include "rstp/machines.h"
#include "rstp/port.h"
#include "rstp/port_machines.h"
#include "rstp/state_mach.h"
#include "rstp/step.h"
#include "rstp/stp_in.h"
#include "rstp/stpm.h"
#include "rstp/times.h"
#include "rstp/vect.h"
#include "tools/hex.h"

/// All records of a world: compared and restored as one block of memory.
struct records_t {
    std::array<stpm_t, 3> bridges;
    std::array<port_t, RSTP_PORTS> ports;
};

/// What the world says of a port's link.
struct link_facts_t {
    int up = 1;
    uint32_t speed = 1000; ///< Mbit/s
    int duplex = 1;        ///< 1: full
};

struct sent_frame_t {
    uint32_t port;
    uint16_t vlan_id;
    uint16_t tag;
    octets_t octets;
};

/// One move of a machine; port 0 for role selection.
struct move_t {
    uint32_t port;
    std::string machine;
    std::string from;
    std::string to;
    bool operator==(const move_t &) const = default;
};
std::ostream &operator<<(std::ostream &out, const move_t &move);

/// Moves of one machine in one unit of work that nine ports and their machines can explain; more mean
/// that two rules undo each other.
constexpr unsigned MOVES_OF_A_UNIT_MAX = 20;

struct world_t {
    explicit world_t(uint8_t address = 1);
    world_t(const world_t &) = delete;
    ~world_t();

    records_t records{};
    stpm_t *bridges = nullptr;
    stpm_t *free_bridges = nullptr;
    stpm_t *cursor_bridge = nullptr; ///< the cursor while another world is entered
    port_t *cursor_port = nullptr;

    // what the world answers
    uint8_t force_version = 2;
    bool rapid = false;
    std::array<uint8_t, 6> mac;
    std::array<link_facts_t, RSTP_PORTS + 1> links; ///< by port number
    std::map<uint32_t, port_t *> sending_ports;     ///< where it is not the port's own record
    bool short_of_memory = false;
    int send_result = 0;
    std::function<void()> on_state; ///< called with every request for a hardware state

    // what it has seen
    std::vector<std::string> actions; ///< "flush 3 0 1 2", "state 3 4", "send 3 rst" in their order
    std::vector<sent_frame_t> sent;
    std::vector<move_t> moves;
    size_t buffers_out = 0; ///< frame buffers that the engine has not given back

    unsigned moves_max = MOVES_OF_A_UNIT_MAX;
    const port_t *unit_port = nullptr;
    std::map<const state_mach_t *, unsigned> unit_moves;
};

/// Makes `world` the one that the engine sees.
void world_enter(world_t *world);

/// The entered world.
world_t &world_now();

/// Forgets what the entered world has seen.
void world_forget();

/// The record of a port, 1 to 9, in the entered world.
port_t *port_of(uint32_t number);

// ---- bridges ----------------------------------------------------------------------------

/// A disabled bridge with the default priority and times and without ports.
stpm_t *bridge_create(uint16_t vlan_id = 0);

/// Puts a port into a bridge, with the default settings but taking part and not an edge port.
port_t *port_attach(stpm_t *bridge, uint32_t number);

/// Such a port that does not take part.
port_t *boring_port_attach(stpm_t *bridge, uint32_t number);

/// An enabled bridge with these ports, its first pass finished.
stpm_t *bridge_start(std::initializer_list<uint32_t> numbers);

// ---- time -------------------------------------------------------------------------------

/// Finishes the pass under way.
void settle();

/// Some seconds, each as the daemon ticks: the pass under way is finished, timers are decremented, a new
/// pass begins.
void tick(unsigned seconds = 1);

// ---- frames -----------------------------------------------------------------------------

/// Lets a port receive a BPDU. Returns the engine's answer.
int receive(port_t *port, const heard_t &heard);
int receive(port_t *port, const octets_t &frame);

// ---- looking ----------------------------------------------------------------------------

/// All values of all records, a line each.
std::string describe(const records_t &records);

/// What the machines ask of a port, by name: its role and information, the flags that are set, the timers
/// that run.
std::string port_text(const port_t &port);

/// A failure that shows the values that differ, or success when both are the same to the last octet.
testing::AssertionResult same_records(const records_t &expected, const records_t &actual);

/// How often a machine of a port moved to a state.
size_t moves_to(uint32_t port, const std::string &machine, const std::string &state);

/// The names of a machine's states in the order in which a port went through them.
std::vector<std::string> path_of(uint32_t port, const std::string &machine);

/// A pattern for the last words of a process that met an assertion. Without a line any line will do.
std::string assertion(const std::string &text, const std::string &source, const std::string &function,
                      unsigned line = 0);

/// A test in a world of its own.
class engine_test : public testing::Test {
protected:
    engine_test() { world_enter(&world); }
    ~engine_test() override { EXPECT_EQ(world.buffers_out, 0u); }

    world_t world;
};

/// The name of a row's test: its label.
template <typename row_t>
std::string label_of(const testing::TestParamInfo<row_t> &info)
{
    std::string name;
    for (const char *c = info.param.label; *c; c++)
        name += isalnum(static_cast<unsigned char>(*c)) ? *c : '_';
    return name;
}
