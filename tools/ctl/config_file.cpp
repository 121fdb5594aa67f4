#include "tools/ctl/config_file.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <functional>
#include <iterator>
#include <optional>
#include <tuple>

#include <fmt/format.h>
#include <toml++/toml.h>

#include "tools/ctl/ctl.h"
#include "tools/ctl/text_file.h"
#include "tools/number.h"
#include "tools/rules.h"

namespace {

/// Goes through the file's tables and collects settings and faults.
class reader_t {
public:
    config_t config;

    void blame(const toml::source_region &place, const std::string &text)
    {
        config.faults.push_back({place.begin.line, place.begin.column, text});
    }

    /// A number that the rule allows. A fault leaves `value` alone.
    template <typename number_t>
    void number(const toml::node &node, const setting_rule_t &rule, number_t &value)
    {
        const auto read = node.value_exact<int64_t>();
        if (!read) {
            blame(node.source(), fmt::format("{} should be a whole number", rule.name));
            return;
        }
        const std::string fault = fault_of(rule, *read);
        if (fault.empty())
            value = static_cast<number_t>(*read);
        else
            blame(node.source(), fault);
    }

    void flag(const toml::node &node, const char *name, uint8_t &value)
    {
        if (const auto read = node.value_exact<bool>())
            value = *read;
        else
            blame(node.source(), fmt::format("{} should be true or false", name));
    }

    /// The section `node`, or nothing when it is something else.
    const toml::table *section(const toml::node &node, const std::string &name)
    {
        if (!node.is_table())
            blame(node.source(), fmt::format("{} should be a section, [{}]", name, name));
        return node.as_table();
    }

    void unknown(const toml::key &key, const std::string &section, const std::string &known)
    {
        blame(key.source(), fmt::format("there is no \"{}\" in {}: known are {}", key.str(), section, known));
    }
};

bool is_auto(const toml::node &node) { return node.value_exact<std::string>() == "auto"; }

/// How one setting is read into its record.
template <typename record_t>
struct setting_t {
    const char *key;
    void (*read)(reader_t &reader, const toml::node &node, record_t &record);
};

template <typename record_t>
using settings_list_t = std::span<const setting_t<record_t>>;

template <typename record_t>
std::string keys_of(settings_list_t<record_t> settings)
{
    std::string keys;
    for (const auto &setting : settings)
        keys += fmt::format("{}{}", keys.empty() ? "" : ", ", setting.key);
    return keys;
}

template <typename record_t>
const setting_t<record_t> *find_setting(settings_list_t<record_t> settings, std::string_view key)
{
    const auto found = std::ranges::find_if(settings, [&](const auto &setting) { return setting.key == key; });
    return found == settings.end() ? nullptr : &*found;
}

// ---- [bridge] --------------------------------------------------------------------------

constexpr setting_t<lvt_rstp_system_config_t> BRIDGE_TABLE[] = {
    {"priority", [](reader_t &r, const toml::node &n, auto &c) { r.number(n, BRIDGE_PRIORITY, c.bridge_priority); }},
    {"max_age", [](reader_t &r, const toml::node &n, auto &c) { r.number(n, MAX_AGE, c.max_age); }},
    {"hello_time", [](reader_t &r, const toml::node &n, auto &c) { r.number(n, HELLO_TIME, c.hello_time); }},
    {"forward_delay", [](reader_t &r, const toml::node &n, auto &c) { r.number(n, FORWARD_DELAY, c.forward_delay); }},
    {"force_version", [](reader_t &r, const toml::node &n, auto &c) { r.number(n, FORCE_VERSION, c.force_version); }},
};
constexpr settings_list_t<lvt_rstp_system_config_t> BRIDGE_SETTINGS = BRIDGE_TABLE;

/// Where the file has a hand in the times: the first of these that it sets.
std::optional<toml::source_region> place_of_times(const toml::table &bridge)
{
    for (const char *key : {"max_age", "forward_delay", "hello_time"})
        if (const toml::node *node = bridge.get(key))
            return node->source();
    return {};
}

void read_bridge(reader_t &reader, const toml::table &bridge)
{
    auto &config = reader.config.settings.bridge;
    for (const auto &[key, node] : bridge) {
        if (const auto *setting = find_setting(BRIDGE_SETTINGS, key.str()))
            setting->read(reader, node, config);
        else
            reader.unknown(key, "[bridge]", keys_of(BRIDGE_SETTINGS));
    }

    const std::string fault = fault_of_times(config.max_age, config.hello_time, config.forward_delay);
    const auto place = place_of_times(bridge);
    if (!fault.empty() && place)
        reader.blame(*place, fault);
}

// ---- [port.N] --------------------------------------------------------------------------

void read_path_cost(reader_t &reader, const toml::node &node, lvt_rstp_port_config_t &config)
{
    if (is_auto(node))
        config.adminPathCost = 0;
    else if (node.is_integer())
        reader.number(node, PATH_COST, config.adminPathCost);
    else
        reader.blame(node.source(), "path_cost should be a whole number or \"auto\"");
}

void read_point_to_point(reader_t &reader, const toml::node &node, lvt_rstp_port_config_t &config)
{
    if (is_auto(node))
        config.adminPointToPoint = LVT_RSTP_PORT_DEFAULTS.adminPointToPoint;
    else if (const auto on = node.value_exact<bool>())
        config.adminPointToPoint = *on ? 0 : 1;
    else
        reader.blame(node.source(), "point_to_point should be true, false or \"auto\"");
}

/// Those that groups have, too, come first.
constexpr setting_t<lvt_rstp_port_config_t> PORT_TABLE[] = {
    {"spanning_tree", [](reader_t &r, const toml::node &n, auto &c) { r.flag(n, "spanning_tree", c.adminEnable); }},
    {"path_cost", read_path_cost},
    {"priority", [](reader_t &r, const toml::node &n, auto &c) { r.number(n, PORT_PRIORITY, c.port_priority); }},
    {"point_to_point", read_point_to_point},
    {"edge", [](reader_t &r, const toml::node &n, auto &c) { r.flag(n, "edge", c.adminEdge); }},
};
constexpr settings_list_t<lvt_rstp_port_config_t> PORT_SETTINGS = PORT_TABLE;
constexpr settings_list_t<lvt_rstp_port_config_t> GROUP_SETTINGS = PORT_SETTINGS.first(4);

void read_port(reader_t &reader, const toml::table &section, size_t port)
{
    for (const auto &[key, node] : section) {
        if (key.str() == "lacp")
            reader.flag(node, "lacp", reader.config.settings.lacp[port - 1]);
        else if (const auto *setting = find_setting(PORT_SETTINGS, key.str()))
            setting->read(reader, node, reader.config.settings.ports[port]);
        else
            reader.unknown(key, fmt::format("[port.{}]", port), keys_of(PORT_SETTINGS) + ", lacp");
    }
}

/// The number that a key is; nothing when it is none, or not one that the rule allows.
std::optional<size_t> number_in(const toml::key &key, const setting_rule_t &rule)
{
    int64_t number = 0;
    const bool read = read_number(key.str(), number) == std::errc();
    if (!read || key.str() != fmt::to_string(number) || !fault_of(rule, number).empty()) // no second name, as 01
        return {};
    return static_cast<size_t>(number);
}

void read_ports(reader_t &reader, const toml::table &ports)
{
    for (const auto &[key, node] : ports) {
        const auto port = number_in(key, FRONT_PORT);
        if (!port)
            reader.blame(key.source(), fmt::format("there is no port \"{}\": write [port.{}] to [port.{}]", key.str(),
                                                   FRONT_PORT.min, FRONT_PORT.max));
        else if (const toml::table *section = reader.section(node, fmt::format("port.{}", *port)))
            read_port(reader, *section, *port);
    }
}

// ---- [groups] --------------------------------------------------------------------------

void read_member(reader_t &reader, const toml::node &node, size_t group)
{
    size_t port = 0;
    reader.number(node, FRONT_PORT, port);
    if (!port)
        return;
    uint8_t &place = reader.config.settings.groups[port];
    if (place != port)
        reader.blame(node.source(), fmt::format("port {} is in group {} already", port, place));
    else
        place = static_cast<uint8_t>(group);
}

void read_members(reader_t &reader, const toml::node &node, size_t group)
{
    reader.config.settings.groups_stated = true;
    const toml::array *members = node.as_array();
    if (!members) {
        reader.blame(node.source(), fmt::format("group {} should be a list of ports, as in {} = [1, 2]", group, group));
        return;
    }
    for (const toml::node &member : *members)
        read_member(reader, member, group);
}

void read_groups(reader_t &reader, const toml::table &groups)
{
    for (const auto &[key, node] : groups) {
        if (const auto group = number_in(key, GROUP))
            read_members(reader, node, *group);
        else if (const auto *setting = find_setting(GROUP_SETTINGS, key.str()))
            setting->read(reader, node, reader.config.settings.ports[0]);
        else if (key.str() == "edge")
            reader.blame(key.source(), "a group has no edge setting: it is edge when all its members are");
        else
            reader.unknown(key, "[groups]",
                           fmt::format("the groups {} to {}, {}", GROUP.min, GROUP.max, keys_of(GROUP_SETTINGS)));
    }
}

// ---- [linux] ---------------------------------------------------------------------------

void read_linux_port(reader_t &reader, const toml::node &node)
{
    const std::string name = node.value_exact<std::string>().value_or("");
    auto &names = reader.config.linux_ports;
    if (!is_interface_name(name))
        reader.blame(node.source(), "a port should be the name of an interface, as in \"lan1\"");
    else if (std::ranges::count(names, name))
        reader.blame(node.source(), fmt::format("\"{}\" is port {} already", name,
                                                std::ranges::find(names, name) - names.begin() + 1));
    else
        names.push_back(name);
}

void read_linux(reader_t &reader, const toml::table &section)
{
    for (const auto &[key, node] : section) {
        const toml::array *names = node.as_array();
        if (key.str() != "ports") {
            reader.unknown(key, "[linux]", "ports");
        } else if (!names || names->empty() || names->size() > FRONT_PORTS) {
            reader.blame(node.source(), fmt::format("ports should be a list of 1 to {} interfaces, as in [\"lan1\", "
                                                    "\"lan2\"]",
                                                    FRONT_PORTS));
        } else {
            for (const toml::node &name : *names)
                read_linux_port(reader, name);
        }
    }
}

// ---- the whole -------------------------------------------------------------------------

/// The library makes a table in a table for each part of a name, and its stack holds only so many.
void limit_parts(reader_t &reader, const std::string &text)
{
    constexpr int dots_max = 1000; // wherever they are: names may go on in other lines, or behind a quoted "#"
    int dots = 0;
    unsigned line = 1;
    for (const char letter : text) {
        line += letter == '\n';
        if (letter == '.' && ++dots > dots_max) {
            reader.config.faults.push_back({line, 1, fmt::format("a file has at most {} dots in all", dots_max)});
            return;
        }
    }
}

void read_file(reader_t &reader, const toml::table &file)
{
    const std::pair<const char *, void (*)(reader_t &, const toml::table &)> sections[] = {
        {"bridge", read_bridge}, {"port", read_ports}, {"groups", read_groups}, {"linux", read_linux}};

    for (const auto &[key, node] : file) {
        const std::string name(key.str());
        const auto known = std::ranges::find_if(sections, [&](const auto &s) { return s.first == name; });
        if (known == std::end(sections))
            reader.unknown(key, "the file", "[bridge], [port.1] to [port.6], [groups], [linux]");
        else if (const toml::table *section = reader.section(node, name))
            known->second(reader, *section);
    }
}

/// The file's text; nothing when it cannot be read, and then errno says why.
std::optional<std::string> text_at(const place_t &place)
{
    if (place.root.empty())
        return read_text_file(place.path);
    const folder_t folder(place);
    errno = folder.error();
    if (folder.number() < 0)
        return {};
    return read_text_file(open_regular_file(folder.number(), folder.name(), place.text()), place.text());
}

/// What the library says of the grammar, with what may stand there.
std::string grammar_words(const toml::parse_error &error)
{
    std::string words(error.description());
    if (words.find("value") != std::string::npos)
        words += ". A value is a whole number, true, false, \"auto\" in quotes, or a list as in [1, 2]";
    return words;
}

/// Puts a value that is one for the grammar in the place of the one in this line, where the line is no more
/// than KEY = VALUE. Returns whether it was done.
bool replace_value(std::string &text, unsigned line)
{
    size_t begin = 0;
    for (; line > 1; line--)
        begin = text.find('\n', begin) + 1;
    const size_t end = std::min(text.find('\n', begin), text.size());
    const size_t sign = text.find('=', begin);
    if (sign >= end || text.substr(begin, end - begin).find_first_of("[]{}\"'") != std::string::npos)
        return false;
    text.replace(sign + 1, end - sign - 1, " 0");
    return true;
}

/// Reads the file although values in it are none, as far as it can be told where such a value ends. Of
/// such a value nothing but this is told.
void read_text(reader_t &reader, std::string text)
{
    std::vector<config_fault_t> grammar;
    const auto in_faulty_line = [&](unsigned line) {
        return std::ranges::any_of(grammar, [line](const config_fault_t &fault) { return fault.line == line; });
    };
    for (bool again = true; again;) {
        try {
            read_file(reader, toml::parse(text));
            again = false;
        } catch (const toml::parse_error &error) {
            const toml::source_position place = error.source().begin;
            again = !in_faulty_line(place.line) && replace_value(text, place.line);
            if (!in_faulty_line(place.line))
                grammar.push_back({place.line, place.column, grammar_words(error)});
        }
    }
    std::erase_if(reader.config.faults, [&](const config_fault_t &fault) { return in_faulty_line(fault.line); });
    std::ranges::move(grammar, std::back_inserter(reader.config.faults));
}

} // namespace

config_t parse_config(const std::string &text, const settings_t &base)
{
    reader_t reader;
    reader.config.settings = base;
    limit_parts(reader, text);
    if (!reader.config.faults.empty())
        return reader.config;
    read_text(reader, text);
    std::ranges::sort(reader.config.faults, {},
                      [](const config_fault_t &fault) { return std::tie(fault.line, fault.column, fault.text); });
    return reader.config;
}

config_t config_in(const std::string &text, const std::string &path)
{
    config_t config = parse_config(text);
    std::string faults;
    for (const config_fault_t &fault : config.faults)
        faults += fmt::format("{}{}:{}:{}: {}", faults.empty() ? "" : "\n", path, fault.line, fault.column, fault.text);
    if (!faults.empty())
        throw faults_t(faults);
    return config;
}

settings_t settings_in(const std::string &text, const std::string &path) { return config_in(text, path).settings; }

std::string read_config_text(const place_t &place)
{
    const auto text = text_at(place);
    if (!text)
        throw refused_t(fmt::format("cannot read {}: {}{}", place.text(), std::strerror(errno),
                                    errno == ENOENT ? ". Write it, see man lvt_rstp.toml; set makes one, too." : ""));
    return *text;
}

std::optional<std::string> find_config_text(const place_t &place)
{
    const auto text = text_at(place);
    return !text && errno != ENOENT ? read_config_text(place) : text;
}

settings_t load_config(const place_t &place) { return settings_in(read_config_text(place), place.text()); }
