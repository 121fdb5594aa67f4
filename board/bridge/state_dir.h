/// The folder in which lvt_bridge notes what others look for, /run/lvt_bridge:
///
///     BRIDGE.lock   locked while the bridge is ruled
///     BRIDGE.claim  there from just before lvt_bridge switches the bridge's STP on until the kernel's own forwarding
///                   is switched on again. /sbin/bridge-stp, which the kernel calls with BRIDGE and "start" or "stop",
///                   ends with status 0 for "start" only where this file is: then the states of the ports are
///                   left to a program, and else the kernel's own STP begins. What is ruled stays claimed when
///                   lvt_bridge ends, so that the states stay.
///     BRIDGE.json   while the bridge is ruled: {"bridge", "pid", "mode", "config", "ports": [{"port", "interface",
///                   "kernel", "differs"}]}, for lvt_rstpctl
///     BRIDGE.ports  which interface was which port
#pragma once

#include <filesystem>
#include <stdexcept>
#include <string>

#include "board/lvt_board/fd.h"
#include "tools/bridge_notes.h"

/// Somebody rules the bridge already.
struct ruled_already_t : std::runtime_error {
    using std::runtime_error::runtime_error;
};

/// The folder stays the same whatever is mounted over its path later. All of it throws std::system_error.
class state_dir_t {
public:
    /// Makes the folder where it is missing, and locks the bridge, also against those with another folder in the same
    /// network namespace. Throws ruled_already_t.
    state_dir_t(const std::filesystem::path &folder, const std::string &bridge);
    ~state_dir_t();
    state_dir_t(const state_dir_t &) = delete;
    state_dir_t &operator=(const state_dir_t &) = delete;

    bool claimed() const;
    void claim() const;
    void unclaim() const;

    void write_report(const std::string &text);

    std::string ports() const;
    void write_ports(const std::string &text) const;

private:
    std::string name(const char *kind) const { return bridge_ + kind; }
    void write(const std::string &name, const std::string &text) const;

    std::string bridge_;
    fd_t folder_;
    fd_t lock_;
    fd_t name_; ///< a socket's, in the network namespace
    std::string report_;
};
