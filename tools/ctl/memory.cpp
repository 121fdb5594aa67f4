#include "tools/ctl/memory.h"

#include <cerrno>
#include <cstring>

#include <fcntl.h>
#include <fmt/format.h>
#include <fmt/ranges.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

constexpr char RUNTIME_FOLDER[] = "/tmp/lvt_rstpctl";
constexpr char SENT[] = "sent.toml"; ///< in the form of a configuration file

std::string flag_text(uint8_t flag) { return flag ? "true" : "false"; }

std::string point_to_point_text(uint8_t value) { return value == 0 ? "true" : value == 1 ? "false" : "\"auto\""; }

/// The edits of one section.
class section_edits_t {
public:
    section_edits_t(std::vector<edit_t> &edits, std::string section) : edits_(edits), section_(std::move(section)) {}

    void add(const std::string &key, const std::string &from, const std::string &to)
    {
        if (from != to)
            edits_.push_back({section_, key, to});
    }
    template <typename number_t>
    void number(const std::string &key, number_t from, number_t to)
    {
        add(key, fmt::to_string(from), fmt::to_string(to));
    }
    /// What ports and groups have alike.
    void record(const lvt_rstp_port_config_t &from, const lvt_rstp_port_config_t &to)
    {
        add("spanning_tree", flag_text(from.adminEnable), flag_text(to.adminEnable));
        number("path_cost", uint32_t{from.adminPathCost}, uint32_t{to.adminPathCost});
        number("priority", uint16_t{from.port_priority}, uint16_t{to.port_priority});
        add("point_to_point", point_to_point_text(from.adminPointToPoint), point_to_point_text(to.adminPointToPoint));
    }

private:
    std::vector<edit_t> &edits_;
    std::string section_;
};

std::string members_text(const aggr_status_t &groups, size_t group)
{
    std::vector<size_t> members;
    for (size_t port = 1; port <= FRONT_PORTS; port++)
        if (groups[port] == group)
            members.push_back(port);
    return fmt::format("[{}]", fmt::join(members, ", "));
}

std::string folder_of(const ctl_t &ctl) { return ctl.root + RUNTIME_FOLDER; }

/// Nobody else may have made it, or write in it: it is in a folder that all may write.
bool is_folder_ours(const ctl_t &ctl)
{
    struct stat folder = {};
    return lstat(folder_of(ctl).c_str(), &folder) == 0 && S_ISDIR(folder.st_mode) && folder.st_uid == geteuid() &&
           !(folder.st_mode & (S_IWGRP | S_IWOTH));
}

/// The last settings sent, or those of the stored file.
settings_t settings_remembered(const ctl_t &ctl)
{
    try {
        if (const auto text = find_runtime_text(ctl, SENT))
            return settings_in(*text, SENT);
    } catch (const refused_t &) { // of an older version, say
    }
    const place_t stored = {ctl.root, CONFIG_FILE};
    try {
        return settings_in(find_config_text(stored).value_or(""), stored.text());
    } catch (const refused_t &) {
        return {};
    }
}

} // namespace

place_t runtime_file(const ctl_t &ctl, const std::string &name)
{
    return {"", fmt::format("{}/{}", folder_of(ctl), name)};
}

void make_runtime_folder(const ctl_t &ctl)
{
    const std::string path = folder_of(ctl);
    if (mkdir(path.c_str(), 0755) != 0 && errno != EEXIST)
        throw refused_t(fmt::format("cannot make {}: {}", path, std::strerror(errno)));
    if (!is_folder_ours(ctl))
        throw refused_t(fmt::format("{} is no folder that only this user may write: remove it", path));
}

std::optional<std::string> find_runtime_text(const ctl_t &ctl, const std::string &name)
{
    return is_folder_ours(ctl) ? find_config_text(runtime_file(ctl, name)) : std::nullopt;
}

void remember(const ctl_t &ctl, const std::function<void(settings_t &settings)> &change)
{
    if (ctl.dry_run)
        return;
    try {
        make_runtime_folder(ctl);
        settings_t settings = settings_remembered(ctl);
        change(settings);
        save_config(runtime_file(ctl, SENT), with_settings("", edits_between({}, settings)));
    } catch (const refused_t &) {
    }
}

settings_t settings_in_force(const ctl_t &ctl, const bridge_status_t &now)
{
    settings_t settings = settings_remembered(ctl);
    settings.bridge.bridge_priority = now.bridge.prio;
    if (now.is_root()) { // else the times are another bridge's
        settings.bridge.max_age = static_cast<uint16_t>(now.max_age);
        settings.bridge.hello_time = static_cast<uint16_t>(now.hello_time);
        settings.bridge.forward_delay = static_cast<uint16_t>(now.forward_delay);
    }
    for (size_t port = 1; port <= FRONT_PORTS; port++) {
        const port_status_t &status = now.port(static_cast<int>(port));
        if (settings.groups_stated)
            settings.groups[port] = static_cast<uint8_t>(status.group ? status.group : static_cast<int>(port));
        if (status.group) {
            settings.ports[0].adminEnable = now.port(status.group).role != ROLE_NON_STP;
            continue;
        }
        settings.ports[port].adminEnable = status.role != ROLE_NON_STP;
        if (status.role == ROLE_DESIGNATED && status.edge)
            settings.ports[port].adminEdge = 1;
    }
    return settings;
}

std::vector<edit_t> edits_between(const settings_t &from, const settings_t &to)
{
    std::vector<edit_t> edits;
    section_edits_t bridge(edits, "bridge");
    bridge.number("priority", from.bridge.bridge_priority, to.bridge.bridge_priority);
    bridge.number("max_age", from.bridge.max_age, to.bridge.max_age);
    bridge.number("hello_time", from.bridge.hello_time, to.bridge.hello_time);
    bridge.number("forward_delay", from.bridge.forward_delay, to.bridge.forward_delay);
    bridge.number("force_version", from.bridge.force_version, to.bridge.force_version);

    for (size_t port = 1; port <= FRONT_PORTS; port++) {
        section_edits_t section(edits, fmt::format("port.{}", port));
        section.record(from.ports[port], to.ports[port]);
        section.add("edge", flag_text(from.ports[port].adminEdge), flag_text(to.ports[port].adminEdge));
        section.add("lacp", flag_text(from.lacp[port - 1]), flag_text(to.lacp[port - 1]));
    }

    section_edits_t groups(edits, "groups");
    groups.record(from.ports[0], to.ports[0]);
    const size_t first = FRONT_PORTS + 1;
    for (size_t group = first; to.groups_stated && group <= RSTP_PORTS; group++) {
        const bool named = from.groups_stated || group != first; // one that is named will do
        groups.add(fmt::to_string(group), named ? members_text(from.groups, group) : "",
                   members_text(to.groups, group));
    }
    return edits;
}

std::string with_settings(std::string text, const std::vector<edit_t> &edits)
{
    for (const edit_t &edit : edits)
        text = with_setting(text, edit);
    return text;
}
