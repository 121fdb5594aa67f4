/// Numbered frames from host to host, to see what is lost, doubled or overtaken.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "board/lab/node.h"

namespace lab {

constexpr char EVERYBODY[] = "ff:ff:ff:ff:ff:ff";

struct numbered_frame_t {
    std::string from;
    std::string to;
    uint32_t number;
};

/// A host's own end of such traffic. It may speak for several addresses, one for each flow.
class station_t {
public:
    explicit station_t(const node_t &node);

    const std::string &mac() const { return mac_; }

    /// Sends one frame. Throws std::system_error when the interface does not take it.
    void send(const std::string &from, const std::string &to, uint32_t number) const;

    /// All numbered frames that have come so far, in order.
    const std::vector<numbered_frame_t> &received();

    /// Begins anew: what has come so far does not count.
    void forget();

    /// How often a frame has come.
    size_t times_received(const std::string &from, uint32_t number);

private:
    fd_t socket_;
    std::string mac_;
    std::vector<numbered_frame_t> received_;
};

} // namespace lab
