/// Standard output: whether all arrives there, and what kind of screen it is.
#pragma once

#include <optional>

struct screen_t {
    unsigned short rows, columns; ///< 0: not known
};

/// The terminal that standard output is, if it is one that knows control sequences.
std::optional<screen_t> screen();

/// Writes out what was printed until now. Throws refused_t when it does not arrive.
void flush_output();

/// The same for who goes on reporting; also throws when the output is a pipe that nobody reads.
void flush_for_reader();
