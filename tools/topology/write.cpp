#include <fmt/format.h>
#include <fmt/ranges.h>

#include "tools/printable.h"
#include "tools/topology/read.h"
#include "tools/topology/story.h"
#include "tools/topology/values.h"

namespace topology {

namespace {

/// In double quotes, as YAML has it.
std::string quoted(const std::string &text)
{
    std::string result = "\"";
    for (const char letter : text) {
        if (letter == '"' || letter == '\\')
            result += '\\';
        result += letter;
    }
    return printable(result + '"');
}

/// What is set otherwise than usual, in braces.
std::string config_text(const settings_t &usual, const settings_t &settings)
{
    std::vector<std::string> bridge, groups, ports;
    std::string section;
    std::vector<std::string> port;
    const auto end_port = [&] {
        if (!port.empty())
            ports.push_back(fmt::format("{}: {{{}}}", section, fmt::join(port, ", ")));
        port.clear();
    };
    for (const std::string &change : changed_settings(usual, settings)) {
        const size_t dot = change.rfind('.', change.find('=')), sign = change.find('=');
        const std::string entry =
            fmt::format("{}: {}", change.substr(dot + 1, sign - dot - 1), change.substr(sign + 1));
        if (change.starts_with("bridge."))
            bridge.push_back(entry);
        else if (change.starts_with("groups."))
            groups.push_back(entry);
        else {
            if (change.substr(5, dot - 5) != section)
                end_port();
            section = change.substr(5, dot - 5);
            port.push_back(entry);
        }
    }
    end_port();
    std::vector<std::string> sections;
    if (!bridge.empty())
        sections.push_back(fmt::format("bridge: {{{}}}", fmt::join(bridge, ", ")));
    if (!ports.empty())
        sections.push_back(fmt::format("port: {{{}}}", fmt::join(ports, ", ")));
    if (!groups.empty())
        sections.push_back(fmt::format("groups: {{{}}}", fmt::join(groups, ", ")));
    return fmt::format("{{{}}}", fmt::join(sections, ", "));
}

std::string node_text(const node_t &node, const settings_t &usual)
{
    const node_t plain;
    std::vector<std::string> entries = {fmt::format("kind: {}", KIND_WORDS[static_cast<size_t>(node.kind)])};
    if (const std::string config = config_text(usual, node.settings); config != "{}")
        entries.push_back("config: " + config);
    if (!node.configured)
        entries.emplace_back("configured: false");
    if (node.rapid)
        entries.emplace_back("rapid: true");
    if (!node.options.empty()) {
        std::vector<std::string> words;
        for (const std::string &word : node.options)
            words.push_back(quoted(word));
        entries.push_back(fmt::format("options: [{}]", fmt::join(words, ", ")));
    }
    if (!node.address.empty())
        entries.push_back("address: " + node.address);
    if (node.swallows)
        entries.emplace_back("swallows: true");
    if (node.boot != plain.boot)
        entries.push_back("boot: " + span_text(node.boot));
    if (node.second != plain.second)
        entries.push_back("second: " + span_text(node.second));
    if (node.phase)
        entries.push_back("phase: " + span_text(*node.phase));
    if (node.kind == kind_t::SPEAKER) {
        entries.push_back(fmt::format("says: {}", SPEECH_WORDS[static_cast<size_t>(node.speech)]));
        if (node.hush)
            entries.push_back("hush: " + span_text(*node.hush));
    }
    return fmt::format("    {}: {{{}}}\n", node.name, fmt::join(entries, ", "));
}

std::string link_entries(const network_t &network, const link_t &link)
{
    const auto end = [&](unsigned i) {
        return fmt::format("\"{}:{}\"", network.nodes[link.ends[i].node].name, link.ends[i].port);
    };
    const quality_t &a = link.qualities[0], &b = link.qualities[1], usual;
    std::string text = fmt::format("endpoints: [{}, {}]", end(0), end(1));
    const auto pair = [&](const char *key, const auto &one, const auto &other, const auto &plain, auto words) {
        if (one != plain || other != plain)
            text += one == other ? fmt::format(", {}: {}", key, words(one))
                                 : fmt::format(", {}: [{}, {}]", key, words(one), words(other));
    };
    pair("delay", a.delay, b.delay, usual.delay, span_text);
    pair("jitter", a.jitter, b.jitter, usual.jitter, span_text);
    const auto loss = [](const quality_t &quality, bool all) { return all ? 1'000'000 : quality.lost; };
    const bool mute = a.dead && b.dead; // which needs no word of its own
    pair("loss", loss(a, mute), loss(b, mute), usual.lost, share_text);
    pair("duplicate", a.doubled, b.doubled, usual.doubled, share_text);
    if (a.dead != b.dead)
        text += fmt::format(", one-way: {}", quoted(end_text(network, link.ends[a.dead ? 1 : 0])));
    if (link.mbit != 1000)
        text += fmt::format(", speed: {}", link.mbit);
    if (!link.full_duplex)
        text += ", duplex: half";
    if (link.plugged != span_t(0))
        text += fmt::format(", plugged: {}", link.plugged ? span_text(*link.plugged) : "never");
    return fmt::format("    - {{{}}}\n", text);
}

} // namespace

std::string network_text(const network_t &network)
{
    network_t usual = {.nodes = network.nodes, .links = network.links};
    for (node_t &node : usual.nodes)
        node.settings = {};
    give_usual_settings(usual);

    std::string text;
    if (!network.name.empty())
        text += fmt::format("name: {}\n", quoted(network.name));
    if (network.seed != 1)
        text += fmt::format("seed: {}\n", network.seed);
    if (network.until)
        text += fmt::format("until: {}\n", span_text(*network.until));
    if (!network.rests.empty()) {
        std::vector<std::string> rests;
        for (const span_t rest : network.rests)
            rests.push_back(span_text(rest));
        text += fmt::format("rests: [{}]\n", fmt::join(rests, ", "));
    }
    if (!network.faults.empty())
        text += fmt::format("faults: [{}]\n", fmt::join(network.faults, ", "));
    text += "topology:\n  nodes:\n";
    for (size_t i = 0; i < network.nodes.size(); i++)
        text += node_text(network.nodes[i], usual.nodes[i].settings);
    text += network.links.empty() ? "" : "  links:\n";
    for (const link_t &link : network.links)
        text += link_entries(network, link);

    network_t so_far = {.nodes = network.nodes, .links = network.links}; // what was set before counts
    for (size_t i = 0; i < network.story.size(); i++) {
        const event_t &event = network.story[i];
        const std::string command = command_text(
            network, event, event.verb == verb_t::SET ? settings_now(so_far, event.subject) : settings_t{});
        if (i == 0)
            text += "story:\n";
        if (i == 0 || event.at != network.story[i - 1].at)
            text += fmt::format("  {}:\n", span_text(event.at));
        text += fmt::format("    - {}\n", command);
        so_far.story.push_back(event);
    }
    return text;
}

} // namespace topology
