#include "sim/pcapng.h"

#include <cerrno>
#include <cstring>

#include <fmt/format.h>

#include "sim/could_not.h"

namespace sim {

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

    /// The whole block, its length at both ends.
    std::span<const uint8_t> whole()
    {
        const auto length = static_cast<uint32_t>(octets_.size() + sizeof(uint32_t));
        word(length);
        memcpy(octets_.data() + sizeof(uint32_t), &length, sizeof length);
        return octets_;
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
pcapng_t::pcapng_t(const std::string &path, const std::vector<std::string> &interfaces)
    : path_(path), file_(std::fopen(path.c_str(), "we"), std::fclose)
{
    if (!file_)
        throw could_not_t(fmt::format("cannot write {}: {}", path_, std::strerror(errno)));
    write(block_t(SECTION_HEADER)
              .word(ORDER_MARK)
              .half(VERSION_MAJOR)
              .half(VERSION_MINOR)
              .word(LENGTH_UNKNOWN)
              .word(LENGTH_UNKNOWN)
              .whole());
    for (const std::string &name : interfaces)
        write(block_t(INTERFACE_DESCRIPTION)
                  .half(ETHERNET)
                  .half(0)
                  .word(0) // frames are never cut
                  .option(OPTION_NAME, {reinterpret_cast<const uint8_t *>(name.data()), name.size()})
                  .option(OPTION_END, {})
                  .whole());
}

void pcapng_t::put(uint32_t interface, moment_t at, std::span<const uint8_t> frame)
{
    const auto length = static_cast<uint32_t>(frame.size());
    write(block_t(ENHANCED_PACKET)
              .word(interface)
              .word(static_cast<uint32_t>(at >> 32))
              .word(static_cast<uint32_t>(at))
              .word(length)
              .word(length)
              .padded(frame)
              .whole());
}

/// Faults are told at the end: they stay with the file.
void pcapng_t::write(std::span<const uint8_t> octets) { std::fwrite(octets.data(), 1, octets.size(), file_.get()); }

void pcapng_t::close()
{
    const bool failed = std::ferror(file_.get()) != 0;
    if (std::fclose(file_.release()) != 0 || failed)
        throw could_not_t(fmt::format("cannot write {}: {}", path_, std::strerror(errno)));
}

} // namespace sim
