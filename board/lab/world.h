/// A world of its own for a program: user (unless privileged), network, mount and process
/// namespaces. Whatever the program starts inside, namespaces, interfaces and processes, is gone
/// with it, however it ends.
///
///     caller ── waits, hands signals in and the exit status out
///       └─ first process of the world ── collects orphans; its end is the end of everything
///            └─ the program, started anew inside
#pragma once

#include <stdexcept>
#include <string>
#include <vector>

#include <sys/types.h>

#include "board/lab/process.h"

namespace lab {

/// Something that the kernel or the machine lacks, and how to get it.
struct lack_t {
    std::string what;
    std::string cure;
};

/// The world cannot be made, or what should run there was not built. `what()` is the whole list, ready to be shown;
/// a program that shows it ends with EXIT_UNTOLD.
class cannot_run_t : public std::runtime_error {
public:
    explicit cannot_run_t(std::vector<lack_t> lacks);
    const std::vector<lack_t> &lacks() const { return lacks_; }

private:
    std::vector<lack_t> lacks_;
};

/// Tries out, in a child process that goes away again, everything that the lab needs: namespaces,
/// packet sockets, virtual cables, a bridge with spanning tree, the programs `ip` and `ping`.
/// Returns what is missing; empty when all is there. Takes some tens of milliseconds.
std::vector<lack_t> find_lacks();

struct world_t {
    fd_t caller_net;   ///< the network namespace that the program was started in
    pid_t outside_pid; ///< the program's process number as its caller sees it
    bool unprivileged; ///< true: root inside, an ordinary user outside
};

/// To be called first in main: starts the program anew inside a world of its own. Returns there;
/// outside it waits for the program's end and then ends the same way.
///
/// argv      that of main.
/// farewell  printed when the program was ended by a signal and nothing of the world is left; nullptr: nothing is.
///
/// Throws cannot_run_t when the machine lacks something.
world_t enter_world(char **argv, const char *farewell = nullptr);

} // namespace lab
