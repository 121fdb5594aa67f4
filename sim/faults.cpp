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
    {"self", "a cable from a switch to itself"},
    {"grouped", "groups of ports"},
    {"wide", "bridges farther from the root than its information lives"},
    {"slow", "delay up to 100 ms and jitter up to 50 ms"},
    {"lossy", "up to 30 % of the frames are lost"},
    {"doubling", "up to 30 % of the frames come twice"},
    {"deaf", "one direction of a cable passes nothing"},
    {"uneven", "speeds from 10 to 2500 Mbit/s, half duplex"},
    {"cuts", "cables are cut and mended"},
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

constexpr exception_t EXCEPTIONS[] = {
    {WIDE, RIGHT_TREE, "information dies before it gets there", 0},
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
