/// The interfaces on which the frames of a capture file were seen, which the library that reads the file does not tell.
#pragma once

#include <cstdint>
#include <deque>
#include <span>
#include <string>
#include <vector>

/// Follows the octets of a capture file as they are read. Only the newer format, pcapng, names interfaces; what is not
/// sound in it is for the library to refuse, and ends the names.
class interfaces_t {
public:
    /// Takes the next octets of the file.
    void take(std::span<const uint8_t> octets);

    /// The interface of the next frame, which must have been taken as a whole; empty when the file does not name it.
    std::string next_frame();

private:
    bool take_block();
    void take_interface(std::span<const uint8_t> body);
    uint32_t number(std::span<const uint8_t> octets) const;

    std::vector<uint8_t> pending_; ///< what was not looked at yet, from the beginning of a block on
    bool is_begun_ = false;        ///< by the head of a section, as a file of the newer format
    bool over_ = false;            ///< there are no more names
    bool big_endian_ = false;
    std::vector<std::string> interfaces_; ///< of the section, by their number
    std::deque<std::string> frames_;      ///< the interface of each frame that was taken, but not asked for
};
