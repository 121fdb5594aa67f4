/// A machine of the lab: a network namespace (or one that is there), a /tmp and an /etc of its own; its other files are
/// this machine's. It lives as long as its object and the processes started in it; nothing of it is visible in the file
/// system outside.
#pragma once

#include <cstdint>
#include <filesystem>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

#include "board/lab/process.h"
#include "rstp/records.h"

namespace lab {

class node_t {
public:
    /// name      for people and error messages.
    /// number    1 to 65535, different for every node of a lab; its MAC addresses are made from it.
    /// programs  what is to be started in it and may lie below /tmp, as make_tmp takes it.
    /// net       a network namespace that it shares with others; -1: it gets one of its own.
    /// Throws std::system_error.
    node_t(std::string name, int number, const std::vector<std::filesystem::path> &programs = {}, int net = -1);

    const std::string &name() const { return name_; }

    /// 02:00:00:NN:NN:PP, with the node's number and that of one of its interfaces; 0 is the node.
    std::string mac(int port = 0) const;

    /// How this process reaches the file that the node knows as `path` (absolute).
    std::string path(const std::string &path) const;

    /// What the file holds; empty when it cannot be read.
    std::string read(const std::string &path) const;

    /// Starts a program in the node; lab::start and lab::run tell the rest.
    process_t start(command_t command) const;
    outcome_t run(command_t command, const std::string &input = {}) const;

    /// Runs `ip` commands, one a line. Throws std::runtime_error with the answer when one fails.
    ///
    /// keep_open  descriptors that a command names as /proc/self/fd/N.
    void ip(const std::string &commands, std::vector<int> keep_open = {}) const;

    /// Calls `action` in the node's network namespace, in a thread of its own; what it throws is
    /// thrown here. A socket opened there stays in the namespace.
    void in_net(const std::function<void()> &action) const;

    /// A raw socket on `interface`, for all protocols and both directions. Throws std::system_error.
    fd_t packet_socket(const std::string &interface) const;

    /// Moves the calling thread, and what it starts from then on, into the node.
    void enter() const;

    place_t place() const { return {net_.number(), mount_.number(), root_.number()}; }

private:
    std::string name_;
    int number_;
    fd_t net_;
    fd_t mount_;
    fd_t root_;
};

} // namespace lab
