/// A machine with a Linux bridge, br0, that lvt_bridge rules; or, in the first network namespace, such a bridge among
/// other interfaces, with a longer name.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "board/lab/cable.h"
#include "board/lab/first_net.h"
#include "tools/status_file.h"

namespace lab {

struct ruled_bridge_settings_t {
    std::string name = "bridge";
    int number = 1;                        ///< as node_t takes it; the bridge's MAC address is the node's
    std::string program = {};              ///< empty: what the environment names in LVT_BRIDGE, or lvt_bridge beside
                                           ///< the running program
    std::string settings = {};             ///< text of a settings file; empty: there is none
    std::vector<std::string> options = {}; ///< further words for the command line, before the bridge's name
    first_net_t first = {};                ///< where it is, if that was made; else in a network namespace of its own
};

class ruled_bridge_t {
public:
    /// Throws cannot_run_t when a program is missing.
    explicit ruled_bridge_t(ruled_bridge_settings_t settings);
    ~ruled_bridge_t();
    ruled_bridge_t(const ruled_bridge_t &) = delete;
    ruled_bridge_t &operator=(const ruled_bridge_t &) = delete;

    const node_t &node() const { return node_; }

    /// What br0, lan1 ... are called.
    std::string interface(const std::string &name) const;

    /// The command line that rules the bridge.
    std::vector<std::string> command() const;

    /// Whether the kernel leaves the states of the ports to a program; else the firewall keeps them closed.
    bool has_user_stp() const { return settings_.first.net >= 0; }

    /// What the kernel calls the state of a port that discards.
    std::string discards() const { return has_user_stp() ? "blocking" : "disabled"; }

    /// Where to plug a cable in: the interface lanN.
    cable_end_t port(int number) const;

    /// Makes a cable's interface a port of the bridge.
    void join(int number) const;

    /// Starts lvt_bridge and waits until its daemon rules. Throws std::runtime_error, with what it said, when that
    /// does not come in time.
    void start();

    process_t &program() { return program_; }

    /// What lvt_bridge has said since the node was made.
    std::string said() const;

    /// The daemon's status file; nothing while there is none, or only a part of one.
    std::optional<bridge_status_t> status() const;

    /// The daemon's state of a port, HW_DISABLED ...; -1 while it is not told.
    int state(int number) const;

    /// The kernel's state of lan1 ...: "forwarding", "blocking" ...; empty of one that is no port of a bridge.
    std::string kernel_state(const std::string &name) const;

    /// A file of the daemon's as this process reaches it, while it lives.
    std::string daemon_path(const std::string &path) const;

    /// lvt_rstpctl with these words, spoken to the daemon.
    outcome_t ctl(std::vector<std::string> words) const;

    /// All that is known, for the report of a failure.
    std::string story() const;

private:
    std::string state_dir() const;

    ruled_bridge_settings_t settings_;
    node_t node_;
    process_t program_;
};

} // namespace lab
