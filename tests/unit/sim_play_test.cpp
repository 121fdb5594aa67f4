/// Networks from files, played: what becomes of them, and what is told.
#include <filesystem>
#include <fstream>
#include <sstream>

#include <fmt/format.h>
#include <fmt/ranges.h>
#include <gmock/gmock.h>

#include "sim/could_not.h"
#include "sim/draw.h"
#include "sim/faults.h"
#include "sim/picture.h"
#include "sim/teller.h"
#include "sim/topology_file.h"
#include "tools/topology/read.h"
#include "tools/topology/shapes.h"
#include "program.h"
#include "tools_fixture.h"

namespace {

using namespace sim;
using testing::HasSubstr;
using testing::Not;

/// A ring whose clocks are known, with the shortest times.
constexpr char RING[] = R"(name: ring
topology:
  nodes:
    sw1: {phase: 1s, config: &fast {bridge: {max_age: 6, hello_time: 1, forward_delay: 4}}}
    sw2: {phase: 1.1s, config: *fast}
    sw3: {phase: 1.2s, config: *fast}
  links:
    - endpoints: [sw1:1, sw2:2]
    - endpoints: [sw2:1, sw3:2]
    - endpoints: [sw3:1, sw1:2]
)";

topology::network_t ring_with(const std::string &more) { return topology::read_network(RING + more, "ring.yml"); }

class told_t {
public:
    explicit told_t(const topology::network_t &network)
        : story_(story_of(network)), stage(story_),
          teller(stage, [this](const std::string &line) { lines_ += line + "\n"; })
    {
    }

    /// What happens up to a moment, without what happened before.
    std::string until(moment_t moment)
    {
        lines_.clear();
        stage.world().run(moment);
        teller.finish();
        return lines_;
    }

private:
    story_t story_;

public:
    stage_t stage;
    teller_t teller;

private:
    std::string lines_;
};

/// The program, with a command line in shell syntax.
run_t lvt_sim(const std::string &arguments) { return run_command("\"" LVT_SIM "\" " + arguments); }

class play : public testing::Test {
protected:
    temp_folder_t folder_;

    std::string path(const std::string &name) const { return folder_.path + "/" + name; }
    std::string file_with(const std::string &text) const
    {
        std::ofstream(path("net.yml")) << text;
        return path("net.yml");
    }
    std::string text_of(const std::string &name) const
    {
        std::ifstream file(path(name));
        return {std::istreambuf_iterator<char>(file), {}};
    }
};

} // namespace

// ---- the story -----------------------------------------------------------------------------

TEST_F(play, tells_who_claims_what_and_why_ports_change)
{
    told_t told(ring_with(""));
    const std::string boot = told.until(40 * SECOND);
    EXPECT_THAT(boot, HasSubstr("*          sw1 has power\n"));
    EXPECT_THAT(boot, HasSubstr("sw2        claims to be the root, 32768/02:00:00:00:02:00\n"));
    EXPECT_THAT(boot, HasSubstr("sw2        takes sw1 as the root, 20000 away\n"));
    EXPECT_THAT(boot, HasSubstr("sw2:2      becomes root, forwards: sw1:1 tells of sw1 at 0, which makes 20000"));
    EXPECT_THAT(boot, HasSubstr("sw3:2      becomes alternate: sw2:1 is as near to the root, and the better bridge\n"));
    EXPECT_THAT(boot, HasSubstr("sw1:1      forwards\n"));
    EXPECT_EQ(told.until(60 * SECOND), "") << "at rest there is nothing to tell";
}

TEST_F(play, tells_how_a_cut_is_mended)
{
    told_t told(ring_with("story: {40s: pull 1-3, 60s: plug 1-3}\n"));
    told.until(39 * SECOND);
    const std::string cut = told.until(59 * SECOND);
    EXPECT_THAT(cut, HasSubstr("40.000  *          sw3:1-sw1:2 is pulled out\n"));
    EXPECT_THAT(cut, HasSubstr("sw3        still has sw1 as the root, 40000 away now\n"));
    EXPECT_THAT(cut, HasSubstr("sw3:2      becomes root, forwards: sw2:1 tells of sw1 at 20000, which makes 40000\n"));
    const std::string mend = told.until(80 * SECOND);
    EXPECT_THAT(mend, HasSubstr("which makes 20000; by port 2 it were 40000\n"));
    EXPECT_THAT(mend, HasSubstr("sw3:2      becomes alternate, discards: sw2:1 is as near to the root, and the better "
                                "bridge\n"));
}

TEST_F(play, tells_of_a_root_that_falls_silent)
{
    told_t told(ring_with("story: {40s: kill 1, 60s: restart 1}\n"));
    told.until(39 * SECOND);
    const std::string dead = told.until(59 * SECOND);
    EXPECT_THAT(dead, HasSubstr("*          the daemon of sw1 ends\n"));
    EXPECT_THAT(dead, HasSubstr("sw2        claims to be the root, 32768/02:00:00:00:02:00\n"));
    EXPECT_THAT(dead, HasSubstr("sw2:2      becomes designated: sw1:1 has fallen silent\n"));
    EXPECT_THAT(told.until(80 * SECOND), HasSubstr("*          the daemon of sw1 starts\n"));
}

// ---- the story's way into the simulator and back ---------------------------------------------

TEST_F(play, what_the_network_says_is_what_happens)
{
    told_t told(ring_with(R"(story:
  30s: [deafen sw2-sw3, degrade sw1-sw2 delay 5ms loss 10% one-way]
  31s: heal 2-3
  32s: flap 1-3 2 100ms
  40s: set sw3 bridge.priority=4096 port.1.path_cost=7
  50s: power 2 off
)"));
    world_t &world = told.stage.world();
    world.run(30 * SECOND);
    EXPECT_TRUE(world.cable(1).ways[0].dead);
    EXPECT_FALSE(world.cable(1).ways[1].dead);
    EXPECT_EQ(world.cable(0).ways[0].delay, 5 * MILLISECOND);
    EXPECT_EQ(world.cable(0).ways[0].lost, 100'000u);
    EXPECT_TRUE(world.cable(0).ways[1].dead);
    world.run(31 * SECOND);
    EXPECT_FALSE(world.cable(1).ways[0].dead);
    for (const unsigned tenth : {0u, 2u}) {
        world.run(32 * SECOND + tenth * SECOND / 10);
        EXPECT_FALSE(world.cable(2).plugged) << tenth;
        world.run(32 * SECOND + (tenth + 1) * SECOND / 10);
        EXPECT_TRUE(world.cable(2).plugged) << tenth;
    }
    world.run(41 * SECOND);
    EXPECT_EQ(switch_vars(world.device(2)).config.bridge_priority, 4096);
    EXPECT_EQ(world.port(2, 1).config.adminPathCost, 7u);
    world.run(51 * SECOND);
    EXPECT_FALSE(world.powered(1));
}

/// A story that was drawn is the same when it is written as a file and read.
TEST_F(play, a_drawn_story_is_the_same_from_its_file)
{
    for (uint64_t seed = 1; seed <= 300; seed++) {
        const story_t drawn = draw(seed);
        const topology::network_t network = network_of(drawn);
        const story_t read = story_of(topology::read_network(topology::network_text(network), "drawn.yml"));
        EXPECT_EQ(read.faults, drawn.faults) << seed;
        EXPECT_EQ(read.rests, drawn.rests) << seed;
        ASSERT_EQ(read.nodes.size(), drawn.nodes.size()) << seed;
        for (size_t i = 0; i < drawn.nodes.size(); i++) {
            const story_node_t &a = drawn.nodes[i], &b = read.nodes[i];
            EXPECT_EQ(a.kind, b.kind) << seed;
            if (a.kind == node_kind_t::SWITCH) {
                EXPECT_EQ(memcmp(&a.bridge, &b.bridge, sizeof a.bridge), 0) << seed;
                EXPECT_EQ(memcmp(&a.ports, &b.ports, sizeof a.ports), 0) << seed;
                EXPECT_EQ(a.groups, b.groups) << seed;
                EXPECT_EQ(std::tie(a.is_configured, a.rapid, a.boot, a.phase, a.second),
                          std::tie(b.is_configured, b.rapid, b.boot, b.phase, b.second))
                    << seed;
            }
            EXPECT_EQ(std::tie(a.manner, a.hush, a.swallows), std::tie(b.manner, b.hush, b.swallows)) << seed;
        }
        ASSERT_EQ(read.cables.size(), drawn.cables.size()) << seed;
        for (size_t i = 0; i < drawn.cables.size(); i++)
            for (const unsigned end : {0u, 1u}) {
                const story_cable_t &a = drawn.cables[i], &b = read.cables[i];
                EXPECT_EQ(a.ends[end].node, b.ends[end].node) << seed;
                EXPECT_EQ(a.ends[end].port, b.ends[end].port) << seed;
                const way_t &there = a.ways[end], &here = b.ways[end];
                EXPECT_EQ(std::tie(there.delay, there.jitter, there.lost, there.doubled, there.dead),
                          std::tie(here.delay, here.jitter, here.lost, here.doubled, here.dead))
                    << seed;
                EXPECT_EQ(std::tie(a.mbit, a.full_duplex, a.plugged), std::tie(b.mbit, b.full_duplex, b.plugged));
            }
        ASSERT_EQ(read.events.size(), drawn.events.size()) << seed;
        for (size_t i = 0; i < drawn.events.size(); i++) {
            EXPECT_EQ(read.events[i].at, drawn.events[i].at) << seed;
            EXPECT_EQ(read.events[i].subject, drawn.events[i].subject) << seed;
        }
    }
}

TEST_F(play, no_linux_is_played)
{
    const auto network = topology::read_network("topology: {nodes: {br: {kind: linux-bridge}}}\n", "net.yml");
    EXPECT_THROW(story_of(network), usage_t);
}

// ---- the picture ---------------------------------------------------------------------------

TEST_F(play, the_picture_shows_what_carries_data_and_what_is_cut)
{
    told_t told(ring_with("story: {40s: pull 1-2}\n"));
    told.until(39 * SECOND);
    const std::string whole = graph_of(picture_of(told.stage));
    for (const char *part : {"<b>sw1</b><br/><font point-size=\"11\">root</font>", ">1: designated</font>",
                             ">2: root</font>", "\n  n0:u0:s -> n1:l0:n [penwidth=2.5, ", ">2: alternate</font>",
                             "\n  n1:u1:s -> n2:l1:n [penwidth=2, style=dashed, "})
        EXPECT_THAT(whole, HasSubstr(part));
    const std::string dark = topology::dark_style();
    for (size_t at = 0; (at = whole.find("\"#", at)) != std::string::npos; at++)
        EXPECT_THAT(dark, HasSubstr(fmt::format("[fill={}]{{fill:#", whole.substr(at, 9)))) << "not for a dark ground";
    told.until(60 * SECOND);
    EXPECT_THAT(graph_of(picture_of(told.stage)), HasSubstr("label=\" pulled out\""));
}

// ---- the program ---------------------------------------------------------------------------

TEST_F(play, the_program_tells_the_end)
{
    const run_t outcome = lvt_sim("play " + file_with(std::string(RING) + "until: 60s\n"));
    EXPECT_EQ(outcome.status, 0) << outcome.output;
    EXPECT_THAT(outcome.output, HasSubstr("\nAfter 60 s the root is sw1.\n"));
    EXPECT_THAT(outcome.output, HasSubstr("\nAt no moment was there a loop.\nAt rest since "));
    EXPECT_THAT(outcome.output, HasSubstr(", and every port is as IEEE 802.1D has it.\n"));
    EXPECT_THAT(lvt_sim("play " + path("net.yml") + " --quiet").output, testing::StartsWith("\nAfter 60 s "));
    EXPECT_THAT(lvt_sim("play ring 4 --until 1s --quiet").output,
                HasSubstr("\nIt is not at rest: the last change was "));
}

TEST_F(play, the_program_tells_of_a_loop)
{
    const run_t outcome = lvt_sim("play --quiet " + file_with(R"(topology:
  nodes: {sw1: {configured: false}, sw2: {configured: false}}
  links: [{endpoints: [sw1:1, sw2:1]}, {endpoints: [sw1:2, sw2:2]}]
)"));
    EXPECT_EQ(outcome.status, 1) << outcome.output;
    EXPECT_THAT(outcome.output, HasSubstr("\nThere was a loop: "));
}

TEST_F(play, every_example_of_the_page_is_played)
{
    std::ifstream page(LVT_DOCS "/topology.md");
    std::string text;
    bool inside = false;
    for (std::string line; std::getline(page, line);)
        if (!inside && line == "```yaml") {
            inside = true;
            text.clear();
        } else if (inside && line == "```") {
            inside = false;
            const run_t outcome = lvt_sim("play --quiet " + file_with(text));
            EXPECT_THAT(outcome.output, HasSubstr("\nAfter ")) << text;
        } else if (inside)
            text += line + "\n";
}

TEST_F(play, a_capture_has_an_interface_for_each_way_of_each_cable)
{
    const std::string file = file_with(std::string(RING) + "until: 20s\n");
    ASSERT_EQ(lvt_sim("play --quiet " + file + " --pcapng " + path("ring.pcapng")).status, 0);
    const run_t tshark =
        run_command(fmt::format("tshark -r '{}' -T fields -e frame.interface_name 2>/dev/null | sort -u | tr '\\n' ' '",
                                path("ring.pcapng")),
                    "");
    EXPECT_EQ(tshark.output, "sw1:1>sw2:2 sw1:2>sw3:1 sw2:1>sw3:2 sw2:2>sw1:1 sw3:1>sw1:2 sw3:2>sw2:1 ");
}

TEST_F(play, the_program_draws_the_tree_of_a_moment)
{
    const std::string file = file_with(std::string(RING) + "until: 60s\nstory: {40s: pull 1-2}\n");
    ASSERT_EQ(lvt_sim("play --quiet " + file + " --svg " + path("end.svg")).status, 0);
    ASSERT_EQ(lvt_sim("play --quiet " + file + " --at 39s --svg " + path("before.svg")).status, 0);
    EXPECT_THAT(text_of("end.svg"), HasSubstr("pulled out"));
    EXPECT_THAT(text_of("before.svg"), Not(HasSubstr("pulled out")));
    EXPECT_THAT(text_of("before.svg"), testing::AllOf(HasSubstr("<svg"), HasSubstr("alternate")));
}

TEST_F(play, the_program_prints_a_shape_as_a_file)
{
    const run_t printed = lvt_sim("play ring 5 --file");
    EXPECT_EQ(printed.status, 0);
    EXPECT_EQ(printed.output, topology::network_text(topology::shape_network({"ring", "5"})));
}

// ---- what the plots are made of ---------------------------------------------------------------

TEST_F(play, a_ring_settles_after_each_event)
{
    const run_t outcome = lvt_sim("settle ring 4 --fast --seeds 2");
    EXPECT_EQ(outcome.status, 0);
    std::istringstream lines(outcome.output);
    std::string line;
    std::getline(lines, line);
    EXPECT_EQ(line, "# shape switches depth timers seed event last-role-or-state-s last-flush-s bpdus flushes tree");
    const char *events[] = {"boot", "cut", "mend", "death"}, *depths[] = {"2", "3", "2", "2"};
    for (const char *seed : {"1", "2"})
        for (size_t i = 0; i < std::size(events); i++) {
            std::getline(lines, line);
            EXPECT_THAT(line, testing::StartsWith(fmt::format("ring 4 {} fast {} {} ", depths[i], seed, events[i])));
            EXPECT_THAT(line, testing::EndsWith(" right"));
            double moved = 0, flushed = 0;
            ASSERT_EQ(std::sscanf(line.c_str(), "%*s %*s %*s %*s %*s %*s %lf %lf", &moved, &flushed), 2);
            EXPECT_GT(moved, 0) << line;
            EXPECT_LT(moved, 30) << line;
            EXPECT_GE(flushed, 0) << line;
        }
    EXPECT_FALSE(std::getline(lines, line));
}

/// Information does not reach so far.
TEST_F(play, a_ring_that_is_too_large_does_not_settle)
{
    EXPECT_THAT(lvt_sim("settle ring 16 --fast").output, HasSubstr(" boot 60.000 60.000 "));
}

TEST_F(play, a_switch_at_rest_has_a_cost)
{
    const run_t outcome = lvt_sim("cost --switches 50");
    double cables = 0, time = 0;
    size_t count = 0, octets = 0;
    ASSERT_EQ(std::sscanf(outcome.output.c_str(), "# %*[^\n]\n%zu %lf %lf %zu", &count, &cables, &time, &octets), 4)
        << outcome.output;
    EXPECT_EQ(count, 50u);
    EXPECT_NEAR(cables, 2.5, 0.1);
    EXPECT_GT(time, 0);
    EXPECT_GT(octets, 0u);
    EXPECT_EQ(lvt_sim("cost --switches 0").status, 2);
}

#ifdef LVT_RAPID
/// The command that makes the plots of docs/network.md, with few small networks.
TEST_F(play, the_plots_are_made_by_one_command)
{
    const run_t plots =
        run_command(fmt::format("LVT_SIM='{}' '{}/plots' --quick '{}'", LVT_SIM, LVT_SIM_SOURCES, folder_.path));
    EXPECT_EQ(plots.status, 0) << plots.output;
    for (const char *name : {"settle-default", "settle-fast", "settle-rapid", "traffic", "cost"})
        EXPECT_THAT(text_of(fmt::format("network-{}.svg", name)), HasSubstr("</svg>")) << plots.output;
}
#endif

/// The page tells which faults break what, as the program has it: one row for each fault and rule.
TEST_F(play, the_page_tells_what_is_not_promised)
{
    std::vector<std::string> rows;
    for (const exception_t &exception : exceptions()) {
        const std::string begin = fmt::format("| {} |", fault_words(exception.fault));
        const std::string end = fmt::format(" | {} |", exception.rule);
        std::string *known = nullptr;
        for (std::string &row : rows)
            if (row.starts_with(begin) && row.ends_with(end))
                known = &row;
        if (known)
            known->insert(known->size() - end.size(), fmt::format(", {}", property_name(exception.property)));
        else
            rows.push_back(fmt::format("{} {}{}", begin, property_name(exception.property), end));
    }
    const std::string table = fmt::format("| among | may fail | since |\n|---|---|---|\n{}\n", fmt::join(rows, "\n"));
    std::ifstream file(LVT_DOCS "/network.md");
    const std::string page{std::istreambuf_iterator<char>(file), {}};
    EXPECT_NE(page.find(table), std::string::npos) << "it should be:\n" << table;
}

TEST_F(play, nodes_that_need_a_lab_are_refused_with_their_places)
{
    const std::pair<const char *, const char *> rows[] = {
        {"br1: {kind: linux-bridge}",
         "br1 is a linux-bridge, and there is no Linux in the simulator: make it a switch\n"},
        {"br1: {kind: lvt-bridge}", "br1 is a lvt-bridge, and there is no Linux in the simulator: make it a switch\n"},
        {"sw1: {options: [--rapid, --loud]}", "sw1 has options, and the simulator starts no program that takes them\n"},
    };
    for (const auto &[node, words] : rows) {
        const run_t outcome = lvt_sim("play " + file_with(fmt::format("topology:\n  nodes:\n    {}\n", node)));
        EXPECT_EQ(outcome.status, 2) << node;
        EXPECT_EQ(outcome.output, path("net.yml") + ":3:5: " + words) << node;
    }
}

TEST_F(play, what_cannot_be_played_is_said)
{
    const struct {
        std::string arguments;
        int status;
        std::string words;
    } rows[] = {
        {"play " + path("none.yml"), 3, "lvt_sim: cannot read " + path("none.yml") + ": No such file or directory\n"},
        {"play star 9", 2, "a star has 2 to 7 switches"},
        {"play " + file_with("topology: {nodes: {sw1: {kind: x}}}\n"), 2, path("net.yml") + ":1:32: kind should be "},
        {"play ring 3 --until soon", 2, "--until: \"soon\" should be a time"},
        {"play ring 3 --until 1s --at 2s", 2, "--at: the picture is of a moment after the end"},
        {"play ring 3 --until 1s --quiet --svg /dev/full", 3, "cannot write /dev/full: No space left on device"},
        {"play ring 3 --until 9s --quiet --pcapng /dev/full", 3, "cannot write /dev/full: No space left on device"},
        {"play ring 3 --until 1s --pcapng /nowhere/x", 3, "cannot write /nowhere/x: No such file or directory"},
        {"play ring 3 > /dev/full", 3, ""},
    };
    for (const auto &row : rows) {
        const run_t outcome = lvt_sim(row.arguments);
        EXPECT_EQ(outcome.status, row.status) << row.arguments;
        EXPECT_THAT(outcome.output, HasSubstr(row.words)) << row.arguments;
    }
}
