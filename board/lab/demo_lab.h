/// The demo's last act: four switches in a ring as `lvt_lab` makes it, by default and asked to be rapid.
#pragma once

#include <future>
#include <optional>
#include <string>

#include "board/lab/demo_view.h"

namespace lab {

/// What a ring has gone through.
struct ring_course_t {
    /// How long no ping between its hosts was answered, in seconds; nothing when that did not end.
    std::optional<double> pulled, plugged;
    std::string trouble; ///< the command that did not do; empty when all did
    std::string told;    ///< what it told, where that was not shown
};

class lab_act_t {
public:
    /// Starts the ring that is by default, which goes through it all beside the acts before this one.
    lab_act_t();

    /// Lets the rapid ring go through the same on the screen, and compares them.
    void play(demo_view_t &view);

private:
    std::future<ring_course_t> by_default_;
};

/// A demo of that act alone. Returns whether everything was right.
bool play_lab();

} // namespace lab
