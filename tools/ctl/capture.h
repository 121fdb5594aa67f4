/// Capture files of Ethernet frames.
#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <vector>

struct captured_t {
    size_t number;                                             ///< in the file, from 1
    std::optional<std::chrono::system_clock::time_point> time; ///< none where the file has one that is none
    std::string interface;                                     ///< where it was seen; empty: the file does not tell
    std::vector<uint8_t> octets;                               ///< what was captured of the frame
};

/// Goes through a pcap or pcapng file, or standard input for "-". Returns how many frames there were. Throws refused_t
/// when it is none or not of Ethernet, and at the place where it is damaged.
size_t for_each_captured(const std::string &path, const std::function<void(const captured_t &frame)> &action);
