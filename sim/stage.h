/// Plays a story: builds its world and lets its events happen. A node and a cable have the same number in the
/// world as in the story.
#pragma once

#include <list>

#include "sim/story.h"

namespace sim {

/// From power to link: a switch has its settings by then, and nobody hears it before.
constexpr moment_t LINK_COMES = 500 * MILLISECOND;

class stage_t {
public:
    /// `story` must outlive the stage. Throws std::invalid_argument for a cable that cannot be.
    explicit stage_t(const story_t &story);
    stage_t(const stage_t &) = delete;
    stage_t &operator=(const stage_t &) = delete;

    const story_t &story() const { return story_; }
    world_t &world() { return world_; }

    /// The bridge that a neighbour says it is, while it says so; nothing for other nodes.
    bridge_id_t identifier_of(node_id_t neighbour) const;

private:
    struct speaker_state_t {
        node_id_t node;
        std::array<uint8_t, 6> address;
        moment_t believes_until = 0; ///< STP: it has heard of a better root
    };

    void happen(const story_event_t &event);
    void configure(node_id_t node);
    void boot(node_id_t node);
    void hear(speaker_state_t &speaker, const frame_t &frame);
    void talk(speaker_state_t &speaker);
    void claim(const speaker_state_t &speaker);
    void babble(const speaker_state_t &speaker);
    bool is_hushed(const speaker_state_t &speaker) const;

    const story_t &story_;
    world_t world_;
    std::vector<node_configs_t> ports_; ///< as last set, by node: what a daemon that starts is given
    std::vector<lvt_rstp_system_config_t> bridges_;
    std::vector<node_groups_t> groups_;
    std::list<speaker_state_t> speakers_;
};

} // namespace sim
