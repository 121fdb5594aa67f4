#include "tools/ctl/capture.h"

#include <memory>

#include <fmt/format.h>
#include <pcap/pcap.h>

#include "tools/ctl/ctl.h"

std::vector<captured_t> read_capture(const std::string &path)
{
    char reason[PCAP_ERRBUF_SIZE] = {};
    const std::unique_ptr<pcap_t, decltype(&pcap_close)> file(pcap_open_offline(path.c_str(), reason), pcap_close);
    if (!file)
        throw refused_t(fmt::format("{} is no capture file that can be read: {}", path, reason));
    if (pcap_datalink(file.get()) != DLT_EN10MB)
        throw refused_t(fmt::format("{} holds no Ethernet frames: capture on one interface, not on \"any\"", path));

    std::vector<captured_t> frames;
    pcap_pkthdr *header = nullptr;
    const u_char *octets = nullptr;
    int result;
    while ((result = pcap_next_ex(file.get(), &header, &octets)) == 1)
        frames.push_back({frames.size() + 1,
                          std::chrono::system_clock::time_point(std::chrono::seconds(header->ts.tv_sec) +
                                                                std::chrono::microseconds(header->ts.tv_usec)),
                          {octets, octets + header->caplen}});
    if (result != PCAP_ERROR_BREAK)
        throw refused_t(fmt::format("{} is damaged after frame {}: {}", path, frames.size(), pcap_geterr(file.get())));
    return frames;
}
