/// The process that is a lab.
#pragma once

#include <string>

#include "board/lvt_board/fd.h"
#include "tools/topology/network.h"

namespace lvt_lab {

/// What a server is started with.
struct serve_args_t {
    std::string name;
    topology::network_t network;
    bool with_story = false;
};

/// The word that standard error ends with when a lab is up; after it nothing is said there.
constexpr char READY[] = "ready\n";

/// Starts a process that is a lab until it is told to end, in a session of its own. Returns what it says on standard
/// error until the lab is up or cannot be, READY at its end in the first case; then `exit_code` is that of the
/// process.
std::string start_server(const serve_args_t &args, int &exit_code);

/// Whether this process was started by start_server, which makes it one: main calls serve() then.
bool is_server();

/// Returns the exit code.
int serve(char **argv);

} // namespace lvt_lab
