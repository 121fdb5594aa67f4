/// The daemon's state as octets: what state.h gathers, taken out and put back. An image belongs to one
/// program: records in it point to each other.
#pragma once

#include <cstdint>
#include <vector>

struct daemon_image_t {
    std::vector<uint8_t> state;
    std::vector<uint8_t> reserved;
    std::vector<uint8_t> process; ///< threads, semaphores, descriptors
};

/// The daemon as it is now.
daemon_image_t daemon_image();

/// Puts a daemon into the program's memory, in the place of the one that is there.
void daemon_image_restore(const daemon_image_t &image);

/// The daemon as the program began: no function of it has run.
const daemon_image_t &daemon_image_at_start();
