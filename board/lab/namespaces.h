/// Threads in other namespaces: a thread can change its own without those of the process.
#pragma once

#include <functional>

#include "board/lvt_board/fd.h"

namespace lab {

/// Calls `action` in a thread of its own, and waits for it; what it throws is thrown here.
void in_thread(const std::function<void()> &action);

/// The same in the network namespace `net`. A socket opened there stays in the namespace.
void in_net(int net, const std::function<void()> &action);

/// A network namespace in which nobody speaks unasked: no IPv6 and its own announcements, where that may be said.
/// Throws std::system_error.
fd_t make_net();

/// The same for the calling thread, which moves there.
fd_t enter_new_net();

} // namespace lab
