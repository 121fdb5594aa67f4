/// A node of a lab as the lab's own files see it.
#pragma once

#include <atomic>
#include <ctime>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <utility>

#include <fmt/format.h>

#include "board/lab/process.h"
#include "board/lvt_lab/lab.h"
#include "tools/ctl/config_file.h"

namespace lvt_lab {

/// The settings in a node's own /etc.
constexpr char CONFIG[] = "/etc/lvt_rstp.toml";

/// The settings as a file of the switch's own.
std::string config_text(const settings_t &settings);

inline const char *kind_word(topology::kind_t kind) { return topology::KIND_WORDS[static_cast<size_t>(kind)]; }

struct lab_t::member_t {
    size_t index;
    const topology::node_t &told;

    // One of these.
    std::unique_ptr<lab::switch_t> device;
    std::unique_ptr<lab::kernel_bridge_t> bridge;
    std::unique_ptr<lab::host_t> host;
    lab::process_t ruler;    ///< lvt_bridge, of a bridge that is ruled by the daemon
    std::string status_path; ///< of the daemon's status file, once that runs

    std::recursive_mutex mutex; ///< of its processes, and of what is done to it
    std::atomic<bool> powered = true;
    std::atomic<bool> runs = false; ///< its daemon does

    struct place_t {
        size_t cable;
        unsigned end;
    };
    std::map<unsigned, place_t> places; ///< by port

    // Of the watching thread alone.
    fd_t log, log_end; ///< a pipe: what the board sees
    fd_t link_events;
    std::optional<board_client_t> client;
    timespec status_time = {};
    std::atomic<int> looks = 0; ///< at a kernel's bridge, that are due: one may come before it has taken the news in

    // Of what was seen.
    std::string identifier, root;
    unsigned root_port = 0;
    std::pair<std::string, uint32_t> claimed; ///< root and cost, as it told last

    member_t(size_t number, const topology::node_t &node) : index(number), told(node) {}

    const std::string &name() const { return told.name; }

    const lab::node_t &node() const { return device ? device->node() : bridge ? bridge->node() : host->node(); }

    int number() const { return static_cast<int>(index) + 1; }

    bool has_daemon() const { return device || told.kind == topology::kind_t::LVT_BRIDGE; }

    lab::process_t &daemon() { return device ? device->daemon() : ruler; }

    std::string interface(unsigned port) const { return host ? "eth0" : fmt::format("port{}", port); }

    std::string mac(unsigned port) const { return node().mac(host ? 0 : static_cast<int>(port)); }
};

} // namespace lvt_lab
