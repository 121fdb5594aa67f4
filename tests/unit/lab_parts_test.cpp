/// What a lab is made of, without any namespace: cables' qualities in a clock of the test's own, the tree's drawing,
/// reasons, and scripts.
#include <nlohmann/json.hpp>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "board/lvt_lab/journal.h"
#include "board/lvt_lab/lab.h"
#include "board/lvt_lab/prober.h"
#include "board/lvt_lab/script.h"
#include "board/lvt_lab/tree.h"
#include "board/lvt_lab/way.h"
#include "board/lvt_lab/why.h"
#include "tools/ctl/ctl.h"

namespace {

using namespace lvt_lab;
using testing::ElementsAre;
using testing::HasSubstr;
using namespace std::chrono_literals;

// ---- cables ---------------------------------------------------------------------------------

class way : public testing::Test {
protected:
    moment_t now = moment_t() + 1h;
    way_t way_{7};

    /// Sends frames, a millisecond apart. Returns how long each arrival was under way.
    std::vector<std::chrono::microseconds> send(unsigned frames)
    {
        std::vector<std::chrono::microseconds> times;
        for (unsigned i = 0; i < frames; i++, now += 1ms) {
            const arrivals_t arrivals = way_.set_out(now);
            for (unsigned copy = 0; copy < arrivals.count; copy++)
                times.push_back(std::chrono::duration_cast<std::chrono::microseconds>(arrivals.at[copy] - now));
        }
        return times;
    }
};

TEST_F(way, delays_each_frame_as_it_is_told)
{
    EXPECT_THAT(send(3), ElementsAre(1ms, 1ms, 1ms));
    way_.quality.delay = 20ms;
    EXPECT_THAT(send(3), ElementsAre(20ms, 20ms, 20ms));
    way_.quality.delay = 0ms;
    EXPECT_THAT(send(1), ElementsAre(19ms)) << "frames keep their order";
}

TEST_F(way, loses_and_doubles_the_share_that_it_is_told)
{
    way_.quality.lost = 100'000;
    EXPECT_NEAR(static_cast<double>(send(10'000).size()), 9000, 150);
    way_.quality.lost = 0;
    way_.quality.doubled = 500'000;
    EXPECT_NEAR(static_cast<double>(send(10'000).size()), 15'000, 250);
    way_.quality.dead = true;
    EXPECT_TRUE(send(10).empty());
}

TEST_F(way, jitter_is_within_its_bounds_and_keeps_the_order)
{
    way_.quality.jitter = 5ms;
    const auto times = send(2000);
    std::chrono::microseconds least = 1h, most = 0us;
    for (size_t i = 0; i < times.size(); i++) {
        least = std::min(least, times[i]);
        most = std::max(most, times[i]);
        if (i) {
            EXPECT_GE(times[i] + 1ms, times[i - 1]);
        }
    }
    EXPECT_GE(least, 1ms);
    EXPECT_LE(most, 6ms);
    EXPECT_GT(most - least, 3ms);
}

TEST_F(way, the_same_seed_is_the_same_way)
{
    way_.quality = {.delay = 1ms, .jitter = 3ms, .lost = 200'000, .doubled = 100'000};
    way_t other(7), third(8);
    other.quality = third.quality = way_.quality;
    unsigned same = 0;
    for (unsigned i = 0; i < 200; i++, now += 1ms) {
        const arrivals_t a = way_.set_out(now), b = other.set_out(now), c = third.set_out(now);
        EXPECT_EQ(a.count, b.count);
        EXPECT_EQ(a.at[0], b.at[0]);
        same += a.at[0] == c.at[0];
    }
    EXPECT_LT(same, 100u);
}

// ---- pings --------------------------------------------------------------------------------------

/// Two hosts, joined by a cable that can be cut.
struct pinged_t {
    bool cut = false;
    std::vector<double> back;
    prober_t *prober = nullptr;

    prober_t make()
    {
        return prober_t(
            {{"h1", "02:00:00:00:01:00", 0, 1}, {"h2", "02:00:00:00:02:00", 1, 1}},
            [this](size_t cable, unsigned, std::span<const uint8_t> frame) {
                if (!cut) {
                    EXPECT_TRUE(prober->arrived(1 - cable, 1, frame));
                }
            },
            [this](const prober_t::result_t &, double ms) { back.push_back(ms); });
    }

    void wait_until_back() const
    {
        for (int i = 0; i < 500 && back.empty(); i++)
            std::this_thread::sleep_for(10ms);
    }
};

TEST(prober, tells_how_long_hosts_were_apart)
{
    pinged_t net;
    prober_t prober = net.make();
    net.prober = &prober;
    prober.begin();
    net.cut = true;
    std::this_thread::sleep_for(200ms);
    net.cut = false;
    net.wait_until_back();
    const auto results = prober.end();
    ASSERT_EQ(results.size(), 1u);
    EXPECT_TRUE(results[0].before);
    EXPECT_TRUE(results[0].reached);
    EXPECT_FALSE(results[0].apart);
    ASSERT_EQ(net.back.size(), 1u);
    EXPECT_EQ(results[0].longest_ms, net.back[0]);
    EXPECT_GE(net.back[0], 150);
    EXPECT_FALSE(prober.runs());
}

TEST(prober, counts_from_the_first_ping_for_hosts_that_were_apart_before)
{
    pinged_t net;
    prober_t prober = net.make();
    net.prober = &prober;
    net.cut = true;
    prober.begin();
    std::this_thread::sleep_for(100ms);
    net.cut = false;
    net.wait_until_back();
    const auto results = prober.end();
    EXPECT_FALSE(results.at(0).before);
    EXPECT_TRUE(results[0].reached);
    ASSERT_EQ(net.back.size(), 1u);
    EXPECT_EQ(results[0].longest_ms, net.back[0]);
    EXPECT_GE(net.back[0], 120);
}

TEST(prober, counts_anew_for_several_who_begin_at_once)
{
    pinged_t net;
    prober_t prober = net.make();
    net.prober = &prober;
    {
        std::vector<std::jthread> commands;
        for (int i = 0; i < 8; i++)
            commands.emplace_back([&] {
                for (int j = 0; j < 5; j++)
                    prober.begin();
            });
    }
    EXPECT_TRUE(prober.end().at(0).before);
    EXPECT_TRUE(prober.end().empty());
}

TEST(prober, waits_for_answers_that_are_late)
{
    pinged_t net;
    prober_t prober = net.make();
    net.prober = &prober;
    prober.begin();
    EXPECT_FALSE(prober.is_in_doubt());
    net.cut = true;
    for (int i = 0; i < 100 && !prober.is_in_doubt(); i++)
        std::this_thread::sleep_for(5ms);
    EXPECT_TRUE(prober.is_in_doubt());
    EXPECT_FALSE(prober.end().at(0).apart);
}

TEST(prober, tells_of_hosts_that_do_not_reach_each_other)
{
    pinged_t net;
    prober_t prober = net.make();
    net.prober = &prober;
    net.cut = true;
    prober.begin();
    EXPECT_FALSE(prober.end().at(0).reached);
    net.cut = false;
    prober.begin();
    net.cut = true;
    std::this_thread::sleep_for(600ms);
    const auto results = prober.end();
    EXPECT_TRUE(results.at(0).reached);
    EXPECT_TRUE(results.at(0).apart);
    const std::vector<uint8_t> other(60);
    EXPECT_FALSE(prober.arrived(0, 1, other)) << "what is no ping goes on its way";
}

// ---- the view ------------------------------------------------------------------------------------

end_view_t end_of_switch(const std::string &node, unsigned port, const std::string &role, const std::string &state)
{
    end_view_t end;
    end.name = node + ":" + std::to_string(port);
    end.node = node;
    end.port = port;
    end.link = true;
    end.role = role;
    end.state = state;
    end.cost = 8000;
    return end;
}

node_view_t switch_view(unsigned number, bool is_root)
{
    node_view_t node;
    node.name = "sw" + std::to_string(number);
    node.kind = "switch";
    node.bridge = "32768/02:00:00:00:0" + std::to_string(number) + ":00";
    node.root = "32768/02:00:00:00:01:00";
    node.is_root = is_root;
    return node;
}

claim_t claim(unsigned bridge, uint32_t cost, unsigned port)
{
    return {.type = "RST",
            .root = "32768/02:00:00:00:01:00",
            .cost = cost,
            .bridge = "32768/02:00:00:00:0" + std::to_string(bridge) + ":00",
            .port = 0x8000 + port};
}

/// Three switches in a ring and a host: sw3 cuts the cable to sw2.
lab_view_t ring()
{
    lab_view_t view;
    view.lab = "ring-3";
    view.network = "ring 3";
    view.at_rest = true;
    view.nodes = {switch_view(1, true), switch_view(2, false), switch_view(3, false)};
    node_view_t host;
    host.name = "h1";
    host.kind = "host";
    host.bridge = "10.0.0.1";
    view.nodes.push_back(host);
    const auto cable = [&](const end_view_t &a, const end_view_t &b, bool carries) {
        view.cables.push_back({a.name + "-" + b.name, true, carries, {a, b}});
    };
    cable(end_of_switch("sw1", 1, "designated", "forwarding"), end_of_switch("sw2", 2, "root", "forwarding"), true);
    cable(end_of_switch("sw2", 1, "designated", "forwarding"), end_of_switch("sw3", 2, "alternate", "discarding"),
          false);
    cable(end_of_switch("sw3", 1, "root", "forwarding"), end_of_switch("sw1", 2, "designated", "forwarding"), true);
    end_view_t eth0;
    eth0.name = eth0.node = "h1";
    eth0.port = 1;
    eth0.link = true;
    cable(end_of_switch("sw1", 6, "designated", "forwarding"), eth0, true);
    view.cables[0].ends[0].claim = claim(1, 0, 1);
    view.cables[1].ends[0].claim = claim(2, 8000, 1);
    view.cables[2].ends[1].claim = claim(1, 0, 2);
    return view;
}

TEST(view, goes_through_json_unchanged)
{
    lab_view_t view = ring();
    view.cables[0].ends[0].frames = 12;
    view.cables[0].ends[1].quality = "loss 10%";
    const nlohmann::json told = to_json(view);
    EXPECT_EQ(to_json(view_of(told)), told);
    EXPECT_EQ(told["cables"][0]["ends"][0]["claim"]["cost"], 0);
    EXPECT_EQ(told["nodes"][0]["is_root"], true);
    EXPECT_EQ(view.end("sw2:1")->node, "sw2");
    EXPECT_EQ(view.node("sw9"), nullptr);
    const event_t event = {.number = 3, .ms = 1.5, .what = "state", .node = "sw1", .port = 2, .value = "learning"};
    EXPECT_EQ(to_json(event_of(to_json(event))), to_json(event));
}

TEST(tree, has_the_root_on_top_and_cut_cables_dashed)
{
    EXPECT_EQ(tree_text(ring()),
              "sw1, the root  32768/02:00:00:00:01:00\n"
              "|-- sw2           1 designated --- 2 root\n"
              "|   ` - to sw3    1 designated - - 2 alternate, discards\n"
              "|-- sw3           2 designated --- 1 root\n"
              "`-- h1  10.0.0.1  6 designated ---\n");
}

TEST(tree, tells_of_pulled_cables_power_and_daemons)
{
    lab_view_t view = ring();
    view.cables[0].plugged = view.cables[0].carries = false;
    view.nodes[1].power = view.nodes[1].daemon = false;
    view.nodes[2].daemon = false;
    const std::string text = tree_text(view);
    EXPECT_THAT(text, HasSubstr("\nsw2, no power\n"));
    EXPECT_THAT(text, HasSubstr("-- sw3, no daemon "));
    EXPECT_THAT(text, HasSubstr("\npulled out: sw1:1-sw2:2\n"));
}

TEST(tree, shows_every_node_once_while_roles_make_no_tree)
{
    lab_view_t view = ring();
    for (cable_view_t &cable : view.cables)
        for (end_view_t &end : cable.ends)
            end.role = end.state.empty() ? "" : "root";
    for (node_view_t &node : view.nodes)
        node.is_root = false;
    const std::string text = tree_text(view);
    for (const char *name : {"sw1", "sw2", "sw3", "h1"}) {
        const size_t at = text.find(name);
        ASSERT_NE(at, std::string::npos) << text;
        EXPECT_EQ(text.find(name, at + 1), std::string::npos) << text;
    }
}

TEST(table, has_a_row_for_each_port_with_a_cable)
{
    const std::string text = show_text(ring(), false, 0);
    EXPECT_EQ(std::count(text.begin(), text.end(), '\n'), 8 + 1);
    EXPECT_THAT(text, HasSubstr("alternate   discards"));
    EXPECT_THAT(text, HasSubstr("sw1   itself"));
}

TEST(rest, is_when_all_know_the_root_and_forward_as_they_should)
{
    EXPECT_TRUE(rests(ring()));
    lab_view_t view = ring();
    view.cables[0].ends[1].state = "learning";
    EXPECT_FALSE(rests(view));
    view = ring();
    view.nodes[2].root = view.nodes[2].bridge;
    EXPECT_FALSE(rests(view));
    view = ring();
    view.cables[0].ends[1].role.clear();
    EXPECT_FALSE(rests(view)) << "nobody has told yet";
    view = ring();
    view.nodes[0].is_root = false;
    for (node_view_t &node : view.nodes)
        node.root = "32768/02:00:00:00:09:00";
    EXPECT_FALSE(rests(view)) << "the root that all know is not there";
    view = ring();
    for (cable_view_t &cable : view.cables)
        cable.plugged = false;
    EXPECT_FALSE(rests(view)) << "sw2 is apart from its root";
}

// ---- reasons ----------------------------------------------------------------------------------------

TEST(why, tells_the_end_that_cuts_and_the_better_path)
{
    const lab_view_t view = ring();
    EXPECT_EQ(why_text(view, view.cables[1]),
              "sw3:2 cuts it: the port is alternate and discards.\n"
              "  there it hears of sw2:1:    the root is sw1, at cost 8000 from sw2\n"
              "  at sw3:1 of sw1:2:    sw1 is the root\n"
              "The way through sw3:1 is the better one: it costs 0 + 8000 = 8000, and the other 8000 + 8000 = 16000.\n"
              "And sw2:1 is better on the cable itself: from both ends the root costs 8000, and sw2 has the lower "
              "identifier, 32768/02:00:00:00:02:00 before 32768/02:00:00:00:03:00.\n");
    EXPECT_EQ(why_text(view, view.cables[0]),
              "Nobody cuts sw1:1-sw2:2: it carries data.\n"
              "It is the way of sw2 to the root: sw2:2 hears of sw1:1: sw1 is the root, and adds 8000.\n");
}

TEST(why, tells_of_ports_that_wait_and_cables_without_link)
{
    lab_view_t view = ring();
    view.cables[0].ends[0].state = "learning";
    EXPECT_THAT(why_text(view, view.cables[0]),
                HasSubstr("sw1:1 cuts it: the port is designated and learns.\nNot for long"));
    view.nodes[0].power = false;
    EXPECT_EQ(why_text(view, view.cables[0]), "sw1 has no power.\n");
    view.cables[0].plugged = false;
    EXPECT_EQ(why_text(view, view.cables[0]), "The cable sw1:1-sw2:2 is pulled out.\n");
}

// ---- scripts -------------------------------------------------------------------------------------------

using words_t = std::vector<std::string>;

TEST(script, words_are_parted_by_blanks_and_kept_by_quotes)
{
    EXPECT_EQ(split_words("  exec sw1 -- sh -c 'a  b' \"\" x\"y z\" # no more"),
              (words_t{"exec", "sw1", "--", "sh", "-c", "a  b", "", "xy z"}));
    EXPECT_EQ(split_words("# nothing"), words_t());
    EXPECT_EQ(split_words("a#b"), words_t{"a#b"});
    EXPECT_EQ(split_words("exec 'a"), std::nullopt);
}

TEST(script, is_read_line_by_line)
{
    const auto steps =
        parse_script("up ring 4\n\n# a line of words\nwait 2s\nexpect root is sw1 within 20s\nexpect rest\n", "x.lab");
    ASSERT_EQ(steps.size(), 4u);
    EXPECT_EQ(steps[0].kind, step_t::kind_t::COMMAND);
    EXPECT_EQ(steps[1].kind, step_t::kind_t::WAIT);
    EXPECT_EQ(steps[1].span, topology::span_t(2s));
    EXPECT_EQ(steps[2].words, (words_t{"root", "is", "sw1"}));
    EXPECT_EQ(steps[2].span, topology::span_t(20s));
    EXPECT_EQ(steps[2].line, 5u);
    EXPECT_EQ(steps[3].span, topology::span_t(90s));
}

TEST(script, tells_all_its_faults_with_their_lines)
{
    try {
        parse_script("wait long\nexpect sunshine\nexpect rest within x\nexec 'a\nrun other.lab\n", "x.lab");
        FAIL();
    } catch (const faults_t &faults) {
        EXPECT_THAT(faults.what(), HasSubstr("x.lab:1: after wait should be a time"));
        EXPECT_THAT(faults.what(),
                    HasSubstr("\nx.lab:2: \"sunshine\" cannot be expected: known are rest; root is NODE;"));
        EXPECT_THAT(faults.what(), HasSubstr("\nx.lab:3: after within should be a time"));
        EXPECT_THAT(faults.what(), HasSubstr("\nx.lab:4: a quote is not closed"));
        EXPECT_THAT(faults.what(), HasSubstr("\nx.lab:5: a script runs no other one"));
    }
}

TEST(script, holds_expectations_against_the_network)
{
    lab_view_t view = ring();
    const auto wrong = [&](const std::string &text) { return what_is_wrong(*split_words(text), view).value_or(""); };
    for (const char *so : {"rest", "root is sw1", "root is 1", "sw3:2 is alternate", "3:2 discards", "sw1:1 forwards",
                           "1-2 carries", "2-3 is cut"})
        EXPECT_EQ(wrong(so), "") << so;
    view.at_rest = false;
    EXPECT_EQ(wrong("rest"), "the network is not at rest");
    EXPECT_EQ(wrong("root is sw2"), "sw1 takes 32768/02:00:00:00:01:00 for the root");
    EXPECT_EQ(wrong("sw3:2 is root"), "sw3:2 is alternate, discarding");
    EXPECT_EQ(wrong("sw3:2 forwards"), "sw3:2 is alternate, discarding");
    EXPECT_EQ(wrong("2-3 carries"), "the cable sw2:1-sw3:2 is cut");
    EXPECT_EQ(wrong("1-2 is pulled"), "the cable sw1:1-sw2:2 carries");
    EXPECT_EQ(wrong("sw2 has no power"), "sw2 has power");
    EXPECT_EQ(wrong("sw2 has no daemon"), "the daemon of sw2 runs");
    view.nodes[1].daemon = false;
    EXPECT_EQ(wrong("sw2 has no daemon"), "");
    EXPECT_THROW(wrong("root is sw7"), refused_t);
    EXPECT_THROW(wrong("1-h7 carries"), refused_t);
    EXPECT_THROW(wrong("sw1:5 forwards"), refused_t);
}

// ---- the journal --------------------------------------------------------------------------------------

TEST(journal, gives_events_after_a_number_and_waits_for_more)
{
    journal_t journal;
    EXPECT_EQ(journal.last(), 0u);
    EXPECT_TRUE(journal.after(0).empty());
    EXPECT_EQ(journal.add({.what = "link", .text = "a"}), 1u);
    EXPECT_EQ(journal.add({.what = "link", .text = "b"}), 2u);
    const auto events = journal.after(1);
    ASSERT_EQ(events.size(), 1u);
    EXPECT_EQ(events[0].text, "b");
    EXPECT_GT(events[0].unix_ms, 0);
    std::thread later([&] { journal.add({.what = "state", .text = "c"}); });
    EXPECT_EQ(journal.after(2, 10s).at(0).text, "c");
    later.join();
}

} // namespace
