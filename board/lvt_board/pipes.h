/// The board's neighbours of the daemon: the named pipes, and the two daemons that read from some
/// of them.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include <nlohmann/json.hpp>

#include "lvt_board/fd.h"

/// A pipe that another daemon of the board reads; this one only looks at what comes.
struct reader_t {
    const char *path;
    fd_t pipe;
    std::vector<std::uint8_t> pending; ///< octets of a message that is not complete yet
};

/// One message that a reader got: {"pipe": "mux", "port": 3, "forwarding": true, "raw": "b206..."}
/// or {"pipe": "lacp", "enabled": [1, 2], "raw": ...}; what is no message says {"error": ...}.
using heard_t = nlohmann::json;

/// The named pipes that the daemon expects to find, for the board's own user alone. Creating replaces
/// what is there; the destructor removes them. Both throw std::system_error.
class pipes_t {
public:
    pipes_t();
    ~pipes_t();
    pipes_t(const pipes_t &) = delete;
    pipes_t &operator=(const pipes_t &) = delete;

    reader_t lacp;
    reader_t mux;
};

/// Reads what is there, without waiting.
std::vector<heard_t> lacp_read(reader_t &lacp);
std::vector<heard_t> mux_read(reader_t &mux);
