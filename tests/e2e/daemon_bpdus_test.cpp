// BPDUs as bad neighbours send them: through the control pipe, and over a cable through the chip's trap.
#include <csignal>
#include <functional>

#include <fmt/format.h>
#include <gmock/gmock.h>
#include <nlohmann/json.hpp>
#include <sys/socket.h>

#include "board/lab/cable.h"
#include "daemon_support.h"
#include "fixture.h"
#include "tests/bpdus.h"
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
const bpdu_t CONFIG = config_bpdu(root_bridge(4096, 0x99));
const bpdu_t TCN = tcn_bpdu();

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
