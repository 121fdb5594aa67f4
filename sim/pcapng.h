/// Captures of all cables, in the format that protocol analysers read.
#pragma once

#include <cstdint>
#include <cstdio>
#include <memory>
#include <span>
#include <string>
#include <vector>

#include "sim/queue.h"

namespace sim {

/// A pcapng file of Ethernet frames, with an interface for each name.
class pcapng_t {
public:
    /// Throws could_not_t.
    pcapng_t(const std::string &path, const std::vector<std::string> &interfaces);

    void put(uint32_t interface, moment_t at, std::span<const uint8_t> frame);

    /// Throws could_not_t unless all of it has arrived in the file.
    void close();

private:
    void write(std::span<const uint8_t> octets);

    std::string path_;
    std::unique_ptr<std::FILE, int (*)(std::FILE *)> file_;
};

} // namespace sim
