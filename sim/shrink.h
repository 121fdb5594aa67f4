/// Makes a story smaller that shows a property broken.
#pragma once

#include <functional>
#include <optional>

#include "sim/trial.h"

namespace sim {

/// What is wrong with a story, as the name of a property or "no-crash"; empty when nothing is.
using verdict_of_t = std::function<std::string(const story_t &)>;

/// Tries a story in a process of its own, which may crash or not come back: the first property that it breaks
/// and should not. Throws could_not_t when there can be no process.
std::string broken_property(const story_t &story);

/// The story with the fewest switches, cables and events found of which the verdict is still the same.
/// `progress` hears of each that is smaller.
story_t shrink(story_t story, const verdict_of_t &verdict_of = broken_property,
               const std::function<void(const story_t &)> &progress = {});

} // namespace sim
