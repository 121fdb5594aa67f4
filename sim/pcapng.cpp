#include "sim/pcapng.h"

#include <cerrno>
#include <cstring>

#include <fmt/format.h>

#include "sim/could_not.h"
#include "tools/pcapng.h"

namespace sim {

pcapng_t::pcapng_t(const std::string &path, const std::vector<std::string> &interfaces)
    : path_(path), file_(std::fopen(path.c_str(), "we"), std::fclose)
{
    if (!file_)
        throw could_not_t(fmt::format("cannot write {}: {}", path_, std::strerror(errno)));
    write(pcapng_opening(interfaces));
}

void pcapng_t::put(uint32_t interface, moment_t at, std::span<const uint8_t> frame)
{
    write(pcapng_packet(interface, at, frame));
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
