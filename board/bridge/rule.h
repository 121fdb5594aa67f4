/// Ruling a bridge, from the first look at it to the last.
#pragma once

#include <filesystem>
#include <stdexcept>
#include <string>
#include <vector>

#include "board/bridge/state_dir.h"

/// What becomes of the ports when it ends in order.
enum class at_end_t { keep, block, forward };

struct rule_options_t {
    std::string bridge;
    std::string config; ///< settings file; empty: spanning tree everywhere, with the defaults
    at_end_t at_end = at_end_t::keep;
    bool rapid = false;
    std::vector<std::string> ports; ///< front ports 1, 2 ...; empty: what the settings file lists, or all
    std::filesystem::path state_dir = BRIDGE_NOTES_FOLDER;
};

/// The bridge cannot be ruled as it is; the words say what would help.
struct refusal_t : std::runtime_error {
    using std::runtime_error::runtime_error;
};

/// Rules the bridge until SIGINT or SIGTERM. Throws refusal_t, ruled_already_t or refused_t (of the settings file)
/// before anything is changed, and another std::exception when it cannot go on; the ports then keep their states.
void rule(const rule_options_t &options);
