/// The machine's first network namespace, the only one in which the kernel hands the spanning tree of a bridge over to
/// a program. To do so it asks /sbin/bridge-stp, which is put there for the time being where there is none.
#pragma once

#include <filesystem>
#include <string>

namespace lab {

struct first_net_t {
    int net = -1;            ///< -1: guard_first_net was not called
    std::string prefix = {}; ///< with it begin the names of all interfaces that are made there

    /// What br0, lan1 ... of the machine with that number are called: the same, where there is no such namespace.
    std::string name(int machine, const std::string &plain) const;
};

/// To be called in main before enter_world, by who wants to make interfaces there. Returns in a child process. When
/// that has ended, in whatever way, and though the caller may be killed, all that begins with the prefix is taken away:
/// interfaces, and what lvt_bridge has noted of them; and the helper, when nobody else needs it any more.
///
/// helper  the program that is put into the place of /sbin/bridge-stp. Another one there is left alone.
///
/// Throws cannot_run_t where this cannot be had, and why; nothing is left behind then, either.
void guard_first_net(const std::filesystem::path &helper);

/// What guard_first_net has made, also inside of the world that was entered after it.
first_net_t first_net();

} // namespace lab
