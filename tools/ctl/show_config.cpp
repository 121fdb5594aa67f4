#include "tools/ctl/show_config.h"

#include <fmt/format.h>

#include "tools/ctl/output.h"
#include "tools/ctl/status.h"
#include "tools/ctl/status_json.h"

namespace {

constexpr setting_value_t OPEN; // left to the daemon, or not told by it

setting_value_t whole(int64_t value) { return value; }

setting_value_t told_if(bool told, setting_value_t value) { return told ? value : OPEN; }

compared_t compared(const char *key, setting_value_t set, setting_value_t runs)
{
    return {key, set, runs, set != OPEN && runs != OPEN && set != runs};
}

/// Where the tree leads to another root, its times rule.
compared_section_t compare_bridge(const settings_t &settings, const bridge_status_t &status)
{
    const auto &config = settings.bridge;
    const bool root = status.is_root();
    return {0,
            {compared("priority", whole(config.bridge_priority), whole(status.bridge.prio)),
             compared("max_age", whole(config.max_age), told_if(root, whole(status.max_age))),
             compared("hello_time", whole(config.hello_time), told_if(root, whole(status.hello_time))),
             compared("forward_delay", whole(config.forward_delay), told_if(root, whole(status.forward_delay))),
             compared("force_version", whole(config.force_version), OPEN)}};
}

compared_section_t compare_port(const settings_t &settings, const bridge_status_t &status, int port)
{
    const auto &config = settings.ports.at(static_cast<size_t>(port));
    const port_status_t &runs = status.port(port);
    const int group = settings.groups.at(static_cast<size_t>(port));
    const bool alone = !runs.group;
    const bool on = alone && runs.role != ROLE_NON_STP;
    const bool up = on && runs.role != ROLE_DISABLED;
    compared_t edge = compared("edge", config.adminEdge != 0, told_if(on, runs.edge));
    edge.differs = false; // a bridge that is heard ends it
    return {port,
            {compared("spanning_tree", config.adminEnable != 0, told_if(alone, on)),
             compared("path_cost", told_if(config.adminPathCost, whole(config.adminPathCost)),
                      told_if(up, whole(runs.path_cost))),
             edge,
             compared("point_to_point", told_if(config.adminPointToPoint < 2, config.adminPointToPoint == 0),
                      told_if(on, runs.point_to_point)),
             compared("priority", whole(config.port_priority), OPEN),
             compared("lacp", settings.lacp.at(static_cast<size_t>(port) - 1) != 0, OPEN),
             compared("group", told_if(settings.groups_stated, whole(group == port ? 0 : group)), whole(runs.group))}};
}

std::string word_of(const setting_value_t &value, const char *open)
{
    if (const bool *flag = std::get_if<bool>(&value))
        return *flag ? "on" : "off";
    if (const int64_t *number = std::get_if<int64_t>(&value))
        return fmt::to_string(*number);
    return open;
}

cell_t cell_of(const compared_t &setting)
{
    const std::string key = setting.key;
    const char *open = key == "path_cost" || key == "point_to_point" ? "auto" : "-";
    return {.text = fmt::format("{} / {}{}", word_of(setting.set, open), word_of(setting.runs, "-"),
                                setting.differs ? " !" : ""),
            .tone = setting.differs ? tone_t::bad : tone_t::plain};
}

cell_t heading_of(const std::string &text) { return {.text = text, .tone = tone_t::title}; }

table_t bridge_settings_table(const compared_section_t &bridge)
{
    table_t table;
    for (const compared_t &setting : bridge.settings)
        table.push_back({heading_of(setting.key), cell_of(setting)});
    return table;
}

table_t port_settings_table(const std::vector<compared_section_t> &sections)
{
    table_t table = {{heading_of("port"), heading_of("tree"), heading_of("cost"), heading_of("edge"), heading_of("p2p"),
                      heading_of("priority"), heading_of("LACP"), heading_of("group")}};
    for (const compared_section_t &section : sections) {
        if (!section.port)
            continue;
        table.push_back({{.text = fmt::to_string(section.port)}});
        for (const compared_t &setting : section.settings)
            table.back().push_back(cell_of(setting));
    }
    return table;
}

} // namespace

std::vector<compared_section_t> compare_settings(const settings_t &settings, const bridge_status_t &status)
{
    std::vector<compared_section_t> sections = {compare_bridge(settings, status)};
    for (int port = 1; port <= static_cast<int>(FRONT_PORTS); port++)
        sections.push_back(compare_port(settings, status, port));
    return sections;
}

void show_config(const ctl_t &ctl, const place_t &place, bool json)
{
    const settings_t settings = load_config(place);
    const reading_t reading = read_status(ctl);
    const auto sections = compare_settings(settings, reading.status);
    if (json) {
        fmt::print("{}\n", compared_json(sections, place.text(), reading));
        return;
    }
    const size_t width_max = screen().value_or(screen_t{}).columns;
    fmt::print("{}\n{}\nSET / RUNS: as set in {}, and as it runs; - is not told.{}\n",
               table_text(bridge_settings_table(sections.front()), ctl.colour),
               table_text(port_settings_table(sections), ctl.colour, false, width_max), place.text(),
               reading.status.is_root() ? "" : " The root's times rule.");
}
