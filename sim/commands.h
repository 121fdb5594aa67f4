/// lvt_sim: what its commands share. Each command has a source file of its own, cmd_NAME.cpp, which adds it.
#pragma once

#include <string>

#include <CLI/CLI.hpp>

#include "sim/could_not.h"
#include "sim/draw.h"

namespace sim {

enum exit_code_t {
    EXIT_HELD = 0,     ///< all that was judged held
    EXIT_NOT_HELD = 1, ///< something did not
    EXIT_USAGE = 2,    ///< the command line, or a file, was not understood
    EXIT_COULD_NOT = 3 ///< nobody can tell: a file or an output that cannot be used
};

/// Writes out what was printed until now. Throws could_not_t when it does not arrive.
void flush_output();

/// What a command leaves for main: set by its callback.
struct result_t {
    exit_code_t code = EXIT_HELD;
};

/// --rapid and --mixed of a command that plays networks.
struct rapid_words_t {
    bool rapid = false, mixed = false;

    void add_to(CLI::App &command);
    /// Throws usage_t where the daemon was built without it.
    rapid_t choice() const;
};

/// --shape, --switches, --faults, --rapid and --mixed of a command that draws networks.
struct wish_words_t {
    std::string shape, switches, faults;
    rapid_words_t rapid;

    void add_to(CLI::App &command);
    /// Throws usage_t.
    wishes_t wishes() const;
    /// The same options again, for who is told how to repeat something: " --shape ring".
    std::string again() const;
};

/// A whole number of 64 bits. Throws usage_t.
uint64_t parse_whole(const std::string &what, const std::string &text);

// Each adds one command. `result` must outlive the parsing.
void add_run_command(CLI::App &app, result_t &result);
void add_seeds_command(CLI::App &app, result_t &result);
void add_merge_command(CLI::App &app, result_t &result);
void add_promises_command(CLI::App &app, result_t &result);
void add_shrink_command(CLI::App &app, result_t &result);

// Where topology files can be read.
void add_play_command(CLI::App &app, result_t &result);
void add_settle_command(CLI::App &app, result_t &result);
void add_cost_command(CLI::App &app, result_t &result);

} // namespace sim
