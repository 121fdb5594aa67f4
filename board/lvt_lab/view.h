/// What a lab is at a moment, as its server tells it and all who show it take it.
#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include <nlohmann/json_fwd.hpp>

namespace lvt_lab {

/// What the latest BPDU said that left an end of a cable.
struct claim_t {
    std::string type = {};   ///< "RST", "config" or "TCN"
    std::string root = {};   ///< "32768/02:00:00:00:01:00"
    uint32_t cost = 0;       ///< from the sender to that root
    std::string bridge = {}; ///< the sender
    unsigned port = 0;       ///< its port identifier
    std::string flags = {};  ///< "designated, learning, forwarding"
    double at = 0;           ///< milliseconds of the lab
    bool operator==(const claim_t &) const = default;
};

struct end_view_t {
    std::string name;  ///< "sw1:2"; of a host "h1"
    std::string node;  ///< "sw1"
    unsigned port = 0; ///< 2
    bool link = false;
    std::string role;  ///< "root", "designated", ...; "off" outside the tree; empty for a host, or while nobody tells
    std::string state; ///< "discarding", "learning", "forwarding", "down", "off"; empty for a host
    uint32_t cost = 0; ///< the port's path cost; 0 while nobody tells

    // What this end sent into the cable.
    uint64_t frames = 0;
    uint64_t octets = 0;
    uint64_t bpdus = 0;
    uint64_t lost = 0;   ///< of these frames, by the cable's quality
    std::string quality; ///< "delay 20ms loss 10%" of what this end sends; empty for the usual one
    std::optional<claim_t> claim;

    /// What it does not let through itself.
    bool cuts() const { return state == "discarding" || state == "learning"; }
};

struct cable_view_t {
    std::string name; ///< "sw1:1-sw2:2"
    bool plugged = false;
    bool carries = false; ///< data goes through: there is link, and both ends forward
    std::array<end_view_t, 2> ends;
};

struct node_view_t {
    std::string name;
    std::string kind; ///< "switch", "lvt-bridge", "linux-bridge" or "host"
    bool power = true;
    bool daemon = true;   ///< its spanning tree runs
    bool rapid = false;   ///< its daemon was asked to be rapid
    bool is_root = false; ///< it says so itself
    std::string bridge;   ///< its identifier "32768/02:00:00:00:01:00"; of a host its address
    std::string root;     ///< the root that it knows, in the same form
    unsigned root_port = 0;
    std::string mac;
};

struct lab_view_t {
    std::string lab;      ///< its name
    std::string network;  ///< the name in the file
    double ms = 0;        ///< since it is up
    bool at_rest = false; ///< nothing has changed for a while, and nothing is left to be changed
    std::vector<node_view_t> nodes;
    std::vector<cable_view_t> cables;

    const node_view_t *node(const std::string &name) const;
    const end_view_t *end(const std::string &name) const;
};

nlohmann::json to_json(const lab_view_t &view);

/// Throws nlohmann::json::exception.
lab_view_t view_of(const nlohmann::json &json);

/// Something that happened.
struct event_t {
    uint64_t number = 0;    ///< counted from 1
    double ms = 0;          ///< since the lab is up
    int64_t unix_ms = 0;    ///< since 1970
    std::string what = {};  ///< "command", "link", "state", "role", "root", "claim", "ping", "daemon", "calm"
    std::string node = {};  ///< whom it happened to, if that is a node
    unsigned port = 0;      ///< of the node; 0: none
    std::string cable = {}; ///< the cable it is about, if any
    std::string value = {}; ///< the new value, as in the view
    std::string text = {};  ///< for people
};

nlohmann::json to_json(const event_t &event);
event_t event_of(const nlohmann::json &json);

} // namespace lvt_lab
