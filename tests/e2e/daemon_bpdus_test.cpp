// BPDUs as bad neighbours send them: through the control pipe, and over a cable through the chip's trap.
#include <csignal>
#include <functional>

#include <fmt/format.h>
#include <gmock/gmock.h>
#include <nlohmann/json.hpp>
#include <sys/socket.h>

#include "board/lab/cable.h"
#include "bpdus.h"
#include "daemon_support.h"
#include "fixture.h"
#include "tools/messages.h"

namespace {

using namespace e2e;
using octets_t = std::vector<uint8_t>;

class daemon_bpdus : public switches_test_t {
protected:
    void SetUp() override { device.start(); }

    /// Ports 1, 3 and 6 take part and have link; port 3 has heard of a better bridge.
    void take_part()
    {
        serve(device, port_status_message(linked({1, 3, 6})));
        serve(device, port_config_message(enabled({1, 3, 6})));
        hear(device, 3, superior_bpdu());
        ASSERT_TRUE(status_within(device, SOON,
                                  [](const lab::bridge_status_t &status) { return status.port(3).role == ROLE_ROOT; }));
    }

    lab::switch_t &device = add_switch();
};

struct malformed_t {
    const char *what;
    std::function<octets_t()> frame;
};

octets_t with(bpdu_t bpdu, size_t offset, uint8_t value)
{
    octets_t frame = octets_of(bpdu, sizeof bpdu);
    frame.at(offset) = value;
    return frame;
}

octets_t cut(const bpdu_t &bpdu, size_t octets) { return octets_of(bpdu, octets); }

const bpdu_t RST = superior_bpdu();
const bpdu_t CONFIG = lab::config_bpdu(lab::root_bridge(4096, 0x99));
const bpdu_t TCN = lab::tcn_bpdu();

const malformed_t MALFORMED[] = {
    {"nothing at all", [] { return octets_t(); }},
    {"one octet", [] { return cut(RST, 1); }},
    {"addresses only", [] { return cut(RST, 12); }},
    {"half a length field", [] { return cut(RST, 13); }},
    {"ends before the LLC header", [] { return cut(RST, 14); }},
    {"ends before the BPDU type", [] { return cut(RST, 20); }},
    {"RST BPDU one octet short", [] { return cut(RST, 52); }},
    {"configuration BPDU one octet short", [] { return cut(CONFIG, 51); }},
    {"TCN BPDU one octet short", [] { return cut(TCN, 20); }},
    {"length 37, an RST BPDU", [] { return with(RST, offsetof(bpdu_t, length) + 1, 37); }},
    {"length 37, a configuration BPDU", [] { return with(CONFIG, offsetof(bpdu_t, length) + 1, 37); }},
    {"length 6, a TCN BPDU", [] { return with(TCN, offsetof(bpdu_t, length) + 1, 6); }},
    {"length 0", [] { return with(RST, offsetof(bpdu_t, length) + 1, 0); }},
    {"length beyond the end", [] { return with(RST, offsetof(bpdu_t, length) + 1, 40); }},
    {"length far beyond the end", [] { return with(RST, offsetof(bpdu_t, length), 0xFF); }},
    {"an Ethernet type for a length", [] { return with(RST, offsetof(bpdu_t, length), 0x88); }},
    {"another DSAP", [] { return with(RST, offsetof(bpdu_t, dsap), 0x43); }},
    {"another SSAP", [] { return with(RST, offsetof(bpdu_t, ssap), 0x43); }},
    {"another LLC control", [] { return with(RST, offsetof(bpdu_t, control), 0x13); }},
    {"protocol 0x0100", [] { return with(RST, offsetof(bpdu_t, protocol), 1); }},
    {"protocol 0x0001", [] { return with(RST, offsetof(bpdu_t, protocol) + 1, 1); }},
    {"an unknown type, as short as a TCN BPDU", [] { return with(TCN, offsetof(bpdu_t, type), 0x81); }},
    {"all zeros", [] { return octets_t(60, 0); }},
    {"all ones", [] { return octets_t(60, 0xFF); }},
};

TEST_F(daemon_bpdus, every_malformed_one_is_counted_at_its_port)
{
    take_part();
    const auto before = counts(device);
    const std::string status_before = ask(device, "debug show rstp_port_status 6");

    long expected = 0;
    for (const malformed_t &malformed : MALFORMED) {
        serve(device, received_message(6, malformed.frame()));
        expected++;
        ASSERT_EQ(counts(device, 6).illegal, before[5].illegal + expected) << malformed.what;
    }
    const auto after = counts(device);
    for (size_t i = 0; i < after.size(); i++) {
        EXPECT_EQ(after[i].illegal, i == 5 ? expected : 0) << i + 1;
        EXPECT_EQ(after[i].unknown, 0) << i + 1;
        EXPECT_EQ(after[i].rstp_received, before[i].rstp_received) << i + 1;
        EXPECT_EQ(after[i].stp_received + after[i].tcn_received, 0) << i + 1;
    }
    EXPECT_TRUE(is_sound(device));
    EXPECT_EQ(device.status()->port(6).illegal, static_cast<uint32_t>(expected));
    EXPECT_EQ(device.status()->port(6).role, ROLE_DESIGNATED);
}

TEST_F(daemon_bpdus, the_shortest_well_formed_ones_are_accepted)
{
    serve(device, received_message(2, cut(TCN, 21)));
    EXPECT_EQ(counts(device, 2), counts_t{.tcn_received = 1});
    serve(device, received_message(2, cut(CONFIG, 52)));
    EXPECT_EQ(counts(device, 2), (counts_t{.stp_received = 1, .tcn_received = 1}));

    // An RST BPDU without its last octet, if its length field says so.
    octets_t frame = with(RST, offsetof(bpdu_t, length) + 1, 38);
    frame.resize(52);
    serve(device, received_message(2, frame));
    EXPECT_EQ(counts(device, 2), (counts_t{.stp_received = 1, .rstp_received = 1, .tcn_received = 1}));
}

TEST_F(daemon_bpdus, unknown_types_are_counted_as_such)
{
    take_part();
    const auto before = counts(device, 1);
    long expected = 0;
    for (const uint8_t type : {0x01, 0x03, 0x7F, 0x81, 0xFF}) {
        serve(device, received_message(1, with(RST, offsetof(bpdu_t, type), type)));
        EXPECT_EQ(counts(device, 1).unknown, ++expected) << int{type};
    }
    EXPECT_EQ(counts(device, 1).rstp_received, before.rstp_received);
    EXPECT_EQ(counts(device, 1).illegal, 0);
    EXPECT_TRUE(is_sound(device));
}

TEST_F(daemon_bpdus, any_version_is_accepted)
{
    take_part();
    const long before = counts(device, 1).rstp_received;
    long heard = 0;
    for (const uint8_t version : {0, 1, 2, 3, 4, 255}) {
        serve(device, received_message(1, with(RST, offsetof(bpdu_t, version), version)));
        EXPECT_EQ(counts(device, 1).rstp_received, before + ++heard) << int{version};
        serve(device, received_message(6, with(CONFIG, offsetof(bpdu_t, version), version)));
        EXPECT_EQ(counts(device, 6).stp_received, heard) << int{version};
    }
    EXPECT_TRUE(is_sound(device));
}

/// What a BPDU may say although it is well formed.
struct odd_t {
    const char *what;
    std::function<void(bpdu_t &)> say;
};

void say_times(bpdu_t &bpdu, uint8_t message_age, uint8_t max_age, uint8_t hello_time, uint8_t forward_delay)
{
    bpdu.message_age[0] = message_age;
    bpdu.max_age[0] = max_age;
    bpdu.hello_time[0] = hello_time;
    bpdu.forward_delay[0] = forward_delay;
}

void say_bridge(uint8_t (&priority)[2], uint8_t (&address)[6], const bridge_id_t &id)
{
    bpdu_put16(priority, id.prio);
    std::copy(std::begin(id.addr), std::end(id.addr), address);
}

/// That of the first switch of a test.
const bridge_id_t OUR_OWN = {32768, {0x02, 0, 0, 0, 1, 0}};

const odd_t ODD[] = {
    {"hello time 0", [](bpdu_t &b) { say_times(b, 0, 20, 0, 15); }},
    {"all times 0", [](bpdu_t &b) { say_times(b, 0, 0, 0, 0); }},
    {"all times 255", [](bpdu_t &b) { say_times(b, 255, 255, 255, 255); }},
    {"message age equals max age", [](bpdu_t &b) { say_times(b, 20, 20, 2, 15); }},
    {"message age beyond max age", [](bpdu_t &b) { say_times(b, 40, 20, 2, 15); }},
    {"max age 0, age 255", [](bpdu_t &b) { say_times(b, 255, 0, 1, 1); }},
    {"fractions of seconds",
     [](bpdu_t &b) { b.message_age[1] = b.max_age[1] = b.hello_time[1] = b.forward_delay[1] = 255; }},
    {"our own bridge as sender", [](bpdu_t &b) { say_bridge(b.bridge_priority, b.bridge_address, OUR_OWN); }},
    {"our own bridge as root", [](bpdu_t &b) { say_bridge(b.root_priority, b.root_address, OUR_OWN); }},
    {"our own bridge as both",
     [](bpdu_t &b) {
         say_bridge(b.root_priority, b.root_address, OUR_OWN);
         say_bridge(b.bridge_priority, b.bridge_address, OUR_OWN);
     }},
    {"our own port",
     [](bpdu_t &b) {
         say_bridge(b.root_priority, b.root_address, OUR_OWN);
         say_bridge(b.bridge_priority, b.bridge_address, OUR_OWN);
         bpdu_put16(b.port_id, 0x8003);
     }},
    {"the highest cost", [](bpdu_t &b) { bpdu_put32(b.root_path_cost, 0xFFFFFFFF); }},
    {"port identifier 0", [](bpdu_t &b) { bpdu_put16(b.port_id, 0); }},
    {"all flags", [](bpdu_t &b) { b.flags = 0xFF; }},
    {"no flags", [](bpdu_t &b) { b.flags = 0; }},
    {"a version 1 length", [](bpdu_t &b) { b.version_1_length = 255; }},
    {"everything 0", [](bpdu_t &b) { std::fill(&b.flags, reinterpret_cast<uint8_t *>(&b) + sizeof b, uint8_t{0}); }},
    {"everything 255",
     [](bpdu_t &b) { std::fill(&b.flags, reinterpret_cast<uint8_t *>(&b) + sizeof b, uint8_t{255}); }},
};

TEST_F(daemon_bpdus, whatever_a_well_formed_one_says_the_daemon_goes_on)
{
    take_part();
    int said = 0;
    for (const odd_t &odd : ODD) {
        SCOPED_TRACE(odd.what);
        for (const bpdu_t &usual : {RST, CONFIG}) {
            bpdu_t bpdu = usual;
            odd.say(bpdu);
            for (const unsigned port : {3, 1, 6, 5})
                hear(device, port, bpdu);
        }
        ASSERT_TRUE(device.daemon().running());
        if (++said % 3 == 0) { // over a tick, where timers end
            ASSERT_TRUE(is_sound(device));
        }
    }
    EXPECT_TRUE(ticks(device, 2));
    EXPECT_EQ(counts(device, 3).illegal, 0);
}

TEST_F(daemon_bpdus, a_hello_time_of_0_does_not_stop_the_hellos)
{
    serve(device, port_status_message(linked({1, 3})));
    serve(device, port_config_message(enabled({1, 3})));
    lvt_rstp_system_config_t config = LVT_RSTP_SYSTEM_DEFAULTS;
    config.hello_time = 256; // kept to eight bits
    serve(device, system_config_message(config));
    ASSERT_TRUE(status_within(device, SOON, [](const lab::bridge_status_t &status) { return status.hello_time == 0; }));
    const long before = counts(device, 1).rstp_sent;
    EXPECT_TRUE(eventually(
        SOON, [&] { return counts(device, 1).rstp_sent; }, Ge(before + 3)));
    EXPECT_TRUE(is_sound(device));
}

TEST_F(daemon_bpdus, expired_information_is_not_believed)
{
    take_part();
    bpdu_t bpdu = lab::rst_bpdu(lab::root_bridge(0, 0x01));
    say_times(bpdu, 6, 6, 1, 4);
    hear(device, 1, bpdu);
    bpdu_t believed = superior_bpdu();
    say_times(believed, 0, 20, 2, 15); // for six seconds
    hear(device, 3, believed);
    EXPECT_TRUE(ticks(device, 2));
    EXPECT_EQ(lab::bridge_id_text(device.status()->root), "4096/02:00:00:00:99:00");
    EXPECT_EQ(counts(device, 1).rstp_received, 1);
}

TEST_F(daemon_bpdus, our_own_bpdu_comes_back)
{
    // A loop behind port 6: the better of the two ends stays designated, the other one backs it up.
    serve(device, port_status_message(linked({1, 6})));
    serve(device, port_config_message(enabled({1, 6})));
    ASSERT_TRUE(ticks(device, 3));
    hear(device, 6, lab::rst_bpdu({.root = OUR_OWN, .cost = 0, .bridge = OUR_OWN}));
    ASSERT_TRUE(status_within(device, SOON,
                              [](const lab::bridge_status_t &status) { return status.port(6).role == ROLE_BACKUP; }));
    EXPECT_EQ(device.status()->port(1).role, ROLE_DESIGNATED);
    EXPECT_TRUE(device.status()->is_root());
}

// ---- over a cable -----------------------------------------------------------------------------

/// A machine at front port 5 that sends what it likes.
class daemon_bpdus_over_a_cable : public daemon_bpdus {
protected:
    void SetUp() override
    {
        daemon_bpdus::SetUp();
        serve(device, port_config_message(enabled({5})));
        ASSERT_TRUE(lab::within(SOON, [&] { return device.client().port(5).link; }));
        serve_all(device);
    }

    void send(octets_t frame) const
    {
        ASSERT_EQ(::send(wire.number(), frame.data(), frame.size(), MSG_DONTWAIT), static_cast<ssize_t>(frame.size()));
    }

    testing::AssertionResult counted(const counts_t &wanted) const
    {
        const auto received = [&] {
            counts_t c = counts(device, 5);
            c.stp_sent = c.rstp_sent = c.tcn_sent = 0;
            return c;
        };
        return eventually(SOON, received, wanted);
    }

    lab::node_t far{"far", 100};
    lab::cable_t cable{device.port(5), {&far, "eth0", far.mac()}};
    fd_t wire = far.packet_socket("eth0");
};

TEST_F(daemon_bpdus_over_a_cable, every_kind_is_counted)
{
    send(octets_of(RST, 60));
    EXPECT_TRUE(counted({.rstp_received = 1}));
    send(octets_of(CONFIG, 60));
    EXPECT_TRUE(counted({.stp_received = 1, .rstp_received = 1}));
    send(octets_of(TCN, 60));
    EXPECT_TRUE(counted({.stp_received = 1, .rstp_received = 1, .tcn_received = 1}));
    send(with(RST, offsetof(bpdu_t, type), 0x03));
    EXPECT_TRUE(counted({.stp_received = 1, .rstp_received = 1, .tcn_received = 1, .unknown = 1}));
    send(with(RST, offsetof(bpdu_t, dsap), 0x43));
    EXPECT_TRUE(counted({.stp_received = 1, .rstp_received = 1, .tcn_received = 1, .unknown = 1, .illegal = 1}));
}

TEST_F(daemon_bpdus_over_a_cable, frames_of_1500_octets)
{
    octets_t frame = octets_of(RST, 1514); // with addresses and length field
    send(frame);
    EXPECT_TRUE(counted({.rstp_received = 1}));

    constexpr size_t LENGTH = offsetof(bpdu_t, length);
    bpdu_put16(&frame[LENGTH], 1500);
    send(frame);
    EXPECT_TRUE(counted({.rstp_received = 2}));

    frame[LENGTH + 1]++;
    send(frame);
    EXPECT_TRUE(counted({.rstp_received = 2, .illegal = 1}));
    EXPECT_TRUE(is_sound(device));
}

TEST_F(daemon_bpdus_over_a_cable, every_malformed_one_is_counted)
{
    // A cable carries no frame below 14 octets, and fills short ones up to 60.
    long expected = 0;
    for (const malformed_t &malformed : MALFORMED) {
        octets_t frame = malformed.frame();
        if (frame.size() < 50)
            continue;
        frame.resize(std::max<size_t>(frame.size(), 60), 0);
        std::copy(std::begin(lvt_rstp_slowmac), std::end(lvt_rstp_slowmac), frame.begin());
        const size_t stated = BPDU_ETHERNET_OCTETS + bpdu_get16(read_bpdu(frame).length);
        const bool filled_up = stated > malformed.frame().size() && stated <= 60;
        if (filled_up)
            continue; // the filling makes it well formed
        send(frame);
        EXPECT_TRUE(counted({.illegal = ++expected})) << malformed.what;
    }
    EXPECT_GE(expected, 10);
    EXPECT_TRUE(is_sound(device));
}

TEST_F(daemon_bpdus_over_a_cable, more_than_the_pipe_holds_while_the_daemon_stands_still)
{
    const auto board = [&](const char *counter) {
        return device.client().show("counters").at("board").at(counter).get<long>();
    };
    device.daemon().signal(SIGSTOP);
    const auto lost = [&] {
        for (int i = 0; i < 100; i++)
            send(octets_of(i % 2 ? RST : CONFIG, 60));
        return board("bpdus_lost");
    };
    ASSERT_TRUE(eventually(30s, lost, Gt(0)));
    device.daemon().signal(SIGCONT);

    // What did not fit is lost; all the rest is served.
    const auto served_and_handed_on = [&] {
        const counts_t c = counts(device, 5);
        return std::tuple(c.rstp_received + c.stp_received, board("bpdus"));
    };
    ASSERT_TRUE(eventually(SOON, served_and_handed_on, testing::Eq()));
    EXPECT_GT(board("bpdus"), 500);
    EXPECT_EQ(counts(device, 5).illegal, 0);
    EXPECT_TRUE(is_sound(device));
}

} // namespace
