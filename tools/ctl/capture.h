/// Capture files of Ethernet frames.
#pragma once

#include <chrono>
#include <cstdint>
#include <string>
#include <vector>

struct captured_t {
    size_t number; ///< in the file, from 1
    std::chrono::system_clock::time_point time;
    std::vector<uint8_t> octets; ///< what was captured of the frame
};

/// Reads a whole pcap or pcapng file. Throws refused_t when it is none, damaged, or not of Ethernet.
std::vector<captured_t> read_capture(const std::string &path);
