/// A network as a person describes it: nodes, the links between them, and what happens to them. The simulator
/// plays it in virtual time, a lab on this machine.
#pragma once

#include <array>
#include <chrono>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "tools/ctl/config_file.h"

namespace topology {

using span_t = std::chrono::microseconds;

/// More than this of either is no network that a person describes.
constexpr size_t NODES_MAX = 10'000;
constexpr size_t LINKS_MAX = 100'000;

/// Ports of a node that can have any number of them.
constexpr unsigned PORTS_MAX = 1000;

enum class kind_t : uint8_t {
    SWITCH,       ///< the daemon on a simulated board
    LVT_BRIDGE,   ///< the daemon on a Linux bridge
    LINUX_BRIDGE, ///< the kernel's own spanning tree
    HUB,          ///< a shared segment: what comes in at one link goes out of all others
    HOST,         ///< one link, an address
    SPEAKER,      ///< a neighbour that says what is told in `speech_t`
};
constexpr const char *KIND_WORDS[] = {"switch", "lvt-bridge", "linux-bridge", "hub", "host", "speaker"};

/// What a speaker does.
enum class speech_t : uint8_t {
    SILENT,
    STP,    ///< a bridge with one port that speaks STP only
    BETTER, ///< says that it is the root, whatever it hears
    RANDOM, ///< says random BPDUs
    MIRROR, ///< sends every BPDU back
};
constexpr const char *SPEECH_WORDS[] = {"silent", "stp", "better", "random", "mirror"};

struct node_t {
    std::string name;
    kind_t kind = kind_t::SWITCH;
    std::string place{};                ///< "office.yml:4:5: ", where a file says so; empty of what has a name only
    settings_t settings{};              ///< of a SWITCH and an LVT_BRIDGE; of others only those of the bridge
    bool configured = true;             ///< false: nobody sends it any settings
    bool rapid = false;                 ///< its daemon is asked to be rapid
    std::vector<std::string> options{}; ///< further words for its program's command line
    std::string address{};              ///< of a HOST, "10.0.0.1/24"; empty: as the player likes
    span_t boot{0};                     ///< when it gets power
    span_t second{1'000'000};           ///< what its clock calls a second
    std::optional<span_t> phase{};      ///< from its start to its first second, or first BPDU; else as the player likes
    bool swallows = false;              ///< a HUB passes data and no BPDUs, as a bridge does that nobody can see
    speech_t speech = speech_t::SILENT;
    std::optional<span_t> hush{}; ///< a SPEAKER is silent from then on
};

/// What a link does to frames that go one way.
struct quality_t {
    span_t delay{1000};
    span_t jitter{0};     ///< up to this is added; frames keep their order
    uint32_t lost = 0;    ///< of a million frames
    uint32_t doubled = 0; ///< of a million frames
    bool dead = false;    ///< passes nothing, though the link is up
    bool operator==(const quality_t &) const = default;
};

struct end_t {
    size_t node;   ///< in network_t::nodes
    unsigned port; ///< from 1; to 6 of a switch
    bool operator==(const end_t &) const = default;
};

struct link_t {
    std::array<end_t, 2> ends;
    std::array<quality_t, 2> qualities{}; ///< of what ends[i] sends
    uint32_t mbit = 1000;                 ///< 10, 100, 1000 or 2500
    bool full_duplex = true;
    std::optional<span_t> plugged = span_t(0); ///< when it is there first; nothing: only when the story says so
};

enum class verb_t : uint8_t {
    PULL,
    PLUG,
    FLAP,
    DEGRADE,
    DEAFEN, ///< one way of a link passes nothing from now on
    HEAL,   ///< and all again
    KILL,   ///< the daemon ends, the chip goes on
    RESTART,
    POWER_OFF,
    POWER_ON,
    SET,
    REFUSE, ///< a chip refuses register writes
    HOLD,   ///< a clock stands still; then all its seconds come together
    MESSAGE,
};

struct event_t {
    span_t at;
    verb_t verb;
    size_t subject;                     ///< the link of PULL to HEAL, else the node
    unsigned times = 0;                 ///< FLAP: how often; REFUSE: how many batches
    span_t pause{0};                    ///< FLAP: how long it is out, and in; HOLD: how long
    unsigned way = 0;                   ///< DEAFEN, HEAL: the end whose frames get lost
    std::array<quality_t, 2> qualities; ///< DEGRADE: from now on
    std::optional<settings_t> settings; ///< SET: all that hold from now on
    std::vector<uint8_t> octets;        ///< MESSAGE: a whole control message
};

struct network_t {
    std::string name{};
    uint64_t seed = 1;
    std::optional<span_t> until{};     ///< how long it is to be played
    std::vector<span_t> rests{};       ///< when it must have come to rest, in order of time
    std::vector<std::string> faults{}; ///< words for what happens in it, for who judges it
    std::vector<node_t> nodes{};
    std::vector<link_t> links{};
    std::vector<event_t> story{}; ///< in the order of time
};

/// Gives every switch what it does as long as nothing else is said: spanning tree is on at every port that has a
/// link; a port to a host is an edge port, any other is none.
void give_usual_settings(network_t &network);

/// "sw1:2", and of a node that has one port only "h1".
std::string end_text(const network_t &network, const end_t &end);

/// "sw1:1-sw2:2".
std::string link_text(const network_t &network, const link_t &link);

/// The node that a word means: its name, or for a number N "swN".
std::optional<size_t> find_node(const network_t &network, std::string_view word);

/// The links that a word means: "sw1-sw2", "sw1:1-sw2:2", "1-2"; with their first end first, or the other way round.
struct found_link_t {
    size_t link;
    bool turned; ///< the word names the link's second end first
};
std::vector<found_link_t> find_links(const network_t &network, std::string_view word);

/// ": did you mean ...?" with the most alike of `words`; empty when none is.
std::string suggestion(std::string_view word, const std::vector<std::string> &words);

/// The same, and all of them.
std::string suggestions(std::string_view word, const std::vector<std::string> &words);

} // namespace topology
