/// Networks from files, names and commands.
#include <algorithm>
#include <fstream>
#include <numeric>
#include <random>
#include <set>

#include <fmt/format.h>
#include <gmock/gmock.h>

#include "tests/seed.h"
#include "tools/ctl/ctl.h"
#include "tools/topology/read.h"
#include "tools/topology/shapes.h"
#include "tools/topology/story.h"
#include "tools/topology/values.h"
#include "tools_fixture.h"

namespace {

using namespace topology;
using namespace std::chrono_literals;

network_t read(const std::string &text) { return read_network(text, "net.yml"); }

/// What is said against a file; empty when nothing is.
std::string faults_of(const std::string &text, const std::string &path = "net.yml")
{
    try {
        read_network(text, path);
        return "";
    } catch (const refused_t &fault) {
        return fault.what();
    }
}

constexpr char PAIR[] = R"(name: two
topology:
  nodes:
    sw1: {kind: switch}
    sw2: {kind: switch}
  links:
    - endpoints: ["sw1:1", "sw2:2"]
)";

std::string pair_with(const std::string &more) { return PAIR + more; }

std::string links_text(const network_t &network)
{
    std::string text;
    for (const link_t &link : network.links)
        text += (text.empty() ? "" : " ") + link_text(network, link);
    return text;
}

std::string shape_links(const std::string &name, const std::string &size)
{
    return links_text(shape_network({name, size}));
}

} // namespace

// ---- the file ------------------------------------------------------------------------------

TEST(topology, a_file_tells_nodes_and_links)
{
    const network_t network = read(PAIR);
    EXPECT_EQ(network.name, "two");
    ASSERT_EQ(network.nodes.size(), 2u);
    EXPECT_EQ(network.nodes[1].name, "sw2");
    EXPECT_EQ(network.nodes[1].kind, kind_t::SWITCH);
    EXPECT_EQ(links_text(network), "sw1:1-sw2:2");
}

TEST(topology, ports_with_links_take_part_unless_their_switch_is_told_otherwise)
{
    const network_t network = read(R"(topology:
  nodes: {sw1: , sw2: {config: {bridge: {priority: 4096}, port: {3: {spanning_tree: false}}}}, h1: {kind: host}}
  links:
    - endpoints: [sw1:1, sw2:2]
    - endpoints: [sw2:3, sw1:5]
    - endpoints: [sw1:6, h1]
)");
    const settings_t &first = network.nodes[0].settings, &second = network.nodes[1].settings;
    EXPECT_EQ(first.bridge.bridge_priority, 32768);
    EXPECT_EQ(second.bridge.bridge_priority, 4096);
    const int takes_part[] = {1, 0, 0, 0, 1, 1}, is_edge[] = {0, 1, 1, 1, 0, 1};
    for (unsigned port = 1; port <= 6; port++) {
        EXPECT_EQ(first.ports[port].adminEnable, takes_part[port - 1]) << port;
        EXPECT_EQ(first.ports[port].adminEdge, is_edge[port - 1]) << port;
    }
    EXPECT_EQ(second.ports[2].adminEnable, 1);
    EXPECT_EQ(second.ports[3].adminEnable, 0);
}

TEST(topology, a_configuration_file_is_the_whole_configuration)
{
    const temp_folder_t folder;
    std::ofstream(folder.path + "/sw1.toml") << "[bridge]\npriority = 8192\n[port.4]\nspanning_tree = true\n";
    const std::string text =
        "topology:\n  nodes: {sw1: {config: sw1.toml}, sw2: }\n"
        "  links: [{endpoints: [sw1:1, sw2:1]}]\n";
    const network_t network = read_network(text, folder.path + "/net.yml");
    EXPECT_EQ(network.nodes[0].settings.bridge.bridge_priority, 8192);
    EXPECT_EQ(network.nodes[0].settings.ports[1].adminEnable, 0);
    EXPECT_EQ(network.nodes[0].settings.ports[4].adminEnable, 1);

    std::ofstream(folder.path + "/sw1.toml") << "[bridge]\npriority = 8193\n";
    EXPECT_EQ(faults_of(text, folder.path + "/net.yml"),
              folder.path + "/sw1.toml:2:12: bridge priority 8193: allowed is 0 to 61440 in steps of 4096");
    std::filesystem::remove(folder.path + "/sw1.toml");
    EXPECT_THAT(faults_of(text, folder.path + "/net.yml"),
                testing::StartsWith(folder.path + "/net.yml:2:25: cannot read " + folder.path +
                                    "/sw1.toml: No such file or directory"));
}

TEST(topology, links_have_qualities_for_both_ways_or_each)
{
    const network_t network = read(R"(topology:
  nodes: {sw1: , sw2: , sw3: }
  links:
    - {endpoints: [sw1:1, sw2:1], delay: 20ms, jitter: [1ms, 0], loss: 10%, duplicate: 0.5%, speed: 100, duplex: half}
    - {endpoints: [sw2:2, sw3:2], one-way: sw3, plugged: 1.5s}
    - {endpoints: [sw1:3, sw3:3], plugged: never}
)");
    const link_t &link = network.links[0];
    for (const quality_t &quality : link.qualities) {
        EXPECT_EQ(quality.delay, 20ms);
        EXPECT_EQ(quality.lost, 100'000u);
        EXPECT_EQ(quality.doubled, 5000u);
        EXPECT_FALSE(quality.dead);
    }
    EXPECT_EQ(link.qualities[0].jitter, 1ms);
    EXPECT_EQ(link.qualities[1].jitter, 0ms);
    EXPECT_EQ(link.mbit, 100u);
    EXPECT_FALSE(link.full_duplex);
    EXPECT_EQ(link.plugged, 0ms);
    EXPECT_TRUE(network.links[1].qualities[0].dead);
    EXPECT_FALSE(network.links[1].qualities[1].dead);
    EXPECT_EQ(network.links[1].plugged, 1500ms);
    EXPECT_FALSE(network.links[2].plugged);
}

TEST(topology, hubs_and_hosts_and_speakers_need_no_port_numbers)
{
    const network_t network = read(R"(topology:
  nodes: {sw1: , hub: {kind: hub}, h1: {kind: host}, old: {kind: speaker, says: stp, config: {bridge: {priority: 4096}}, hush: 60s}}
  links:
    - endpoints: [sw1:1, hub]
    - endpoints: [hub, h1]
    - endpoints: [hub:4, sw1:2]
    - endpoints: [old, hub]
)");
    EXPECT_EQ(links_text(network), "sw1:1-hub:1 hub:2-h1 hub:4-sw1:2 old-hub:3");
    EXPECT_EQ(network.nodes[3].speech, speech_t::STP);
    EXPECT_EQ(network.nodes[3].settings.bridge.bridge_priority, 4096);
    EXPECT_EQ(network.nodes[3].hush, 60s);
}

TEST(topology, hosts_have_addresses_and_programs_options)
{
    const network_t network = read(R"(topology:
  nodes:
    sw1: {options: [--rapid, --loud, "a b"]}
    br1: {kind: linux-bridge, config: {bridge: {priority: 4096}}}
    h1: {kind: host, address: 10.1.0.7}
    h2: {kind: host, address: 10.1.0.8/16}
)");
    EXPECT_TRUE(network.nodes[0].rapid);
    EXPECT_EQ(network.nodes[0].options, (std::vector<std::string>{"--loud", "a b"}));
    EXPECT_EQ(network.nodes[0].place, "net.yml:3:5: ");
    EXPECT_EQ(network.nodes[1].settings.bridge.bridge_priority, 4096);
    EXPECT_EQ(network.nodes[2].address, "10.1.0.7/24");
    EXPECT_EQ(network.nodes[3].address, "10.1.0.8/16");
    EXPECT_EQ(network_text(read(network_text(network))), network_text(network));
    EXPECT_EQ(faults_of("topology: {nodes: {h1: {kind: host, address: 10.0.0.1/33}}}"),
              "net.yml:1:46: address should be an IPv4 address, as in 10.0.0.1 or 192.168.1.5/16");
}

TEST(topology, hosts_are_added_far_from_each_other)
{
    network_t ring = shape_network({"ring", "4"});
    add_hosts(ring, 2);
    EXPECT_EQ(links_text(ring), "sw1:1-sw2:2 sw2:1-sw3:2 sw3:1-sw4:2 sw4:1-sw1:2 sw1:6-h1 sw3:6-h2");
    EXPECT_EQ(ring.nodes[0].settings.ports[6].adminEdge, 1);
    EXPECT_EQ(ring.nodes[0].settings.ports[6].adminEnable, 1);
    network_t star = shape_network({"star", "7"}); // the one in the middle has no port free
    add_hosts(star, 1);
    EXPECT_EQ(link_text(star, star.links.back()), "sw2:6-h1");
    network_t mesh = shape_network({"mesh", "7"});
    add_hosts(mesh, 2);
    EXPECT_EQ(mesh.nodes.size(), 7u);
}

TEST(topology, an_alias_stands_for_what_it_means)
{
    const network_t network = read(R"(topology:
  nodes:
    sw1: {config: &fast {bridge: {max_age: 6, hello_time: 1, forward_delay: 4}}}
    sw2: {config: *fast}
)");
    EXPECT_EQ(network.nodes[1].settings.bridge.max_age, 6);
}

// ---- what is wrong with a file -------------------------------------------------------------

TEST(topology, mistakes_are_told_with_their_places)
{
    const struct {
        std::string text, fault;
    } rows[] = {
        {"", "1:1: the file should be entries \"key: value\""},
        {"name: x\n", "1:1: the file has no \"topology\""},
        {"topology: {}\n", "1:11: topology has no \"nodes\""},
        {"topology:\n  nodes: [a]\n", "2:10: nodes should be entries \"key: value\""},
        {"topology: [\n", "2:1: end of sequence flow not found"},
        {"topology:\n\tnodes:\n", "2:7: illegal map value"},
        {"topology: {nodes: {sw1: }}\nname: a\nname: b\n", "3:1: \"name\" stands twice in the file"},
        {"topology: {nodes: {sw1: }}\ntoplogy: a\n",
         "2:1: there is no \"toplogy\" in the file: did you mean "
         "\"topology\"? Known are name, topology, story, until, seed, "
         "rests, faults"},
        {"topology: {nodes: {sw1: }}\n---\nname: b\n", "2:1: a second document begins here: write one only"},
        {"topology: {nodes: {1sw: }}\n",
         "1:20: \"1sw\" is no name for a node: write a letter, then letters, digits, \"_\", \"-\" and \".\", 32 in "
         "all"},
        {"topology: {nodes: {sw1: {kind: swich}}}\n",
         "1:32: kind should be switch, lvt-bridge, linux-bridge, hub, host, speaker: did you mean \"switch\"?"},
        {"topology: {nodes: {h: {kind: host, config: {}}}}\n",
         "1:36: there is no \"config\" in h, a host: known are kind, address"},
        {"topology: {nodes: {sw1: {second: 3s}}}\n",
         "1:34: second should be 500ms to 2s: it is what the switch takes for a second"},
        {"topology: {nodes: {sw1: {boot: soon}}}\n", "1:32: boot should be a time, as in 20ms, 1.5s or 2min"},
        {pair_with("    - endpoints: [sw1:1, sw2:3]\n"), "8:19: sw1:1 has a link already, that of line 7"},
        {pair_with("    - endpoints: [sw1:7, sw2:3]\n"), "8:19: \"sw1:7\" names no port of sw1: write sw1:1 to sw1:6"},
        {pair_with("    - endpoints: [sw1, sw2:3]\n"), "8:19: \"sw1\" names no port of sw1: write sw1:1 to sw1:6"},
        {pair_with("    - endpoints: [sw1:2, sx2:3]\n"), "8:26: there is no node \"sx2\": did you mean \"sw2\"?"},
        {pair_with("    - endpoints: [sw1:2]\n"), "8:18: endpoints should be two, as in [sw1:1, sw2:2]"},
        {pair_with("    - endpoint: [sw1:2, sw2:3]\n"),
         "8:7: there is no \"endpoint\" in a link: did you mean \"endpoints\"? Known are endpoints, delay, jitter, "
         "loss, duplicate, one-way, speed, duplex, plugged\n"
         "net.yml:8:7: the link has no \"endpoints\""},
        {pair_with("    - {endpoints: [sw1:2, sw2:3], loss: 120%}\n"),
         "8:41: loss should be a share, as in 10% or 0.5%"},
        {pair_with("    - {endpoints: [sw1:2, sw2:3], speed: 40}\n"), "8:42: speed should be 10, 100, 1000, 2500"},
        {pair_with("    - {endpoints: [sw1:2, sw2:3], one-way: sw3}\n"),
         "8:44: one-way should be the end whose frames arrive: sw1:2 or sw2:3"},
        {pair_with("until: 1y\n"), "8:8: until should be a time, as in 20ms, 1.5s or 2min"},
        {pair_with("seed: -1\n"), "8:7: seed should be a whole number, 0 to 18446744073709551615"},
        {pair_with("story: {soon: pull 1-2}\n"),
         "8:9: \"soon\" should be a time, as in 20ms, 1.5s or 2min, and then what happens"},
        {pair_with("story: {1s: pul 1-2}\n"),
         "8:13: there is no command \"pul\": did you mean \"pull\"? Known are pull, plug, flap, degrade, deafen, heal, "
         "kill, restart, power, set, refuse, hold, message"},
        {pair_with("story:\n  1s:\n    - pull 1-3\n"),
         "10:12: there is no link \"1-3\": write the names of two nodes, as in sw1-sw2"},
        {pair_with("story: {1s: \"power sw3 off\"}\n"), "8:20: there is no node \"sw3\": did you mean \"sw1\"?"},
        {pair_with("story: {1s: pull 1-2 now}\n"), "8:22: \"now\" is too much: write pull A-B"},
        {pair_with("story: {1s: flap 1-2}\n"), "8:21: here should follow how often"},
        {pair_with("story: {1s: set sw1 bridge.max_age=6 bridge.hello_time=1 bridge.priority=7}\n"),
         "8:58: bridge priority 7: allowed is 0 to 61440 in steps of 4096"},
    };
    for (const auto &row : rows)
        EXPECT_EQ(faults_of(row.text), "net.yml:" + row.fault) << row.text;
}

TEST(topology, mistakes_in_settings_are_told_at_their_places)
{
    EXPECT_EQ(
        faults_of(R"(topology:
  nodes:
    sw1:
      config:
        bridge: {priority: 4097, max_age: 20}
        port:
          1: {edge: maybe}
          7: {edge: true}
        groups: {7: [1, 9]}
    sw2: {config: {bridge: 5}}
    sw3: {config: {bridge: {prio: 4096}}}
)"),
        "net.yml:5:28: bridge priority 4097: allowed is 0 to 61440 in steps of 4096\n"
        "net.yml:7:21: edge should be true or false\n"
        "net.yml:8:11: there is no port \"7\": write [port.1] to [port.6]\n"
        "net.yml:9:21: port 9: allowed is 1 to 6\n"
        "net.yml:10:28: bridge should be settings\n"
        "net.yml:11:29: there is no \"prio\" in [bridge]: known are priority, max_age, hello_time, forward_delay, "
        "force_version");
}

TEST(topology, all_mistakes_are_told_but_no_more_than_anybody_reads)
{
    std::string text = "topology:\n  nodes: {sw1: }\n  links:\n";
    for (int i = 0; i < 1000; i++)
        text += "  - endpoints: [a, b]\n";
    const std::string faults = faults_of(text);
    EXPECT_EQ(std::ranges::count(faults, '\n'), 100);
    EXPECT_TRUE(faults.ends_with("\nnet.yml: 1900 faults more"));
}

TEST(topology, a_file_of_aliases_of_aliases_is_refused)
{
    std::string text = "name: &a0 [x, x, x, x, x, x, x, x, x, x]\n";
    for (int i = 1; i < 20; i++)
        text += fmt::format("k{}: &a{} [*a{}, *a{}, *a{}, *a{}, *a{}, *a{}, *a{}, *a{}]\n", i, i, i - 1, i - 1, i - 1,
                            i - 1, i - 1, i - 1, i - 1, i - 1);
    EXPECT_EQ(faults_of(text), "net.yml:7:10: from here on the file is too large, aliases counted as what they mean");
}

TEST(topology, a_file_that_nests_deeply_is_refused)
{
    for (const char *opening : {"[", "{", "- ", "? ", "{a: ["}) {
        std::string text;
        for (int i = 0; i < 100'000; i++)
            text += opening;
        EXPECT_NE(faults_of(text), "") << opening;
    }
    EXPECT_EQ(faults_of("a: &a [*a]\n"), "net.yml:1:8: an alias stands within what it means");
}

TEST(topology, no_file_is_read_that_is_too_large_or_none)
{
    const temp_folder_t folder;
    const std::string path = folder.path + "/net.yml";
    EXPECT_THROW(load_network({path}), refused_t);
    EXPECT_THROW(load_network({folder.path}), refused_t);
    std::ofstream(path) << PAIR;
    EXPECT_EQ(load_network({path}).nodes.size(), 2u);
    std::filesystem::resize_file(path, FILE_OCTETS_MAX + 1);
    EXPECT_THROW(load_network({path}), refused_t);
}

/// Files with some letters changed, moved or taken out are read, or refused, but never more.
TEST(topology, no_broken_file_does_any_harm)
{
    const test_seed_t seed(1);
    std::mt19937 random(seed.value);
    const auto below = [&](size_t count) { return std::uniform_int_distribution<size_t>(0, count - 1)(random); };
    const std::string whole = pair_with(R"(    - {endpoints: [&a sw1:3, *a], delay: [1ms, 2ms], one-way: "sw1:3"}
until: 100s
story:
  10s: [pull 1-2, "plug sw1:1-sw2", 'set sw1 groups.7=[1,2]']
  20s: |
    degrade 1-2 loss 5%
)");
    constexpr char LETTERS[] = "{}[]:,-&*!|>'\"%@`#? \n\t0a\\~\x80\xFF";
    for (int round = 0; round < 3000; round++) {
        std::string text = whole;
        for (size_t changes = below(8) + 1; changes; changes--) {
            const size_t at = below(text.size());
            const char letter = LETTERS[below(sizeof LETTERS)];
            switch (below(4)) {
            case 0:
                text[at] = letter;
                break;
            case 1:
                text.insert(at, 1, letter);
                break;
            case 2:
                text.erase(at, below(9));
                break;
            default:
                text.insert(at, text.substr(below(text.size()), below(40)));
            }
        }
        faults_of(text);
    }
}

// ---- names ---------------------------------------------------------------------------------

TEST(topology, shapes_have_names)
{
    EXPECT_EQ(shape_links("line", "3"), "sw1:1-sw2:2 sw2:1-sw3:2");
    EXPECT_EQ(shape_links("ring", "4"), "sw1:1-sw2:2 sw2:1-sw3:2 sw3:1-sw4:2 sw4:1-sw1:2");
    EXPECT_EQ(shape_links("ring", "2"), "sw1:1-sw2:2 sw2:1-sw1:2");
    EXPECT_EQ(shape_links("star", "4"), "sw1:1-sw2:1 sw1:2-sw3:1 sw1:3-sw4:1");
    EXPECT_EQ(shape_links("grid", "2x2"), "sw1:1-sw2:2 sw1:3-sw3:4 sw2:3-sw4:4 sw3:1-sw4:2");
    EXPECT_EQ(shape_links("tree", "5"), "sw1:2-sw2:1 sw1:3-sw3:1 sw2:2-sw4:1 sw2:3-sw5:1");
    EXPECT_EQ(shape_links("mesh", "3"), "sw1:1-sw2:1 sw1:2-sw3:1 sw2:2-sw3:2");
    EXPECT_EQ(shape_links("fat-tree", "2"), "sw1:1-sw2:2 sw2:1-sw3:2 sw1:2-sw4:2 sw4:1-sw5:2");
}

/// No port is used twice, each switch is reached, and there are as many cables as the shape has.
TEST(topology, shapes_are_sound_at_every_size)
{
    const struct {
        const char *name, *size;
        size_t nodes, links;
    } rows[] = {{"line", "10000", 10000, 9999}, {"ring", "1000", 1000, 1000}, {"star", "7", 7, 6},
                {"grid", "20x30", 600, 1150},   {"tree", "511", 511, 510},    {"mesh", "7", 7, 21},
                {"fat-tree", "4", 20, 32},      {"fat-tree", "6", 45, 108},   {"line", "1", 1, 0}};
    for (const auto &row : rows) {
        const network_t network = shape_network({row.name, row.size});
        EXPECT_EQ(network.nodes.size(), row.nodes) << row.name;
        EXPECT_EQ(network.links.size(), row.links) << row.name;
        std::set<std::pair<size_t, unsigned>> used;
        std::vector<size_t> part(network.nodes.size());
        std::iota(part.begin(), part.end(), 0);
        const auto part_of = [&](size_t node) {
            while (part[node] != node)
                node = part[node] = part[part[node]];
            return node;
        };
        for (const link_t &link : network.links) {
            for (const end_t &end : link.ends) {
                EXPECT_TRUE(used.insert({end.node, end.port}).second) << row.name;
                EXPECT_LE(end.port, 6u) << row.name;
            }
            part[part_of(link.ends[0].node)] = part_of(link.ends[1].node);
        }
        for (size_t node = 0; node < part.size(); node++)
            EXPECT_EQ(part_of(node), part_of(0)) << row.name;
    }
}

TEST(topology, shapes_of_no_size_are_refused)
{
    const std::vector<std::vector<std::string>> wrong = {
        {"ring", "1"},     {"ring", "10001"}, {"ring", "x"},      {"ring"},        {"star", "8"},
        {"mesh", "8"},     {"grid", "3"},     {"grid", "3x"},     {"grid", "0x5"}, {"grid", "101x100"},
        {"fat-tree", "3"}, {"fat-tree", "8"}, {"ring", "4", "5"}, {"tree", "0"}};
    for (const auto &words : wrong)
        EXPECT_THROW(load_network(words), refused_t) << words[0];
    try {
        load_network({"star", "8"});
    } catch (const refused_t &refused) {
        EXPECT_STREQ(refused.what(), "\"star 8\": a star has 2 to 7 switches: the one in the middle has six ports");
    }
}

// ---- commands ------------------------------------------------------------------------------

TEST(topology, links_are_found_by_what_people_call_them)
{
    const network_t network = read(R"(topology:
  nodes: {sw1: , sw2: , core-1: , core-1-b: }
  links:
    - endpoints: [sw1:1, sw2:2]
    - endpoints: [sw1:3, sw2:4]
    - endpoints: [core-1:1, core-1-b:1]
    - endpoints: [core-1-b:2, sw1:5]
    - endpoints: [sw2:5, sw2:6]
)");
    const auto found = [&](const char *word) {
        std::string text;
        for (const found_link_t &link : find_links(network, word))
            text += fmt::format("{}{}", link.turned ? "-" : "", link.link);
        return text;
    };
    EXPECT_EQ(found("1-2"), "01");
    EXPECT_EQ(found("2-1"), "-0-1");
    EXPECT_EQ(found("sw1:3-sw2"), "1");
    EXPECT_EQ(found("sw2:2-sw1:1"), "-0");
    EXPECT_EQ(found("core-1-core-1-b"), "2");
    EXPECT_EQ(found("core-1-b-sw1"), "3");
    EXPECT_EQ(found("sw2-sw2"), "4");
    EXPECT_EQ(found("sw1-core-1"), "");
    EXPECT_EQ(found("1"), "");
    EXPECT_EQ(found("-"), "");
}

TEST(topology, a_story_is_in_the_order_of_time)
{
    const network_t network = read(pair_with(R"(story:
  90s: power 2 off
  60s: [pull 1-2, degrade sw2-sw1 delay 20ms loss 10% one-way]
  2min: set sw1 bridge.priority=4096 port.1.path_cost=200
  3min: set sw1 port.1.path_cost=auto
  30500ms: flap 1-2 5 200ms
)"));
    ASSERT_EQ(network.story.size(), 6u);
    EXPECT_EQ(network.story[0].at, 30500ms);
    EXPECT_EQ(network.story[0].times, 5u);
    EXPECT_EQ(network.story[0].pause, 200ms);
    EXPECT_EQ(network.story[1].verb, verb_t::PULL);
    const event_t &degrade = network.story[2];
    EXPECT_EQ(degrade.qualities[0].delay, 20ms);
    EXPECT_EQ(degrade.qualities[1].lost, 100'000u);
    EXPECT_TRUE(degrade.qualities[0].dead);
    EXPECT_FALSE(degrade.qualities[1].dead);
    EXPECT_EQ(network.story[3].verb, verb_t::POWER_OFF);
    EXPECT_EQ(network.story[3].subject, 1u);
    EXPECT_EQ(network.story[4].settings->ports[1].adminPathCost, 200u);
    EXPECT_EQ(network.story[5].settings->ports[1].adminPathCost, 0u);
    EXPECT_EQ(network.story[5].settings->bridge.bridge_priority, 4096) << "what was set before stays";
}

TEST(topology, groups_are_told_as_a_whole)
{
    const network_t network = read(pair_with(R"(story:
  1s: set sw1 groups.7=[1,2] groups.8=[3,4]
  2s: set sw1 groups.7=[1]
)"));
    EXPECT_EQ(network.story[0].settings->groups, (aggr_status_t{0, 7, 7, 8, 8, 5, 6}));
    EXPECT_EQ(network.story[1].settings->groups, (aggr_status_t{0, 7, 2, 3, 4, 5, 6}));
}

// ---- the page --------------------------------------------------------------------------------

TEST(topology, the_page_shows_files_that_can_be_read)
{
    std::ifstream page(LVT_DOCS "/topology.md");
    size_t examples = 0;
    std::string text;
    bool inside = false;
    for (std::string line; std::getline(page, line);)
        if (!inside && line == "```yaml") {
            inside = true;
            text.clear();
        } else if (inside && line == "```") {
            inside = false;
            examples++;
            EXPECT_EQ(faults_of(text), "") << text;
        } else if (inside)
            text += line + "\n";
    EXPECT_EQ(examples, 4u);
}

/// Each command, shape and kind stands in the page as the program words it.
TEST(topology, the_page_knows_every_command_and_name)
{
    std::ifstream file(LVT_DOCS "/topology.md");
    const std::string page{std::istreambuf_iterator<char>(file), {}};
    const auto expect = [&](const std::string &words) {
        EXPECT_NE(page.find("`" + words + "`"), std::string::npos) << words;
    };
    for (const std::string &form : command_forms())
        if (form != "power SWITCH on|off")
            expect(form);
    for (const std::string &form : shape_forms())
        expect(form);
    for (const char *kind : KIND_WORDS)
        expect(kind);
    for (const char *speech : SPEECH_WORDS)
        EXPECT_NE(page.find(fmt::format("`{}`", speech)), std::string::npos) << speech;
}

// ---- writing -------------------------------------------------------------------------------

TEST(topology, what_is_written_reads_as_the_same)
{
    const std::string text = R"(name: "a \"name\""
seed: 7
until: 90s
rests: [60s, 90s]
faults: [CUTS, LOSS]
topology:
  nodes:
    sw1: {kind: switch, config: {bridge: {priority: 4096}, port: {1: {path_cost: 200}, 2: {spanning_tree: false, edge: true}}, groups: {7: [3,4]}}, boot: 1500ms, second: 1010ms, phase: 250ms}
    sw2: {kind: switch, configured: false, rapid: true}
    hub: {kind: hub, swallows: true}
    h1: {kind: host}
    old: {kind: speaker, config: {bridge: {priority: 4096}}, says: better, hush: 60s}
  links:
    - {endpoints: ["sw1:1", "sw2:1"], delay: 20ms, jitter: [1ms, 0s], loss: 0.5%, one-way: "sw1:1", speed: 100, duplex: half}
    - {endpoints: ["sw1:2", "hub:1"], plugged: never}
    - {endpoints: ["hub:2", "h1:1"], plugged: 5s}
    - {endpoints: ["hub:3", "old:1"], duplicate: 1%}
story:
  30s:
    - pull sw1:1-sw2:1
    - plug sw1:1-sw2:1
    - flap sw1:2-hub:1 5 200ms
  40s:
    - degrade sw2:1-sw1:1 delay 5ms loss 10% one-way
    - deafen h1-hub:2
    - heal h1-hub:2
    - kill sw1
    - restart sw1
    - power sw2 off
    - power sw2 on
    - set sw1 bridge.priority=8192 port.2.spanning_tree=true groups.7=[]
    - set sw1 bridge.force_version=0 groups.7=[1] groups.8=[3,4]
    - refuse sw1 3
    - hold sw1 1500ms
    - message sw1 bc30118200
)";
    EXPECT_EQ(network_text(read(text)), text);
}

TEST(topology, every_shape_is_written_and_read)
{
    for (const auto &words : std::vector<std::vector<std::string>>{{"ring", "5"}, {"fat-tree", "4"}, {"mesh", "7"}}) {
        const std::string text = network_text(shape_network(words));
        EXPECT_EQ(network_text(read(text)), text);
    }
}

TEST(topology, times_and_shares_are_written_as_they_are_read)
{
    for (const char *text : {"0s", "20ms", "1500us", "90s", "1ms"})
        EXPECT_EQ(span_text(parse_span(text).value()), text);
    EXPECT_EQ(parse_span("2min"), 120s);
    EXPECT_EQ(parse_span("1.5h"), 90min);
    EXPECT_EQ(parse_span("0"), 0s);
    for (const char *text : {"", "5", "s", "-1s", "1e3s", "1 s", "721h", ".s", "1..2s", "nan"})
        EXPECT_FALSE(parse_span(text)) << text;
    for (const char *text : {"0%", "10%", "0.5%", "0.0001%", "100%", "33.3333%"})
        EXPECT_EQ(share_text(parse_share(text).value()), text);
    for (const char *text : {"", "%", "101%", "-1%", "0.1"})
        EXPECT_FALSE(parse_share(text)) << text;
}
