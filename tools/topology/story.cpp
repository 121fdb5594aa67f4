#include "tools/topology/story.h"

#include <algorithm>
#include <iterator>

#include <fmt/format.h>
#include <fmt/ranges.h>

#include "tools/number.h"
#include "tools/rules.h"
#include "tools/topology/values.h"

namespace topology {

namespace {

struct word_t {
    size_t offset;
    std::string text;
};

std::vector<word_t> split(const std::string &text)
{
    std::vector<word_t> words;
    for (size_t at = text.find_first_not_of(" \t"); at != std::string::npos;) {
        const size_t end = std::min(text.find_first_of(" \t", at), text.size());
        words.push_back({at, text.substr(at, end - at)});
        at = text.find_first_not_of(" \t", end);
    }
    return words;
}

/// The words after the verb, taken one by one.
class command_reader_t {
public:
    command_reader_t(const network_t &network, const std::string &text) : network_(network), words_(split(text)) {}

    bool at_end() const { return next_ == words_.size(); }

    size_t taken() const { return next_; }

    [[noreturn]] void refuse(const std::string &text) const { refuse(text, next_ - 1); }
    [[noreturn]] void refuse(const std::string &text, size_t word) const
    {
        throw command_fault_t(words_[word].offset, text);
    }

    const std::string &take(const char *what)
    {
        if (at_end())
            throw command_fault_t(words_.empty() ? 0 : words_.back().offset + words_.back().text.size(),
                                  fmt::format("here should follow {}", what));
        return words_[next_++].text;
    }

    found_link_t link()
    {
        const std::string &word = take("a link, as in sw1-sw2");
        const auto found = find_links(network_, word);
        if (found.empty())
            refuse(fmt::format("there is no link \"{}\": write the names of two nodes, as in sw1-sw2", word));
        if (found.size() > 1) {
            std::vector<std::string> texts;
            for (const found_link_t &link : found)
                texts.push_back(link_text(network_, network_.links[link.link]));
            refuse(fmt::format("\"{}\" may be {}: write the ports, too", word, fmt::join(texts, " or ")));
        }
        return found.front();
    }

    size_t node(const char *what, std::initializer_list<kind_t> kinds)
    {
        const std::string &word = take(what);
        const auto found = find_node(network_, word);
        if (!found) {
            std::vector<std::string> names;
            for (const node_t &node : network_.nodes)
                names.push_back(node.name);
            refuse(fmt::format("there is no node \"{}\"{}", word, suggestion(word, names)));
        }
        const kind_t kind = network_.nodes[*found].kind;
        if (std::ranges::find(kinds, kind) == kinds.end())
            refuse(fmt::format("{} is a {}: here should be {}", word, KIND_WORDS[static_cast<size_t>(kind)], what));
        return *found;
    }
    size_t board() { return node("a switch", {kind_t::SWITCH, kind_t::LVT_BRIDGE}); }

    unsigned number(const char *what, unsigned max)
    {
        unsigned read = 0;
        if (read_number(take(what), read) != std::errc() || read < 1 || read > max)
            refuse(fmt::format("here should be {}, 1 to {}", what, max));
        return read;
    }

    span_t span()
    {
        const auto read = parse_span(take(SPAN_FORM));
        if (!read)
            refuse(fmt::format("here should be {}", SPAN_FORM));
        return *read;
    }

    /// Two digits for each octet.
    std::vector<uint8_t> octets()
    {
        const std::string &text = take("octets in hex");
        std::vector<uint8_t> octets(text.size() / 2);
        for (size_t i = 0; i < octets.size(); i++)
            if (read_number(std::string_view(text).substr(2 * i, 2), octets[i], 16) != std::errc())
                octets.clear();
        if (octets.empty() || text.size() % 2 != 0)
            refuse("here should be octets in hex, two digits for each");
        return octets;
    }

    uint32_t share()
    {
        const auto read = parse_share(take(SHARE_FORM));
        if (!read)
            refuse(fmt::format("here should be {}", SHARE_FORM));
        return *read;
    }

private:
    const network_t &network_;
    std::vector<word_t> words_;
    size_t next_ = 0;
};

/// Qualities of both ways; "one-way" leaves the one from the end that was named first.
void read_qualities(command_reader_t &reader, event_t &event, bool turned)
{
    static const std::vector<std::string> known = {"delay", "jitter", "loss", "duplicate", "one-way"};
    quality_t quality;
    bool one_way = false;
    while (!reader.at_end()) {
        const std::string word = reader.take("a quality");
        if (word == "delay")
            quality.delay = reader.span();
        else if (word == "jitter")
            quality.jitter = reader.span();
        else if (word == "loss")
            quality.lost = reader.share();
        else if (word == "duplicate")
            quality.doubled = reader.share();
        else if (word == "one-way")
            one_way = true;
        else
            reader.refuse(fmt::format("a link has no quality \"{}\"{}", word, suggestions(word, known)));
    }
    event.qualities = {quality, quality};
    event.qualities[turned ? 0 : 1].dead = one_way;
}

/// The way from the end that was named first.
void read_way(command_reader_t &reader, event_t &event, verb_t verb)
{
    const found_link_t link = reader.link();
    event.verb = verb;
    event.subject = link.link;
    event.way = link.turned ? 1 : 0;
}

/// One "port.1.path_cost=200" a line, as the file would have it.
void read_settings(command_reader_t &reader, event_t &event, settings_t base)
{
    std::string lines;
    const size_t first = reader.taken();
    do {
        const std::string &word = reader.take("a setting, as in bridge.priority=4096");
        const size_t sign = std::min(word.find('='), word.size());
        const std::string key = word.substr(0, sign);
        if (sign == word.size() || key.empty() || key.front() == '.' || key.back() == '.' ||
            key.find_first_not_of("abcdefghijklmnopqrstuvwxyz_.0123456789") != std::string::npos ||
            key.find("..") != std::string::npos)
            reader.refuse(fmt::format("\"{}\" is no setting: write one as in bridge.priority=4096", word));
        if (key.starts_with("groups.") && key.find_first_not_of("0123456789", 7) == std::string::npos)
            base.groups = AGGR_STATUS_ALONE; // those of before are no more
        lines += fmt::format("{} = {}\n", key, toml_value(word.substr(sign + 1)));
    } while (!reader.at_end());
    const config_t read = parse_config(lines, base);
    if (!read.faults.empty())
        reader.refuse(read.faults.front().text, first + read.faults.front().line - 1);
    event.settings = read.settings;
}

void read_on_off(command_reader_t &reader, event_t &event)
{
    event.subject = reader.board();
    const std::string &word = reader.take("on or off");
    if (word != "on" && word != "off")
        reader.refuse("here should be on or off");
    event.verb = word == "on" ? verb_t::POWER_ON : verb_t::POWER_OFF;
}

struct command_t {
    const char *word;
    const char *form; ///< of what follows
    void (*read)(command_reader_t &reader, event_t &event, const network_t &network);
};

const command_t COMMANDS[] = {
    {"pull", "A-B",
     [](command_reader_t &reader, event_t &event, const network_t &) {
         event.verb = verb_t::PULL;
         event.subject = reader.link().link;
     }},
    {"plug", "A-B",
     [](command_reader_t &reader, event_t &event, const network_t &) {
         event.verb = verb_t::PLUG;
         event.subject = reader.link().link;
     }},
    {"flap", "A-B TIMES PAUSE",
     [](command_reader_t &reader, event_t &event, const network_t &) {
         event.verb = verb_t::FLAP;
         event.subject = reader.link().link;
         event.times = reader.number("how often", 10000);
         event.pause = reader.span();
     }},
    {"degrade", "A-B [delay TIME] [jitter TIME] [loss SHARE] [duplicate SHARE] [one-way]",
     [](command_reader_t &reader, event_t &event, const network_t &) {
         event.verb = verb_t::DEGRADE;
         const found_link_t link = reader.link();
         event.subject = link.link;
         read_qualities(reader, event, link.turned);
     }},
    {"deafen", "A-B",
     [](command_reader_t &reader, event_t &event, const network_t &) { read_way(reader, event, verb_t::DEAFEN); }},
    {"heal", "A-B",
     [](command_reader_t &reader, event_t &event, const network_t &) { read_way(reader, event, verb_t::HEAL); }},
    {"kill", "SWITCH",
     [](command_reader_t &reader, event_t &event, const network_t &) {
         event.verb = verb_t::KILL;
         event.subject = reader.board();
     }},
    {"restart", "SWITCH",
     [](command_reader_t &reader, event_t &event, const network_t &) {
         event.verb = verb_t::RESTART;
         event.subject = reader.board();
     }},
    {"power", "SWITCH on|off",
     [](command_reader_t &reader, event_t &event, const network_t &) { read_on_off(reader, event); }},
    {"set", "SWITCH KEY=VALUE...",
     [](command_reader_t &reader, event_t &event, const network_t &network) {
         event.verb = verb_t::SET;
         event.subject = reader.board();
         read_settings(reader, event, settings_now(network, event.subject));
     }},
    {"refuse", "SWITCH TIMES",
     [](command_reader_t &reader, event_t &event, const network_t &) {
         event.verb = verb_t::REFUSE;
         event.subject = reader.board();
         event.times = reader.number("how many batches of register writes", 10000);
     }},
    {"hold", "SWITCH TIME",
     [](command_reader_t &reader, event_t &event, const network_t &) {
         event.verb = verb_t::HOLD;
         event.subject = reader.board();
         event.pause = reader.span();
     }},
    {"message", "SWITCH OCTETS",
     [](command_reader_t &reader, event_t &event, const network_t &) {
         event.verb = verb_t::MESSAGE;
         event.subject = reader.board();
         event.octets = reader.octets();
     }},
};

/// A link's name, with end `first` first.
std::string way_text(const network_t &network, size_t link, unsigned first)
{
    const auto &ends = network.links[link].ends;
    return fmt::format("{}-{}", end_text(network, ends[first]), end_text(network, ends[1 - first]));
}

std::string qualities_text(const network_t &network, const event_t &event)
{
    const bool turned = event.qualities[0].dead;
    const quality_t &quality = event.qualities[turned ? 1 : 0];
    const quality_t usual;
    std::string text = way_text(network, event.subject, turned ? 1 : 0);
    if (quality.delay != usual.delay)
        text += fmt::format(" delay {}", span_text(quality.delay));
    if (quality.jitter != usual.jitter)
        text += fmt::format(" jitter {}", span_text(quality.jitter));
    if (quality.lost)
        text += fmt::format(" loss {}", share_text(quality.lost));
    if (quality.doubled)
        text += fmt::format(" duplicate {}", share_text(quality.doubled));
    if (event.qualities[0].dead || event.qualities[1].dead)
        text += " one-way";
    return text;
}

} // namespace

std::vector<std::string> command_forms()
{
    std::vector<std::string> forms;
    for (const command_t &command : COMMANDS)
        forms.push_back(fmt::format("{} {}", command.word, command.form));
    return forms;
}

event_t parse_command(const network_t &network, span_t at, const std::string &text)
{
    command_reader_t reader(network, text);
    const std::string verb = reader.take("a command");
    const auto command = std::ranges::find_if(COMMANDS, [&](const command_t &known) { return known.word == verb; });
    if (command == std::end(COMMANDS)) {
        std::vector<std::string> words;
        for (const command_t &known : COMMANDS)
            words.push_back(known.word);
        reader.refuse(fmt::format("there is no command \"{}\"{}", verb, suggestions(verb, words)));
    }
    event_t event = {};
    event.at = at;
    command->read(reader, event, network);
    if (!reader.at_end()) {
        const std::string rest = reader.take("nothing");
        reader.refuse(fmt::format("\"{}\" is too much: write {} {}", rest, command->word, command->form));
    }
    return event;
}

const settings_t &settings_now(const network_t &network, size_t node)
{
    for (auto event = network.story.rbegin(); event != network.story.rend(); ++event)
        if (event->verb == verb_t::SET && event->subject == node)
            return *event->settings;
    return network.nodes[node].settings;
}

std::string command_text(const network_t &network, const event_t &event, const settings_t &before)
{
    const auto link = [&] { return link_text(network, network.links[event.subject]); };
    const auto node = [&] { return network.nodes[event.subject].name; };
    switch (event.verb) {
    case verb_t::PULL:
        return "pull " + link();
    case verb_t::PLUG:
        return "plug " + link();
    case verb_t::FLAP:
        return fmt::format("flap {} {} {}", link(), event.times, span_text(event.pause));
    case verb_t::DEGRADE:
        return "degrade " + qualities_text(network, event);
    case verb_t::DEAFEN:
        return "deafen " + way_text(network, event.subject, event.way);
    case verb_t::HEAL:
        return "heal " + way_text(network, event.subject, event.way);
    case verb_t::KILL:
        return "kill " + node();
    case verb_t::RESTART:
        return "restart " + node();
    case verb_t::POWER_ON:
        return fmt::format("power {} on", node());
    case verb_t::POWER_OFF:
        return fmt::format("power {} off", node());
    case verb_t::SET:
        return fmt::format("set {} {}", node(), fmt::join(changed_settings(before, *event.settings), " "));
    case verb_t::REFUSE:
        return fmt::format("refuse {} {}", node(), event.times);
    case verb_t::HOLD:
        return fmt::format("hold {} {}", node(), span_text(event.pause));
    case verb_t::MESSAGE:
        return fmt::format("message {} {:02x}", node(), fmt::join(event.octets, ""));
    }
    return {};
}

namespace {

void compare_port(std::vector<std::string> &changes, const std::string &section, const lvt_rstp_port_config_t &before,
                  const lvt_rstp_port_config_t &now, bool group)
{
    const auto truth = [](uint8_t value) { return value ? "true" : "false"; };
    if (before.adminEnable != now.adminEnable)
        changes.push_back(fmt::format("{}.spanning_tree={}", section, truth(now.adminEnable)));
    if (before.adminPathCost != now.adminPathCost)
        changes.push_back(now.adminPathCost ? fmt::format("{}.path_cost={}", section, now.adminPathCost)
                                            : fmt::format("{}.path_cost=auto", section));
    if (before.port_priority != now.port_priority)
        changes.push_back(fmt::format("{}.priority={}", section, now.port_priority));
    if (before.adminPointToPoint != now.adminPointToPoint)
        changes.push_back(fmt::format("{}.point_to_point={}", section,
                                      now.adminPointToPoint == LVT_RSTP_PORT_DEFAULTS.adminPointToPoint ? "auto"
                                      : now.adminPointToPoint == 0                                      ? "true"
                                                                                                        : "false"));
    if (!group && before.adminEdge != now.adminEdge)
        changes.push_back(fmt::format("{}.edge={}", section, truth(now.adminEdge)));
}

} // namespace

std::vector<std::string> changed_settings(const settings_t &before, const settings_t &now)
{
    std::vector<std::string> changes;
    const auto compare = [&](const char *key, unsigned was, unsigned is) {
        if (was != is)
            changes.push_back(fmt::format("bridge.{}={}", key, is));
    };
    compare("priority", before.bridge.bridge_priority, now.bridge.bridge_priority);
    compare("max_age", before.bridge.max_age, now.bridge.max_age);
    compare("hello_time", before.bridge.hello_time, now.bridge.hello_time);
    compare("forward_delay", before.bridge.forward_delay, now.bridge.forward_delay);
    compare("force_version", before.bridge.force_version, now.bridge.force_version);
    for (unsigned port = 1; port <= FRONT_PORTS; port++) {
        const std::string section = fmt::format("port.{}", port);
        compare_port(changes, section, before.ports[port], now.ports[port], false);
        if (before.lacp[port - 1] != now.lacp[port - 1])
            changes.push_back(fmt::format("{}.lacp={}", section, now.lacp[port - 1] ? "true" : "false"));
    }
    compare_port(changes, "groups", before.ports[0], now.ports[0], true);
    if (before.groups != now.groups || (now.groups_stated && !before.groups_stated))
        for (int64_t group = GROUP.min; group <= GROUP.max; group++) {
            std::vector<unsigned> members;
            for (unsigned port = 1; port <= FRONT_PORTS; port++)
                if (now.groups[port] == group)
                    members.push_back(port);
            const bool was = std::ranges::find(before.groups, static_cast<uint8_t>(group)) != before.groups.end();
            if (!members.empty() || was || (group == GROUP.min && now.groups == AGGR_STATUS_ALONE))
                changes.push_back(fmt::format("groups.{}=[{}]", group, fmt::join(members, ",")));
        }
    return changes;
}

} // namespace topology
