/// A board's life, from its first pipe to its last.
#pragma once

#include <string>

#include "lvt_board/board.h"

struct run_options_t {
    std::string socket;
    std::string log; ///< empty: none is kept
    speeds_t speeds;
    bool die_with_parent = false;
};

/// Runs a board until SIGINT, SIGTERM or SIGHUP. Throws std::runtime_error (or one derived from it)
/// when it cannot start; pipes and socket are removed in every case.
void board_run(const run_options_t &options);
