/// What a switch can be cabled to: Linux kernel bridges and hosts.
#pragma once

#include <chrono>
#include <map>
#include <string>

#include "board/lab/node.h"

namespace lab {

struct bridge_settings_t {
    int priority = 32768;
    int max_age = 20;
    int hello_time = 2;
    int forward_delay = 15;
};

/// One port of a kernel bridge, as the kernel tells it.
struct kernel_port_t {
    int number;
    std::string state; ///< "disabled", "listening", "learning", "forwarding" or "blocking"
    bridge_id_t root;  ///< as the designated bridge of its cable tells
};

struct kernel_view_t {
    bridge_id_t bridge;
    bridge_id_t root;
    int root_port;                              ///< 0: this bridge is the root
    std::map<std::string, kernel_port_t> ports; ///< by interface
};

/// A Linux bridge that speaks spanning tree: IEEE 802.1D-1998 STP, not rapid.
class kernel_bridge_t {
public:
    /// number  as node_t takes it; also part of the bridge's identifier.
    kernel_bridge_t(std::string name, int number, const bridge_settings_t &settings);

    const node_t &node() const { return node_; }

    /// Makes a cable's interface a port of the bridge.
    void add_port(const std::string &interface) const;

    kernel_view_t view() const;

private:
    node_t node_;
};

/// A machine with one interface, eth0, and an address.
class host_t {
public:
    /// address  such as "10.0.0.1"; all hosts of a lab are in one /24.
    host_t(std::string name, int number, std::string address);

    const node_t &node() const { return node_; }
    const std::string &address() const { return address_; }

    /// Gives eth0 its address, once its cable is there.
    void set_address() const;

    /// Whether the other host answers a ping within `patience`.
    bool reaches(const host_t &other, std::chrono::milliseconds patience) const;

private:
    node_t node_;
    std::string address_;
};

} // namespace lab
