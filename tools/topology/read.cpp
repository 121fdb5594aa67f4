#include "tools/topology/read.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <map>
#include <set>
#include <tuple>
#include <unordered_map>

#include <fmt/format.h>
#include <fmt/ranges.h>

#include "tools/ctl/ctl.h"
#include "tools/ctl/text_file.h"
#include "tools/number.h"
#include "tools/rules.h"
#include "tools/topology/shapes.h"
#include "tools/topology/story.h"
#include "tools/topology/values.h"
#include "tools/topology/yaml_tree.h"

namespace topology {

namespace {

/// Enough to repair a file by; of a file that is something else altogether nobody reads more.
constexpr size_t FAULTS_MAX = 100;

bool is_board(kind_t kind) { return kind == kind_t::SWITCH || kind == kind_t::LVT_BRIDGE; }

std::string word_of(kind_t kind) { return KIND_WORDS[static_cast<size_t>(kind)]; }

unsigned ports_of(kind_t kind)
{
    return is_board(kind) ? SWITCH_PORTS : kind == kind_t::HOST || kind == kind_t::SPEAKER ? 1 : PORTS_MAX;
}

bool is_name(const std::string &text)
{
    constexpr size_t LETTERS_MAX = 32;
    const auto is_letter = [](char c) { return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z'); };
    return !text.empty() && text.size() <= LETTERS_MAX && is_letter(text[0]) && std::ranges::all_of(text, [&](char c) {
        return is_letter(c) || (c >= '0' && c <= '9') || c == '_' || c == '-' || c == '.';
    });
}

/// The text of a configuration file, and where each of its lines comes from.
struct config_lines_t {
    struct line_t {
        place_in_file_t key, value;
        size_t value_column;
    };
    std::string text;
    std::vector<line_t> lines;
};

class network_reader_t {
public:
    explicit network_reader_t(const std::string &path) : path_(path) {}

    network_t read(const std::string &text)
    {
        try {
            read_file(parse_yaml(text));
        } catch (const yaml_fault_t &fault) {
            blame(fault.place, fault.what());
        }
        throw_faults();
        return std::move(network_);
    }

private:
    struct fault_t {
        place_in_file_t place;
        std::string text;
    };

    void blame(place_in_file_t place, const std::string &text)
    {
        faults_.push_back({place, fmt::format("{}:{}:{}: {}", path_, place.line, place.column, text)});
    }

    void throw_faults()
    {
        if (faults_.empty())
            return;
        std::ranges::stable_sort(faults_, {},
                                 [](const fault_t &fault) { return std::tie(fault.place.line, fault.place.column); });
        std::string text;
        for (size_t i = 0; i < std::min(faults_.size(), FAULTS_MAX); i++)
            text += (i ? "\n" : "") + faults_[i].text;
        if (faults_.size() > FAULTS_MAX)
            text += fmt::format("\n{}: {} faults more", path_, faults_.size() - FAULTS_MAX);
        throw faults_t(text);
    }

    // ---- what may stand there ------------------------------------------------------------

    /// Goes through the entries of a map whose keys must be of `known`, or may be any when there are none.
    template <typename action_t>
    void entries(const yaml_t &map, const std::string &what, const std::vector<std::string> &known, action_t action)
    {
        if (!map.is_map())
            return blame(map.place, fmt::format("{} should be entries \"key: value\"", what));
        std::set<std::string> seen;
        for (size_t i = 0; i + 1 < map.items.size(); i += 2) {
            const yaml_t &key = map.items[i];
            if (!key.is_scalar())
                blame(key.place, fmt::format("in {} a key should be a word", what));
            else if (!known.empty() && std::ranges::find(known, key.text) == known.end())
                blame(key.place,
                      fmt::format("there is no \"{}\" in {}{}", key.text, what, suggestions(key.text, known)));
            else if (!seen.insert(key.text).second)
                blame(key.place, fmt::format("\"{}\" stands twice in {}", key.text, what));
            else
                action(key, map.items[i + 1]);
        }
    }

    /// Goes through the words of a list.
    template <typename action_t>
    void each(const yaml_t &list, const std::string &key, action_t action)
    {
        if (!list.is_list() || !std::ranges::all_of(list.items, &yaml_t::is_scalar))
            return blame(list.place, fmt::format("{} should be a list of words, as in [a, b]", key));
        for (const yaml_t &item : list.items)
            action(item);
    }

    template <typename value_t, typename parser_t>
    void value(const yaml_t &node, const std::string &key, const char *form, value_t &target, parser_t parse)
    {
        const auto read = node.is_scalar() ? parse(node.text) : decltype(parse(""))();
        if (read)
            target = *read;
        else
            blame(node.place, fmt::format("{} should be {}", key, form));
    }

    template <typename number_t>
    void number(const yaml_t &node, const std::string &key, number_t &target, uint64_t min, uint64_t max)
    {
        value(node, key, fmt::format("a whole number, {} to {}", min, max).c_str(), target,
              [&](const std::string &text) -> std::optional<number_t> {
                  uint64_t read = 0;
                  if (read_number(text, read) != std::errc() || read < min || read > max)
                      return {};
                  return static_cast<number_t>(read);
              });
    }

    void span(const yaml_t &node, const std::string &key, span_t &target)
    {
        value(node, key, SPAN_FORM, target, [](const std::string &text) { return parse_span(text); });
    }

    void flag(const yaml_t &node, const std::string &key, bool &target)
    {
        value(node, key, "true or false", target, [](const std::string &text) -> std::optional<bool> {
            if (text != "true" && text != "false")
                return {};
            return text == "true";
        });
    }

    /// One of `words`; its place in the list is the value.
    template <typename enum_t, size_t count>
    void choice(const yaml_t &node, const std::string &key, const char *const (&words)[count], enum_t &target)
    {
        const std::vector<std::string> known(std::begin(words), std::end(words));
        const auto found = std::ranges::find(known, node.text);
        if (node.is_scalar() && found != known.end())
            target = static_cast<enum_t>(found - known.begin());
        else
            blame(node.place, fmt::format("{} should be {}{}", key, fmt::join(known, ", "),
                                          node.is_scalar() ? suggestion(node.text, known) : ""));
    }

    // ---- the file --------------------------------------------------------------------------

    void read_file(const yaml_t &file)
    {
        const yaml_t *topology = nullptr, *story = nullptr;
        entries(file, "the file", {"name", "topology", "story", "until", "seed", "rests", "faults"},
                [&](const yaml_t &key, const yaml_t &node) {
                    if (key.text == "name")
                        value(node, "name", "a word or a sentence", network_.name,
                              [](const std::string &text) { return std::optional(text); });
                    else if (key.text == "seed")
                        number(node, "seed", network_.seed, 0, UINT64_MAX);
                    else if (key.text == "until")
                        span(node, "until", network_.until.emplace());
                    else if (key.text == "rests")
                        each(node, "rests",
                             [&](const yaml_t &item) { span(item, "a rest", network_.rests.emplace_back()); });
                    else if (key.text == "faults")
                        each(node, "faults", [&](const yaml_t &item) { network_.faults.push_back(item.text); });
                    else
                        (key.text == "topology" ? topology : story) = &node;
                });
        std::ranges::sort(network_.rests);
        if (topology)
            read_topology(*topology);
        else if (file.is_map())
            blame(file.place, "the file has no \"topology\"");
        if (story && faults_.empty()) // a command about a node that is not there would be told twice
            read_story(*story);
    }

    void read_topology(const yaml_t &topology)
    {
        const yaml_t *nodes = nullptr, *links = nullptr;
        entries(topology, "topology", {"nodes", "links"},
                [&](const yaml_t &key, const yaml_t &node) { (key.text == "nodes" ? nodes : links) = &node; });
        if (nodes)
            read_nodes(*nodes);
        else if (topology.is_map())
            blame(topology.place, "topology has no \"nodes\"");
        if (links && links->is_list())
            for (const yaml_t &link : links->items)
                read_link(link);
        else if (links && links->kind != yaml_t::kind_t::NOTHING)
            blame(links->place, "links should be a list, each as in \"- endpoints: [sw1:1, sw2:2]\"");
        if (network_.links.size() > LINKS_MAX)
            blame(links->place, fmt::format("a network has at most {} links", LINKS_MAX));
        give_usual_settings(network_);
        for (const auto &[node, config] : configs_)
            read_config(network_.nodes[node].settings, *config);
    }

    // ---- nodes -------------------------------------------------------------------------------

    void read_nodes(const yaml_t &nodes)
    {
        entries(nodes, "nodes", {}, [&](const yaml_t &name, const yaml_t &node) {
            if (!is_name(name.text))
                return blame(name.place,
                             fmt::format("\"{}\" is no name for a node: write a letter, then letters, digits, "
                                         "\"_\", \"-\" and \".\", 32 in all",
                                         name.text));
            if (network_.nodes.size() == NODES_MAX)
                return blame(name.place, fmt::format("a network has at most {} nodes", NODES_MAX));
            node_of_[name.text] = network_.nodes.size();
            network_.nodes.push_back({.name = name.text});
            network_.nodes.back().place = fmt::format("{}:{}:{}: ", path_, name.place.line, name.place.column);
            read_node(network_.nodes.back(), node);
        });
    }

    /// The keys of a kind of nodes.
    static std::vector<std::string> keys_of(kind_t kind)
    {
        std::vector<std::string> keys = {"kind"};
        if (is_board(kind))
            for (const char *key : {"config", "configured", "rapid", "options", "boot", "second", "phase"})
                keys.emplace_back(key);
        if (kind == kind_t::LINUX_BRIDGE)
            keys.emplace_back("config");
        if (kind == kind_t::HOST)
            keys.emplace_back("address");
        if (kind == kind_t::HUB)
            keys.emplace_back("swallows");
        if (kind == kind_t::SPEAKER)
            for (const char *key : {"says", "config", "phase", "hush"})
                keys.emplace_back(key);
        return keys;
    }

    void read_node(node_t &node, const yaml_t &yaml)
    {
        if (yaml.kind == yaml_t::kind_t::NOTHING)
            return; // a switch as it comes
        if (!yaml.is_map())
            return blame(yaml.place, fmt::format("{} should be entries, as in {{kind: switch}}", node.name));
        for (size_t i = 0; i + 1 < yaml.items.size(); i += 2)
            if (yaml.items[i].is_scalar() && yaml.items[i].text == "kind") {
                const size_t before = faults_.size();
                choice(yaml.items[i + 1], "kind", KIND_WORDS, node.kind);
                if (faults_.size() > before)
                    return; // what it may have is not known
            }
        entries(yaml, fmt::format("{}, a {}", node.name, word_of(node.kind)), keys_of(node.kind),
                [&](const yaml_t &key, const yaml_t &entry) {
                    if (key.text == "config")
                        configs_.emplace_back(network_.nodes.size() - 1, &entry);
                    else if (key.text == "boot")
                        span(entry, "boot", node.boot);
                    else if (key.text == "second")
                        read_second(entry, node.second);
                    else if (key.text == "phase")
                        span(entry, "phase", node.phase.emplace());
                    else if (key.text == "says")
                        choice(entry, "says", SPEECH_WORDS, node.speech);
                    else if (key.text == "hush")
                        span(entry, "hush", node.hush.emplace());
                    else if (key.text == "swallows")
                        flag(entry, "swallows", node.swallows);
                    else if (key.text == "configured")
                        flag(entry, "configured", node.configured);
                    else if (key.text == "rapid")
                        flag(entry, "rapid", node.rapid);
                    else if (key.text == "options")
                        each(entry, "options", [&](const yaml_t &word) {
                            if (word.text == "--rapid")
                                node.rapid = true;
                            else
                                node.options.push_back(word.text);
                        });
                    else if (key.text == "address")
                        value(entry, "address", ADDRESS_FORM, node.address, parse_address);
                });
    }

    void read_second(const yaml_t &node, span_t &second)
    {
        span_t read = second;
        span(node, "second", read);
        if (read < span_t(500'000) || read > span_t(2'000'000))
            blame(node.place, "second should be 500ms to 2s: it is what the switch takes for a second");
        else
            second = read;
    }

    // ---- settings of switches ----------------------------------------------------------------

    void read_config(settings_t &settings, const yaml_t &yaml)
    {
        if (yaml.is_scalar())
            return read_config_file(settings, yaml);
        if (!yaml.is_map())
            return blame(yaml.place,
                         "config should be the name of a file, or settings as in {bridge: {priority: 4096}}");
        config_lines_t lines;
        add_section(lines, "", yaml);
        const config_t config = parse_config(lines.text, settings);
        for (const config_fault_t &fault : config.faults) {
            const auto &line = lines.lines[std::min<size_t>(fault.line, lines.lines.size()) - 1];
            blame(fault.column < line.value_column ? line.key : line.value, fault.text);
        }
        settings = config.settings;
    }

    /// A file is the whole configuration, as the switch would have it in its own place.
    void read_config_file(settings_t &settings, const yaml_t &yaml)
    {
        const size_t slash = path_.rfind('/');
        const std::string folder = slash == std::string::npos ? "" : path_.substr(0, slash + 1);
        const std::string file = yaml.text.starts_with('/') ? yaml.text : folder + yaml.text;
        const auto known = files_.find(file);
        if (known != files_.end()) {
            settings = known->second;
            return;
        }
        try {
            settings = files_[file] = load_config({.root = "", .path = file});
        } catch (const faults_t &faults) {
            faults_.push_back({yaml.place, faults.what()});
        } catch (const refused_t &refused) {
            blame(yaml.place, refused.what());
        }
    }

    static void add_line(config_lines_t &lines, const std::string &line, place_in_file_t key, place_in_file_t value,
                         size_t value_column)
    {
        lines.text += line + "\n";
        lines.lines.push_back({key, value, value_column});
    }

    /// The settings of a map as lines of a configuration file.
    void add_section(config_lines_t &lines, const std::string &section, const yaml_t &map)
    {
        const std::string what = section.empty() ? "config" : section;
        entries(map, what, {}, [&](const yaml_t &key, const yaml_t &node) {
            const bool bare = !key.text.empty() && std::ranges::all_of(key.text, [](char c) {
                return (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9') || c == '_';
            });
            if (!bare)
                return blame(key.place, fmt::format("there is no \"{}\" in {}", key.text, what));
            const std::string name = section.empty() ? key.text : fmt::format("{}.{}", section, key.text);
            if (node.is_map() && std::ranges::count(name, '.') < 2) {
                add_line(lines, fmt::format("[{}]", name), key.place, node.place, SIZE_MAX);
                return add_section(lines, name, node);
            }
            const std::string text = node.is_scalar() ? toml_value(node.text) : node.is_list() ? list_text(node) : "";
            if (section.empty() || text.empty())
                return blame(node.place,
                             fmt::format("{} should be {}", name, section.empty() ? "settings" : "a value"));
            add_line(lines, fmt::format("{} = {}", key.text, text), key.place, node.place, key.text.size() + 3);
        });
    }

    static std::string list_text(const yaml_t &list)
    {
        std::vector<std::string> texts;
        for (const yaml_t &item : list.items)
            texts.push_back(toml_value(item.text));
        return fmt::format("[{}]", fmt::join(texts, ", "));
    }

    // ---- links -------------------------------------------------------------------------------

    void read_link(const yaml_t &yaml)
    {
        static const std::vector<std::string> known = {"endpoints", "delay", "jitter", "loss",   "duplicate",
                                                       "one-way",   "speed", "duplex", "plugged"};
        if (!yaml.is_map())
            return blame(yaml.place, "a link should be entries, as in \"- endpoints: [sw1:1, sw2:2]\"");
        link_t link;
        const yaml_t *endpoints = nullptr, *one_way = nullptr;
        const size_t before = faults_.size();
        entries(yaml, "a link", known, [&](const yaml_t &key, const yaml_t &node) {
            if (key.text == "endpoints")
                endpoints = &node;
            else if (key.text == "one-way")
                one_way = &node;
            else
                read_quality(link, key.text, node);
        });
        if (!endpoints)
            return blame(yaml.place, "the link has no \"endpoints\"");
        if (!read_ends(link, *endpoints) || faults_.size() > before)
            return;
        if (one_way)
            read_one_way(link, *one_way);
        network_.links.push_back(link);
    }

    /// Reads what holds for both ways, or a list of two: of what the first endpoint sends, and the second.
    template <typename field_t, typename parser_t>
    void both_ways(link_t &link, const std::string &key, const yaml_t &node, const char *form,
                   field_t quality_t::*field, parser_t parse)
    {
        if (node.is_list() && node.items.size() == 2) {
            for (const unsigned i : {0u, 1u})
                value(node.items[i], key, form, link.qualities[i].*field, parse);
            return;
        }
        value(node, key, form, link.qualities[0].*field, parse);
        link.qualities[1].*field = link.qualities[0].*field;
    }

    void read_quality(link_t &link, const std::string &key, const yaml_t &node)
    {
        constexpr const char *DUPLEX[] = {"half", "full"};
        constexpr const char *SPEEDS[] = {"10", "100", "1000", "2500"};
        constexpr uint32_t MBITS[] = {10, 100, 1000, 2500};
        if (key == "delay")
            both_ways(link, key, node, SPAN_FORM, &quality_t::delay, parse_span);
        else if (key == "jitter")
            both_ways(link, key, node, SPAN_FORM, &quality_t::jitter, parse_span);
        else if (key == "loss")
            both_ways(link, key, node, SHARE_FORM, &quality_t::lost, parse_share);
        else if (key == "duplicate")
            both_ways(link, key, node, SHARE_FORM, &quality_t::doubled, parse_share);
        else if (key == "speed") {
            size_t speed = 2;
            choice(node, "speed", SPEEDS, speed);
            link.mbit = MBITS[speed];
        } else if (key == "duplex")
            choice(node, "duplex", DUPLEX, link.full_duplex);
        else if (node.text == "never")
            link.plugged.reset();
        else
            span(node, "plugged", *link.plugged);
    }

    /// Only what the named end sends arrives.
    void read_one_way(link_t &link, const yaml_t &node)
    {
        const std::array<std::string, 2> texts = {end_text(network_, link.ends[0]), end_text(network_, link.ends[1])};
        for (const unsigned i : {0u, 1u})
            if (node.text == texts[i] ||
                (node.text == network_.nodes[link.ends[i].node].name && link.ends[0].node != link.ends[1].node)) {
                link.qualities[1 - i].dead = true;
                return;
            }
        blame(node.place, fmt::format("one-way should be the end whose frames arrive: {} or {}", texts[0], texts[1]));
    }

    bool read_ends(link_t &link, const yaml_t &endpoints)
    {
        if (!endpoints.is_list() || endpoints.items.size() != 2) {
            blame(endpoints.place, "endpoints should be two, as in [sw1:1, sw2:2]");
            return false;
        }
        bool sound = true;
        for (const unsigned i : {0u, 1u})
            sound &= read_end(link.ends[i], endpoints.items[i]);
        return sound;
    }

    bool read_end(end_t &end, const yaml_t &node)
    {
        const std::string &text = node.text;
        const size_t colon = std::min(text.find(':'), text.size());
        const std::string name = text.substr(0, colon);
        if (!node.is_scalar()) {
            blame(node.place, "an endpoint should be a node and its port, as in sw1:1");
            return false;
        }
        const auto found = node_of_.find(name);
        if (found == node_of_.end()) {
            std::vector<std::string> names;
            for (const node_t &known : network_.nodes)
                names.push_back(known.name);
            blame(node.place, fmt::format("there is no node \"{}\"{}", name, suggestion(name, names)));
            return false;
        }
        end.node = found->second;
        const kind_t kind = network_.nodes[end.node].kind;
        const unsigned ports = ports_of(kind);
        if (colon == text.size() && !is_board(kind))
            end.port = free_port(end.node, ports);
        else if (colon == text.size() || read_number(text.substr(colon + 1), end.port) != std::errc() || end.port < 1 ||
                 end.port > ports) {
            blame(node.place,
                  fmt::format("\"{}\" names no port of {}: write {}:1 to {}:{}", text, name, name, name, ports));
            return false;
        }
        const auto [taken, fresh] = taken_.try_emplace({end.node, end.port}, node.place.line);
        if (!fresh)
            blame(node.place,
                  fmt::format("{} has a link already, that of line {}", end_text(network_, end), taken->second));
        return fresh;
    }

    unsigned free_port(size_t node, unsigned ports)
    {
        unsigned &next = next_port_[node];
        while (next + 1 < ports && taken_.contains({node, next + 1}))
            next++;
        return next + 1;
    }

    // ---- the story ---------------------------------------------------------------------------

    void read_story(const yaml_t &story)
    {
        std::vector<std::pair<span_t, const yaml_t *>> commands;
        entries(story, "story", {}, [&](const yaml_t &key, const yaml_t &node) {
            const auto at = parse_span(key.text);
            if (!at)
                blame(key.place, fmt::format("\"{}\" should be {}, and then what happens", key.text, SPAN_FORM));
            else if (node.is_list())
                for (const yaml_t &item : node.items)
                    commands.emplace_back(*at, &item);
            else
                commands.emplace_back(*at, &node);
        });
        std::ranges::stable_sort(commands, {}, [](const auto &command) { return command.first; });
        for (const auto &[at, node] : commands) {
            if (!node->is_scalar()) {
                blame(node->place, "here should be a command, as in pull sw1-sw2, or a list of them");
                continue;
            }
            try {
                network_.story.push_back(parse_command(network_, at, node->text));
            } catch (const command_fault_t &fault) {
                const auto column = node->place.column + (node->plain ? 0 : 1) + static_cast<unsigned>(fault.offset);
                blame({node->place.line, column}, fault.what());
            }
        }
    }

    const std::string &path_;
    network_t network_;
    std::vector<fault_t> faults_;
    std::unordered_map<std::string, size_t> node_of_;
    std::vector<std::pair<size_t, const yaml_t *>> configs_;
    std::map<std::pair<size_t, unsigned>, unsigned> taken_; ///< ports that have a link, and its line
    std::map<size_t, unsigned> next_port_;
    std::map<std::string, settings_t> files_;
};

} // namespace

network_t read_network(const std::string &text, const std::string &path) { return network_reader_t(path).read(text); }

network_t load_network(const std::vector<std::string> &words)
{
    if (is_shape(words))
        return shape_network(words);
    if (words.size() != 1)
        throw refused_t(fmt::format("\"{}\" is no network: name a file, or one of {}", fmt::join(words, " "),
                                    fmt::join(shape_forms(), ", ")));
    const auto text = read_text_file(words[0], FILE_OCTETS_MAX);
    if (!text)
        throw refused_t(fmt::format("cannot read {}: {}", words[0], std::strerror(errno)));
    return read_network(*text, words[0]);
}

} // namespace topology
