/// The bridges of this machine that lvt_bridge rules.
#pragma once

#include <map>
#include <optional>
#include <string>

#include "tools/ctl/ctl.h"

/// An interface that is a front port.
struct linux_port_t {
    std::string interface;
    std::string kernel;   ///< its state in the kernel's words; empty when that is not known
    bool differs = false; ///< the kernel lets something else through than the daemon said
};

using linux_ports_t = std::map<int, linux_port_t>;

/// Turns `ctl` to the daemon of ctl.bridge; where none is named and no daemon runs here otherwise, to that of the only
/// bridge that is ruled, if there is just one. Throws untold_t when the bridge named is not ruled.
void find_bridge(ctl_t &ctl);

/// The front ports of the bridge that `ctl` was turned to; none when it was not. Throws untold_t.
linux_ports_t linux_ports(const ctl_t &ctl);

/// How a command reaches the same daemon: " --bridge br0", " --root DIR" or nothing.
std::string way_to(const ctl_t &ctl);
