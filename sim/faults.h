/// What networks have to bear, what must hold in them, and which of the two go together.
#pragma once

#include <cstdint>
#include <span>
#include <string>

namespace sim {

/// What a network has or what happens to it. A plain network of switches, hubs' segments and hosts that boots
/// has none of these.
enum fault_t : uint8_t {
    // What is cabled.
    SHARED,       ///< three or more bridges on one segment
    PARALLEL,     ///< more than one cable between two switches
    SELF,         ///< a cable from a switch to itself
    GROUPED,      ///< groups of ports, with costs that are set
    GROUP_SPEEDS, ///< groups whose costs follow their speeds
    WIDE,         ///< bridges farther from the root than its information lives
    // What cables do.
    SLOW,     ///< delay and jitter
    LOSSY,    ///< frames are lost
    DOUBLING, ///< frames come twice
    DEAF,     ///< one direction passes nothing
    UNEVEN,   ///< speeds and duplex differ
    // What happens.
    CUTS,
    MEMBER_CUTS, ///< the same to one cable of a group
    FLAPS,       ///< a cable comes and goes several times a second
    OUTAGES,     ///< switches lose power and return
    RESTARTS,    ///< daemons die and start beside chips that went on
    LATE,        ///< switches boot minutes apart
    DRIFT,       ///< ticks are not quite a second apart
    BUNCHED,     ///< ticks come late and together
    REFUSALS,    ///< a chip refuses register writes
    // What is set under way.
    PRIORITIES,
    COSTS,
    TIMERS,
    EDGES,
    VERSIONS,
    LEAVING,   ///< ports out of the tree and back
    REGROUPED, ///< groups formed and dissolved
    // Who else speaks.
    STP_SPEAKER,
    BETTER_SPEAKER,
    RANDOM_SPEAKER,
    MIRROR_SPEAKER,
    SILENT_BRIDGE, ///< switches whose daemon is dead, so that they pass data and say nothing, behind edge ports
    FAULTS
};

enum property_t : uint8_t {
    NO_LOOP,      ///< data cannot go round, at any instant
    RIGHT_TREE,   ///< roles and states once at rest are those of an independent calculation
    REST,         ///< it comes to rest in bounded time, and BPDUs are as they must be
    NO_STORM,     ///< frames under way stay bounded
    NO_BLACKHOLE, ///< hosts of one part reach each other
    RECORDS,      ///< the switches' tables agree with each other
    PROPERTIES
};

constexpr uint64_t bit(fault_t fault) { return uint64_t{1} << fault; }
constexpr unsigned bit(property_t property) { return 1u << property; }

const char *fault_name(fault_t fault);           ///< "flaps"
const char *fault_words(fault_t fault);          ///< "a cable comes and goes several times a second"
const char *property_name(property_t property);  ///< "no-loop"
const char *property_words(property_t property); ///< "data cannot go round, at any instant"

/// "cuts flaps" of a set; empty for none.
std::string faults_text(uint64_t faults);

/// A property that need not survive a fault.
struct exception_t {
    fault_t fault;
    property_t property;
    const char *rule; ///< of this system, that is to blame
    uint64_t seed;    ///< the smallest that shows it, with no other fault to blame; 0: none of the first 20,000
};

/// All of them. What is not here must hold.
std::span<const exception_t> exceptions();

/// The properties that have to hold among these faults, a set of bit(property).
unsigned promised(uint64_t faults);

} // namespace sim
