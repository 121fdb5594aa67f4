/// Plays a story and holds the properties against it.
#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

#include "sim/faults.h"
#include "sim/story.h"

namespace sim {

/// A property that did not hold, the first time it did not.
struct finding_t {
    property_t property;
    bool promised; ///< false: something in the story excuses it
    moment_t at;
    std::string words;
};

/// How the network came to rest after the events before one of the story's rests.
struct settling_t {
    moment_t from;      ///< the last event
    moment_t at_rest;   ///< the last change of a role or of a port's state
    moment_t forgotten; ///< the last time that a switch forgot its addresses until it was judged
    uint64_t bpdus;     ///< sent in between
    uint64_t flushes;   ///< in between
    unsigned depth;     ///< cables from the root to the farthest bridge
};

struct outcome_t {
    std::vector<finding_t> findings;
    std::vector<settling_t> settlings;
    uint64_t faults; ///< of the story, and what was found while it was played
    uint64_t switch_seconds;
    uint64_t events;

    bool held() const
    {
        for (const finding_t &finding : findings)
            if (finding.promised)
                return false;
        return true;
    }
};

/// Hears what happens, a line at a time: "  12.003001 sw1:2 root, was designated".
using listener_t = std::function<void(std::string_view line)>;

/// Ends early when frames no longer stay bounded.
outcome_t try_story(const story_t &story, const listener_t &listener = {});

/// How long a network may take to come to rest after the last event: longer than any known one needs.
moment_t settling_bound(const story_t &story);

/// From when all must be at rest to when it is judged.
moment_t watched_at_rest(const story_t &story);

/// How long the judging takes, with nothing else going on.
moment_t judging_time(const story_t &story);

} // namespace sim
