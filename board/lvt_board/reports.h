/// What clients can ask of the board and tell it, as JSON: see board/client/board_client.h for the
/// questions.
#pragma once

#include <nlohmann/json_fwd.hpp>

#include "lvt_board/board.h"

/// Answers {"show": WHAT, ...} and does {"set": WHAT, ...}. Throws std::invalid_argument, or a
/// nlohmann::json::exception, for a request that it does not understand; then nothing is changed.
nlohmann::json board_answer(board_t &board, const nlohmann::json &request);

/// The speed of a request or an option; throws std::invalid_argument unless the PHYs can do it.
speed_t speed_of(unsigned mbit, bool full_duplex);
