/// Messages for a daemon under measurement, through its control pipe.
#pragma once

#include <cstdint>
#include <vector>

#include "board/lab/node.h"

class feed_t {
public:
    /// Opens the control pipe of `node`. Throws std::system_error.
    explicit feed_t(const lab::node_t &node);

    /// Throws std::system_error.
    void put(const std::vector<uint8_t> &message);

    /// Gives the first three ports link and spanning tree.
    void take_part();

    /// Puts `count` BPDUs of one neighbour, each of which repeats the one before, and waits until all
    /// are read. Throws std::runtime_error when they are not.
    void bpdus(int count);

private:
    fd_t pipe_;
};
