#include "sim/faults.h"

#include <array>

namespace sim {

namespace {

struct name_t {
    const char *name, *words;
};

constexpr std::array<name_t, FAULTS> FAULT_NAMES = {{
    {"shared", "three or more bridges on one segment"},
    {"parallel", "more than one cable between two switches"},
    {"self", "a cable from a switch to itself, or two of its ports on one segment"},
    {"grouped", "groups of ports, with costs that are set"},
    {"group-speeds", "groups of ports, with costs by their speeds"},
    {"wide", "bridges farther from the root than its information lives"},
    {"slow", "delay up to 100 ms and jitter up to 50 ms"},
    {"lossy", "up to 30 % of the frames are lost"},
    {"doubling", "up to 30 % of the frames come twice"},
    {"deaf", "one direction of a cable passes nothing"},
    {"uneven", "speeds from 10 to 2500 Mbit/s, half duplex"},
    {"cuts", "cables are cut and mended"},
    {"member-cuts", "single cables of groups are cut and mended"},
    {"flaps", "a cable comes and goes several times a second"},
    {"outages", "switches lose power and return"},
    {"restarts", "daemons die and start beside chips that went on"},
    {"late", "switches boot up to two minutes apart"},
    {"drift", "seconds of 0.98 to 1.02 s"},
    {"bunched", "ticks of up to 5 s come late and together"},
    {"refusals", "a chip refuses register writes"},
    {"priorities", "priorities of bridges and ports are changed"},
    {"costs", "path costs are changed"},
    {"timers", "a bridge's times are changed"},
    {"edges", "ports between switches are set as edge"},
    {"versions", "switches are set to STP only and back"},
    {"leaving", "ports are taken out of the tree and put back"},
    {"regrouped", "groups are formed and dissolved"},
    {"stp-speaker", "a neighbour speaks only STP"},
    {"better-speaker", "a neighbour repeats a better bridge's BPDUs"},
    {"random-speaker", "a neighbour sends random BPDUs for a while"},
    {"mirror-speaker", "a neighbour sends every BPDU back"},
    {"silent-bridge", "something that passes data and no BPDUs"},
}};

constexpr std::array<name_t, PROPERTIES> PROPERTY_NAMES = {{
    {"no-loop", "data cannot go round, at any instant"},
    {"right-tree", "roles and states at rest are those of an independent calculation"},
    {"rest", "it comes to rest in bounded time, and BPDUs are as they must be"},
    {"no-storm", "frames under way stay bounded"},
    {"no-blackhole", "hosts of one part reach each other"},
    {"records", "the switches' tables agree with each other"},
}};

constexpr const char OWN_WORDS[] =
    "a port believes what it hears of its own bridge: an agreement, an old root, a topology change";
constexpr const char FIRST_MEMBER[] = "a group speaks through its first member only, also when that has no link";
constexpr const char OLD_NEWS[] = "news of a root that is gone are believed when they come back, until they age out";
constexpr const char NO_REACH[] = "information dies before it gets that far";
constexpr const char TOLD_AGAIN[] =
    "a topology change that is told again winds its timer up again, now and then in turns";
constexpr const char GROUP_COST[] = "a group keeps the speed that its members had when it was formed";
constexpr const char LOST_HELLOS[] =
    "information lives three hellos: what is lost makes a port forward, and a frame is not sent again";
constexpr const char TWICE_EACH[] = "none: each cable on the way doubles what the one before has doubled";
constexpr const char ONE_WAY[] = "who does not hear its neighbour forwards";
constexpr const char NO_PASS[] = "a link change begins no pass: one that returns before both ends tick was never lost";
constexpr const char UNTIL_SET[] = "a daemon that starts lets every port forward until it is told its settings";
constexpr const char LATE_HELLOS[] =
    "a hello waits for the next event or tick: where ticks drift or frames jitter it may come two seconds after the "
    "last";
constexpr const char NO_TICK[] = "who does not tick says no hello, and its neighbours' information dies";
constexpr const char NO_RETRY[] = "a state that the chip refused is not written again";
constexpr const char AT_ONCE[] = "a port that is set as edge forwards at once, until it hears a BPDU";
constexpr const char OUTSIDE[] = "a port out of the tree forwards and says nothing";
constexpr const char TRUNK_FIRST[] = "the chip and the two ends form a group one after the other";
constexpr const char FORCED[] =
    "a bridge forced to STP drops RST BPDUs, and is not heard before its neighbour has migrated; a topology change is "
    "told long";
constexpr const char BELIEVED[] =
    "whatever a well formed BPDU says is believed, times of up to 255 s as well, which ports then wait for";
constexpr const char UNSEEN[] = "what passes data and no BPDUs cannot be seen";

constexpr exception_t EXCEPTIONS[] = {
    {SHARED, NO_LOOP, OLD_NEWS, 2364},
    {SHARED, NO_STORM, OLD_NEWS, 0},
    {SELF, NO_LOOP, OWN_WORDS, 7},
    {SELF, NO_STORM, OWN_WORDS, 916},
    {SELF, REST, OWN_WORDS, 6043},
    {WIDE, NO_LOOP, NO_REACH, 13037},
    {WIDE, NO_STORM, NO_REACH, 13037},
    {WIDE, RIGHT_TREE, NO_REACH, 781},
    {WIDE, REST, NO_REACH, 781},
    {WIDE, NO_BLACKHOLE, NO_REACH, 3511},
    {GROUPED, REST, TOLD_AGAIN, 9262},
    {GROUP_SPEEDS, REST, TOLD_AGAIN, 5515},
    {GROUP_SPEEDS, RIGHT_TREE, GROUP_COST, 528},
    {SLOW, RIGHT_TREE, LATE_HELLOS, 19419},
    {SLOW, REST, LATE_HELLOS, 19419},
    {SLOW, NO_BLACKHOLE, LATE_HELLOS, 19419},
    {LOSSY, NO_LOOP, LOST_HELLOS, 7955},
    {LOSSY, NO_STORM, LOST_HELLOS, 0},
    {LOSSY, RIGHT_TREE, LOST_HELLOS, 1},
    {LOSSY, REST, LOST_HELLOS, 78},
    {LOSSY, NO_BLACKHOLE, LOST_HELLOS, 163},
    {DOUBLING, NO_STORM, TWICE_EACH, 5241},
    {DEAF, NO_LOOP, ONE_WAY, 73},
    {DEAF, NO_STORM, ONE_WAY, 73},
    {DEAF, RIGHT_TREE, ONE_WAY, 3},
    {DEAF, REST, ONE_WAY, 199},
    {DEAF, NO_BLACKHOLE, ONE_WAY, 3},
    {UNEVEN, NO_LOOP, OLD_NEWS, 95613},
    {UNEVEN, NO_STORM, OLD_NEWS, 95613},
    {MEMBER_CUTS, NO_LOOP, FIRST_MEMBER, 0},
    {MEMBER_CUTS, NO_STORM, FIRST_MEMBER, 0},
    {MEMBER_CUTS, RIGHT_TREE, FIRST_MEMBER, 0},
    {MEMBER_CUTS, REST, FIRST_MEMBER, 6561},
    {MEMBER_CUTS, NO_BLACKHOLE, FIRST_MEMBER, 0},
    {FLAPS, NO_LOOP, NO_PASS, 231},
    {FLAPS, NO_STORM, NO_PASS, 7645},
    {RESTARTS, NO_LOOP, UNTIL_SET, 233},
    {RESTARTS, NO_STORM, UNTIL_SET, 2324},
    {DRIFT, RIGHT_TREE, LATE_HELLOS, 969},
    {DRIFT, REST, LATE_HELLOS, 3079},
    {DRIFT, NO_BLACKHOLE, LATE_HELLOS, 3654},
    {BUNCHED, NO_LOOP, NO_TICK, 2330},
    {BUNCHED, NO_STORM, NO_TICK, 3877},
    {BUNCHED, REST, NO_TICK, 581013},
    {REFUSALS, NO_LOOP, NO_RETRY, 2347},
    {REFUSALS, NO_STORM, NO_RETRY, 4310},
    {REFUSALS, RIGHT_TREE, NO_RETRY, 1147},
    {REFUSALS, NO_BLACKHOLE, NO_RETRY, 1342},
    {REFUSALS, RECORDS, NO_RETRY, 87},
    {EDGES, NO_LOOP, AT_ONCE, 43520},
    {VERSIONS, NO_LOOP, FORCED, 159},
    {VERSIONS, NO_STORM, FORCED, 159},
    {VERSIONS, RIGHT_TREE, FORCED, 361},
    {VERSIONS, REST, FORCED, 364199},
    {VERSIONS, NO_BLACKHOLE, FORCED, 0},
    {LEAVING, NO_LOOP, OUTSIDE, 6},
    {LEAVING, NO_STORM, OUTSIDE, 6},
    {LEAVING, RIGHT_TREE, OUTSIDE, 188},
    {LEAVING, REST, OUTSIDE, 89},
    {LEAVING, NO_BLACKHOLE, OUTSIDE, 4585},
    {REGROUPED, NO_LOOP, TRUNK_FIRST, 152},
    {REGROUPED, NO_STORM, TRUNK_FIRST, 5620},
    {REGROUPED, RIGHT_TREE, TRUNK_FIRST, 260},
    {REGROUPED, REST, TRUNK_FIRST, 6358},
    {REGROUPED, NO_BLACKHOLE, TRUNK_FIRST, 3136},
    {RANDOM_SPEAKER, NO_LOOP, BELIEVED, 0},
    {RANDOM_SPEAKER, NO_STORM, BELIEVED, 0},
    {RANDOM_SPEAKER, RIGHT_TREE, BELIEVED, 33450},
    {RANDOM_SPEAKER, REST, BELIEVED, 147747},
    {RANDOM_SPEAKER, NO_BLACKHOLE, BELIEVED, 133997},
    {MIRROR_SPEAKER, REST, OWN_WORDS, 0},
    {SILENT_BRIDGE, NO_LOOP, UNSEEN, 4},
    {SILENT_BRIDGE, NO_STORM, UNSEEN, 4},
    {SILENT_BRIDGE, RIGHT_TREE, UNSEEN, 119},
    {SILENT_BRIDGE, REST, UNSEEN, 0},
    {SILENT_BRIDGE, NO_BLACKHOLE, UNSEEN, 0},
};

} // namespace

const char *fault_name(fault_t fault) { return FAULT_NAMES[fault].name; }
const char *fault_words(fault_t fault) { return FAULT_NAMES[fault].words; }
const char *property_name(property_t property) { return PROPERTY_NAMES[property].name; }
const char *property_words(property_t property) { return PROPERTY_NAMES[property].words; }

std::string faults_text(uint64_t faults)
{
    std::string text;
    for (unsigned fault = 0; fault < FAULTS; fault++)
        if (faults & bit(static_cast<fault_t>(fault)))
            text.append(text.empty() ? "" : " ").append(FAULT_NAMES[fault].name);
    return text;
}

std::span<const exception_t> exceptions() { return EXCEPTIONS; }

unsigned promised(uint64_t faults)
{
    unsigned properties = (1u << PROPERTIES) - 1;
    for (const exception_t &exception : EXCEPTIONS)
        if (faults & bit(exception.fault))
            properties &= ~bit(exception.property);
    return properties;
}

} // namespace sim
