#include "tools/pcapng.h"

#include <cstring>

namespace {

/// A block of the file: its words in this machine's order, which the first block tells.
class block_t {
public:
    explicit block_t(uint32_t type) { word(type).word(0); }

    block_t &word(uint32_t value) { return put({reinterpret_cast<const uint8_t *>(&value), sizeof value}); }

    block_t &half(uint16_t value) { return put({reinterpret_cast<const uint8_t *>(&value), sizeof value}); }

    /// Octets, filled up to whole words.
    block_t &padded(std::span<const uint8_t> octets)
    {
        put(octets);
        octets_.resize((octets_.size() + 3) / 4 * 4);
        return *this;
    }

    block_t &option(uint16_t code, std::span<const uint8_t> octets)
    {
        return half(code).half(static_cast<uint16_t>(octets.size())).padded(octets);
    }

    /// Appends the whole block, its length at both ends.
    void append_to(std::vector<uint8_t> &file)
    {
        const auto length = static_cast<uint32_t>(octets_.size() + sizeof(uint32_t));
        word(length);
        memcpy(octets_.data() + sizeof(uint32_t), &length, sizeof length);
        file.insert(file.end(), octets_.begin(), octets_.end());
    }

private:
    block_t &put(std::span<const uint8_t> octets)
    {
        octets_.insert(octets_.end(), octets.begin(), octets.end());
        return *this;
    }

    std::vector<uint8_t> octets_;
};

constexpr uint32_t SECTION_HEADER = 0x0A0D0D0A, ORDER_MARK = 0x1A2B3C4D, LENGTH_UNKNOWN = UINT32_MAX;
constexpr uint32_t INTERFACE_DESCRIPTION = 1, ENHANCED_PACKET = 6;
constexpr uint16_t VERSION_MAJOR = 1, VERSION_MINOR = 0, ETHERNET = 1;
constexpr uint16_t OPTION_END = 0, OPTION_NAME = 2;

} // namespace

// Times are in microseconds unless an interface says otherwise.
std::vector<uint8_t> pcapng_opening(const std::vector<std::string> &interfaces)
{
    std::vector<uint8_t> file;
    block_t(SECTION_HEADER)
        .word(ORDER_MARK)
        .half(VERSION_MAJOR)
        .half(VERSION_MINOR)
        .word(LENGTH_UNKNOWN)
        .word(LENGTH_UNKNOWN)
        .append_to(file);
    for (const std::string &name : interfaces)
        block_t(INTERFACE_DESCRIPTION)
            .half(ETHERNET)
            .half(0)
            .word(0) // frames are never cut
            .option(OPTION_NAME, {reinterpret_cast<const uint8_t *>(name.data()), name.size()})
            .option(OPTION_END, {})
            .append_to(file);
    return file;
}

std::vector<uint8_t> pcapng_packet(uint32_t interface, uint64_t microseconds, std::span<const uint8_t> frame)
{
    std::vector<uint8_t> file;
    const auto length = static_cast<uint32_t>(frame.size());
    block_t(ENHANCED_PACKET)
        .word(interface)
        .word(static_cast<uint32_t>(microseconds >> 32))
        .word(static_cast<uint32_t>(microseconds))
        .word(length)
        .word(length)
        .padded(frame)
        .append_to(file);
    return file;
}
