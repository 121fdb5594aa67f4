/// What lvt_switch cables its switch to, as the command line says.
#pragma once

#include <list>
#include <map>
#include <string>
#include <vector>

#include "board/lab/cable.h"
#include "board/lab/neighbours.h"
#include "board/lab/switch_node.h"
#include "board/lab/world.h"

namespace lab {

class surroundings_t {
public:
    /// number  the switch's own; those of the neighbours are made from it.
    /// All objects must outlive this one.
    surroundings_t(const switch_t &device, const world_t &world, int number);

    // These throw std::invalid_argument when a port does not exist or has a cable already.

    /// text  "N:IFNAME": port N is cabled to a new interface of the machine. Also throws for what is no
    ///       name for one, and std::runtime_error for an ordinary user, who may not.
    void add_outside(const std::string &text);

    /// Port `port` is cabled to a host with address 10.0.0.PORT.
    void add_host(int port);

    /// ports  "N,M,...": they are cabled to one kernel bridge with spanning tree.
    void add_bridge(const std::string &ports);

    /// The ports with cables as the tools take them, "1,2,3"; all while none has one.
    std::string ports() const;

    /// One line per neighbour, for people; `pid` is this process as they see it.
    std::vector<std::string> lines(const std::string &pid) const;

    /// Where the neighbours' network namespaces are, as NAME=path.
    std::vector<std::string> variables(const std::string &pid) const;

private:
    struct neighbour_t {
        std::string what;
        std::string variable;
        const node_t *node; ///< nullptr: this machine
    };

    void claim(int port, const neighbour_t &neighbour);
    void cable(int port, const node_t &node, const std::string &interface, int mac);

    const switch_t &device_;
    const world_t &world_;
    int first_number_;
    std::map<int, neighbour_t> neighbours_; ///< by port
    std::list<host_t> hosts_;
    std::list<kernel_bridge_t> bridges_;
    std::list<cable_t> cables_;
};

} // namespace lab
