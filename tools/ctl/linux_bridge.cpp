#include "tools/ctl/linux_bridge.h"

#include <filesystem>
#include <vector>

#include <fcntl.h>
#include <fmt/format.h>
#include <nlohmann/json.hpp>
#include <sys/file.h>
#include <unistd.h>

#include "platform/messages.h"
#include "tools/bridge_notes.h"
#include "tools/ctl/text_file.h"
#include "tools/messages.h"

namespace {

namespace fs = std::filesystem;

constexpr size_t REPORT_OCTETS_MAX = 1 << 16;

std::string note_path(const ctl_t &ctl, const std::string &bridge, const char *kind)
{
    return fmt::format("{}/{}{}", ctl.bridges, bridge, kind);
}

/// Whoever rules the bridge holds the lock.
bool is_ruled(const ctl_t &ctl, const std::string &bridge)
{
    const int fd = open(note_path(ctl, bridge, BRIDGE_LOCK).c_str(), O_RDONLY | O_CLOEXEC | O_NOFOLLOW);
    const bool ruled = fd >= 0 && flock(fd, LOCK_SH | LOCK_NB) != 0;
    if (fd >= 0)
        close(fd);
    return ruled;
}

nlohmann::json report_of_bridge(const ctl_t &ctl)
{
    const std::string path = note_path(ctl, ctl.bridge, BRIDGE_REPORT);
    try {
        const auto text = is_ruled(ctl, ctl.bridge) ? read_text_file(path, REPORT_OCTETS_MAX) : std::nullopt;
        if (!text)
            throw untold_t(fmt::format("no lvt_bridge rules {}, or it is not ready yet", ctl.bridge));
        return nlohmann::json::parse(*text);
    } catch (const nlohmann::json::exception &) {
        throw untold_t(fmt::format("{} is no report of lvt_bridge", path));
    }
}

std::vector<std::string> ruled_bridges(const ctl_t &ctl)
{
    std::vector<std::string> bridges;
    std::error_code none;
    for (const auto &entry : fs::directory_iterator(ctl.bridges, none))
        if (entry.path().extension() == BRIDGE_LOCK && is_ruled(ctl, entry.path().stem()))
            bridges.push_back(entry.path().stem());
    return bridges;
}

} // namespace

void find_bridge(ctl_t &ctl)
{
    std::error_code none;
    if (ctl.bridge.empty()) {
        if (!ctl.root.empty() || fs::exists(RSTP_IF_PIPE, none))
            return;
        const std::vector<std::string> bridges = ruled_bridges(ctl);
        if (bridges.size() != 1)
            return;
        ctl.bridge = bridges.front();
    }
    try {
        const nlohmann::json report = report_of_bridge(ctl);
        ctl.root = fmt::format("/proc/{}/root", report.at("pid").get<int>());
        ctl.config = report.at("config");
    } catch (const nlohmann::json::exception &) {
        throw untold_t(fmt::format("the report of {} is not understood", ctl.bridge));
    }
    if (ctl.config.empty())
        ctl.config = fmt::format("/etc/lvt_rstp/{}.toml", ctl.bridge);
}

linux_ports_t linux_ports(const ctl_t &ctl)
{
    linux_ports_t ports;
    if (ctl.bridge.empty())
        return ports;
    try {
        const nlohmann::json report = report_of_bridge(ctl);
        for (const nlohmann::json &port : report.at("ports"))
            ports[port.at("port")] = {port.at("interface"), port.at("kernel"), port.at("differs")};
    } catch (const nlohmann::json::exception &) {
        throw untold_t(fmt::format("the report of {} is not understood", ctl.bridge));
    }
    return ports;
}

std::string way_to(const ctl_t &ctl)
{
    if (!ctl.bridge.empty())
        return " --bridge " + ctl.bridge;
    return ctl.root.empty() ? "" : " --root " + ctl.root;
}
