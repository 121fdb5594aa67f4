/// How the simulator ends when it cannot do what it was told.
#pragma once

#include <stdexcept>

namespace sim {

/// Ends the program with status 2: the words were understood, but they make no sense.
struct usage_t : std::runtime_error {
    using std::runtime_error::runtime_error;
};

/// The same with lines "FILE:LINE:COLUMN: ..." that are told as they are, as compilers do.
struct faults_t : usage_t {
    using usage_t::usage_t;
};

/// Ends the program with status 3: a file, an output or the machine does not do.
struct could_not_t : std::runtime_error {
    using std::runtime_error::runtime_error;
};

} // namespace sim
