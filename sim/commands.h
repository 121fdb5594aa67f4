/// lvt_sim: what its commands share. Each command has a source file of its own, cmd_NAME.cpp, which adds it.
#pragma once

#include <stdexcept>
#include <string>

#include <CLI/CLI.hpp>

namespace sim {

enum exit_code_t {
    EXIT_HELD = 0,     ///< all that was judged held
    EXIT_NOT_HELD = 1, ///< something did not
    EXIT_USAGE = 2,    ///< the command line, or a file, was not understood
    EXIT_COULD_NOT = 3 ///< nobody can tell: a file or an output that cannot be used
};

/// Ends the program with status 2: understood the words, but they make no sense.
struct usage_t : std::runtime_error {
    using std::runtime_error::runtime_error;
};

/// The same with lines "FILE:LINE:COLUMN: ..." that are told as they are, as compilers do.
struct faults_t : usage_t {
    using usage_t::usage_t;
};

/// Ends the program with status 3.
struct could_not_t : std::runtime_error {
    using std::runtime_error::runtime_error;
};

/// Writes out what was printed until now. Throws could_not_t when it does not arrive.
void flush_output();

/// What a command leaves for main: set by its callback.
struct result_t {
    exit_code_t code = EXIT_HELD;
};

// Each adds one command. `result` must outlive the parsing.
void add_run_command(CLI::App &app, result_t &result);
void add_seeds_command(CLI::App &app, result_t &result);

} // namespace sim
