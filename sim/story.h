/// A network and all that is to happen in it, as plain records. A seed draws one, a topology file tells one,
/// and shrinking takes things out of one; who plays it (stage.h) asks nothing else.
#pragma once

#include <array>
#include <cstdint>
#include <string>
#include <vector>

#include "sim/world.h"
#include "tools/messages.h"

namespace sim {

using node_configs_t = std::array<lvt_rstp_port_config_t, FRONT_PORTS + 1>; ///< port_configs_t: 0 is the groups'
using node_groups_t = std::array<uint8_t, FRONT_PORTS + 1>;                 ///< aggr_status_t: by port, 1 to 6

/// What a neighbour says that is no switch of ours.
enum class manner_t : uint8_t {
    SILENT,
    STP,    ///< a bridge with one port that speaks only STP: it claims to be the root until it hears a better one
    BETTER, ///< repeats the BPDUs of a bridge that it says is the root, whatever it hears
    RANDOM, ///< random BPDUs, some well formed
    MIRROR, ///< sends every BPDU back
};

struct story_node_t {
    node_kind_t kind = node_kind_t::SWITCH;
    std::string name; ///< empty: the world makes one

    // Of a switch. It has its settings when its daemon starts, at boot and after every return.
    lvt_rstp_system_config_t bridge = LVT_RSTP_SYSTEM_DEFAULTS;
    node_configs_t ports = default_port_configs();
    node_groups_t groups = AGGR_STATUS_ALONE;
    bool is_configured = true; ///< false: nobody sends it any settings
    bool rapid = false;        ///< its daemon is asked to be rapid
    moment_t boot = 0;         ///< power comes
    moment_t phase = SECOND;   ///< from the daemon's start to its first tick
    moment_t second = SECOND;  ///< from tick to tick

    // Of a hub.
    bool swallows = false; ///< it passes data and no BPDUs: a bridge that nobody can see

    // Of a neighbour. Its priority and times are those in `bridge`.
    manner_t manner = manner_t::SILENT;
    moment_t hush = UINT64_MAX; ///< it says nothing from then on
};

struct story_cable_t {
    end_t ends[2] = {}; ///< nodes by their place in the story; ports as world_t::connect takes them
    way_t ways[2] = {}; ///< from ends[i] to the other
    uint32_t mbit = 1000;
    bool full_duplex = true;
    moment_t plugged = 0; ///< when it is there first; UINT64_MAX: only when an event says so
};

enum class deed_t : uint8_t {
    CUT,        ///< subject: cable
    MEND,       ///< subject: cable
    DEAFEN,     ///< subject: cable; `number`: its way, 0 or 1, passes nothing from now on
    HEAL,       ///< the same way passes all again
    POWER_OFF,  ///< subject: switch
    POWER_ON,   ///< with its settings
    KILL,       ///< the daemon ends, the chip goes on
    RESTART,    ///< the daemon starts beside the chip that went on, and gets its settings
    SET_BRIDGE, ///< subject: switch; `bridge`
    SET_PORT,   ///< subject: switch; `number`: port 1 to 6, or 0 for the groups; `port`
    SET_GROUPS, ///< subject: switch; `groups`
    REFUSE,     ///< subject: switch; its chip refuses the next `number` batches
    HOLD,       ///< subject: switch; its ticks of the next `number` milliseconds come together after that
    DEGRADE,    ///< subject: cable; its way `number` has the qualities of `way` from now on
    MESSAGE,    ///< subject: switch; `octets`: a frame of tools/messages.h
};

struct story_event_t {
    moment_t at = 0;
    deed_t deed = deed_t::CUT;
    uint32_t subject = 0; ///< place of a node or a cable in the story
    uint32_t number = 0;
    lvt_rstp_system_config_t bridge = LVT_RSTP_SYSTEM_DEFAULTS;
    lvt_rstp_port_config_t port = LVT_RSTP_PORT_DEFAULTS;
    node_groups_t groups = AGGR_STATUS_ALONE;
    way_t way = {};
    std::vector<uint8_t> octets = {};
};

struct story_t {
    std::string name;
    uint64_t seed = 1; ///< of what the world itself draws: jitter, loss, random BPDUs
    std::vector<story_node_t> nodes;
    std::vector<story_cable_t> cables;
    std::vector<story_event_t> events; ///< in the order of their time
    /// The moments at which all must have come to rest and is judged, in order; the last is the end.
    std::vector<moment_t> rests;
    uint64_t faults = 0; ///< a set of fault_t (faults.h): what the properties have to survive here
};

/// Which switches are asked to be rapid.
enum class rapid_t : uint8_t { NONE, ALL, SOME };

/// Makes all switches of a story rapid, or some, drawn from its seed alone; NONE leaves them as they are.
void make_rapid(story_t &story, rapid_t rapid);

/// The name that the world gives a node, or its own.
std::string node_name(const story_t &story, uint32_t node);
/// "sw1:2 sw3:1" of a cable.
std::string cable_name(const story_t &story, uint32_t cable);

/// What happens, for people: "the cable sw1:2 sw3:1 is cut".
std::string event_words(const story_t &story, const story_event_t &event);

/// What there is, a line for each node and cable.
std::vector<std::string> network_words(const story_t &story);

} // namespace sim
