#include "tools/ctl/capture.h"

#include <cerrno>
#include <cstring>
#include <memory>

#include <fmt/format.h>
#include <pcap/pcap.h>
#include <unistd.h>

#include "tools/ctl/ctl.h"
#include "tools/ctl/interfaces.h"
#include "tools/ctl/text_file.h"

namespace {

/// A file may have any 64 bits for seconds; this program's clock counts nanoseconds, to the year 2262.
constexpr std::chrono::seconds SECONDS_MAX{9'000'000'000};

std::optional<std::chrono::system_clock::time_point> time_of(const timeval &time)
{
    const std::chrono::seconds seconds(time.tv_sec);
    if (seconds < -SECONDS_MAX || seconds > SECONDS_MAX)
        return {};
    return std::chrono::system_clock::time_point(seconds + std::chrono::microseconds(time.tv_usec));
}

/// A file as the library reads it, in a row and each octet once.
struct watched_file_t {
    file_t file;
    interfaces_t interfaces;
};

ssize_t read_watched(void *cookie, char *buffer, size_t size)
{
    auto *watched = static_cast<watched_file_t *>(cookie);
    const ssize_t count = read(fileno(watched->file.get()), buffer, size); // what is there, as it comes through a pipe
    if (count > 0)
        watched->interfaces.take({reinterpret_cast<const uint8_t *>(buffer), static_cast<size_t>(count)});
    return count;
}

} // namespace

size_t for_each_captured(const std::string &path, const std::function<void(const captured_t &frame)> &action)
{
    watched_file_t watched = {path == "-" ? file_t(stdin, [](std::FILE *) { return 0; }) : open_regular_file(path), {}};
    if (!watched.file)
        throw refused_t(fmt::format("{} cannot be read: {}", path, std::strerror(errno)));
    file_t stream(fopencookie(&watched, "r", {.read = read_watched, .write = {}, .seek = {}, .close = {}}),
                  std::fclose);
    char reason[PCAP_ERRBUF_SIZE] = {};
    const std::unique_ptr<pcap_t, decltype(&pcap_close)> file(pcap_fopen_offline(stream.get(), reason), pcap_close);
    if (!file)
        throw refused_t(fmt::format("{} is no capture file that can be read: {}", path, reason));
    stream.release(); // the library closes it
    if (pcap_datalink(file.get()) != DLT_EN10MB)
        throw refused_t(fmt::format("{} holds no Ethernet frames: capture on one interface, not on \"any\"", path));

    size_t count = 0;
    pcap_pkthdr *header = nullptr;
    const u_char *octets = nullptr;
    int result;
    while ((result = pcap_next_ex(file.get(), &header, &octets)) == 1)
        action({++count, time_of(header->ts), watched.interfaces.next_frame(), {octets, octets + header->caplen}});
    if (result != PCAP_ERROR_BREAK)
        throw refused_t(fmt::format("{} is damaged after frame {}: {}", path, count, pcap_geterr(file.get())));
    return count;
}
