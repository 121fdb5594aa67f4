// Sent BPDUs, octet for octet, and what keeps one from being sent.
#include "engine_table.h"

namespace {

class bpdu : public machine_test {
protected:
    bpdu()
    {
        const bridge_id_t root = {0x1000, {0x02, 0, 0, 0, 0, 0x11}};
        const bridge_id_t self = {0x8000, {0x02, 0, 0, 0, 0, 0x01}};
        STP_VECT_create(&port->designatedPrio, &root, 20000, &self, 0x8002, 0x8002);
        port->designatedTimes = {.MessageAge = 1, .MaxAge = 20, .ForwardDelay = 15, .HelloTime = 2};
        port->selectedRole = ROLE_DESIGNATED;
        bridge->vlan_id = 77;
    }

    void send(rstpstate_t state, port_t *from = nullptr)
    {
        port_t *sender = from ? from : port;
        sender->transmit.State = state;
        STP_transmit_enter_state(&sender->transmit);
    }

    std::string sent_hex()
    {
        EXPECT_EQ(world.sent.size(), 1u);
        return world.sent.empty() ? "" : hex(world.sent.back().octets);
    }

    void expect_nothing_sent_but_counted()
    {
        EXPECT_TRUE(world.sent.empty());
        EXPECT_EQ(port->txCount, 3);
        EXPECT_EQ(port->newInfo, 0);
    }
};

// ---- whole frames -----------------------------------------------------------------------

TEST_F(bpdu, rst_frame)
{
    port->learning = port->forwarding = 1;
    send(TRANSMIT_RSTP);
    EXPECT_EQ(sent_hex(),
              "01 80 c2 00 00 00 02 00 00 00 02 01 00 27 42 42 03 "
              "00 00 02 02 3c "
              "10 00 02 00 00 00 00 11 00 00 4e 20 80 00 02 00 00 00 00 01 80 02 "
              "01 00 14 00 02 00 0f 00 00");
}

TEST_F(bpdu, configuration_frame)
{
    send(TRANSMIT_CONFIG);
    EXPECT_EQ(sent_hex(),
              "01 80 c2 00 00 00 02 00 00 00 02 01 00 26 42 42 03 "
              "00 00 00 00 00 "
              "10 00 02 00 00 00 00 11 00 00 4e 20 80 00 02 00 00 00 00 01 80 02 "
              "01 00 14 00 02 00 0f 00");
}

TEST_F(bpdu, topology_change_notification_frame)
{
    send(TRANSMIT_TCN);
    EXPECT_EQ(sent_hex(), "01 80 c2 00 00 00 02 00 00 00 02 01 00 07 42 42 03 00 00 00 80");
}

TEST_F(bpdu, extreme_values)
{
    const bridge_id_t ones = {0xFFFF, {0xFF, 0xFE, 0xFD, 0xFC, 0xFB, 0xFA}};
    STP_VECT_create(&port->designatedPrio, &ones, 0xFFFEFDFC, &ones, 0x1FFFF, 0);
    port->designatedTimes = {255, 254, 253, 252};
    send(TRANSMIT_CONFIG);
    EXPECT_EQ(sent_hex().substr(21 * 3),
              "00 ff ff ff fe fd fc fb fa ff fe fd fc ff ff ff fe fd fc fb fa ff ff "
              "ff 00 fe 00 fc 00 fd 00");
}

TEST_F(bpdu, goes_to_the_port_and_vlan_of_its_bridge_untagged)
{
    send(TRANSMIT_RSTP);
    ASSERT_EQ(world.sent.size(), 1u);
    EXPECT_EQ(world.sent[0].port, 2u);
    EXPECT_EQ(world.sent[0].vlan_id, 77);
    EXPECT_EQ(world.sent[0].tag, 0);
}

TEST_F(bpdu, the_bench_writes_frames_that_the_engine_could_have_sent)
{
    port->forwarding = port->learning = port->tcWhile = 1;
    send(TRANSMIT_RSTP);
    octets_t expected = frame_of({.flags = 0x3D,
                                  .root = port->designatedPrio.root_bridge,
                                  .cost = 20000,
                                  .bridge = port->designatedPrio.design_bridge,
                                  .port_id = 0x8002,
                                  .times = port->designatedTimes});
    std::copy(port->mac, port->mac + 6, expected.begin() + 6);
    EXPECT_EQ(sent_hex(), hex(expected));
}

// ---- flags ------------------------------------------------------------------------------

struct flags_row_t {
    const char *label;
    rstpstate_t state;
    change_t given;
    unsigned flags;
};

std::ostream &operator<<(std::ostream &out, const flags_row_t &row) { return out << row.label; }

void everything(port_t *p)
{
    p->learning = p->forwarding = p->synced = p->proposing = p->tcAck = 1;
    p->agreed = p->proposed = p->tc = p->sync = 1;
    p->tcWhile = 4;
}

const flags_row_t flags_rows[] = {
    {"rst role disabled", TRANSMIT_RSTP, [](port_t *p) { p->selectedRole = ROLE_DISABLED; }, 0x00},
    {"rst role alternate", TRANSMIT_RSTP, [](port_t *p) { p->selectedRole = ROLE_ALTERNATE; }, 0x04},
    {"rst role backup", TRANSMIT_RSTP, [](port_t *p) { p->selectedRole = ROLE_BACKUP; }, 0x04},
    {"rst role root", TRANSMIT_RSTP, [](port_t *p) { p->selectedRole = ROLE_ROOT; }, 0x08},
    {"rst role designated", TRANSMIT_RSTP, [](port_t *p) { p->selectedRole = ROLE_DESIGNATED; }, 0x0C},
    {"rst role is the selected one", TRANSMIT_RSTP,
     [](port_t *p) { p->role = ROLE_DESIGNATED, p->selectedRole = ROLE_DISABLED; }, 0x00},
    {"rst topology change", TRANSMIT_RSTP, [](port_t *p) { p->tcWhile = 1; }, 0x0D},
    {"rst proposal", TRANSMIT_RSTP, [](port_t *p) { p->proposing = 1; }, 0x0E},
    {"rst learning", TRANSMIT_RSTP, [](port_t *p) { p->learning = 1; }, 0x1C},
    {"rst forwarding", TRANSMIT_RSTP, [](port_t *p) { p->forwarding = 1; }, 0x2C},
    {"rst agreement", TRANSMIT_RSTP, [](port_t *p) { p->synced = 1; }, 0x4C},
    {"rst never acknowledges", TRANSMIT_RSTP, [](port_t *p) { p->tcAck = 1; }, 0x0C},
    {"rst requests to learn and forward are not told", TRANSMIT_RSTP, [](port_t *p) { p->learn = p->forward = 1; },
     0x0C},
    {"rst everything", TRANSMIT_RSTP, everything, 0x7F},
    {"configuration topology change", TRANSMIT_CONFIG, [](port_t *p) { p->tcWhile = 255; }, 0x01},
    {"configuration acknowledgement", TRANSMIT_CONFIG, [](port_t *p) { p->tcAck = 1; }, 0x80},
    {"configuration everything", TRANSMIT_CONFIG, everything, 0x81},
};

class bpdu_flags : public bpdu, public testing::WithParamInterface<flags_row_t> {};

TEST_P(bpdu_flags, are)
{
    GetParam().given(port);
    send(GetParam().state);
    ASSERT_EQ(world.sent.size(), 1u);
    EXPECT_EQ(world.sent[0].octets[FLAGS_AT], GetParam().flags);
}

INSTANTIATE_TEST_SUITE_P(of, bpdu_flags, testing::ValuesIn(flags_rows), label_of<flags_row_t>);

using bpdu_DeathTest = bpdu;

TEST_F(bpdu_DeathTest, a_role_outside_the_tree_cannot_be_told)
{
    for (const lvt_rstp_port_role_t role : {5, 6, 255}) {
        port->selectedRole = role;
        EXPECT_DEATH(send(TRANSMIT_RSTP),
                     assertion("port->selectedRole < ((lvt_rstp_port_role_t)5)", "transmit", "txBpdu"));
    }
}

// ---- senders ----------------------------------------------------------------------------

TEST_F(bpdu, of_a_group_has_the_address_of_the_member_that_sends_it)
{
    port_t *group = port_attach(bridge, 7);
    world.sending_ports[7] = port_of(5);
    group->selectedRole = ROLE_ROOT;
    send(TRANSMIT_RSTP, group);
    ASSERT_EQ(world.sent.size(), 1u);
    EXPECT_EQ(world.sent[0].port, 7u) << "the world finds the member itself";
    EXPECT_EQ(hex(world.sent[0].octets).substr(6 * 3, 6 * 3 - 1), "02 00 00 00 05 01");
    EXPECT_EQ(world.sent[0].octets[FLAGS_AT], 0x08) << "the rest is the group's";
}

TEST_F(bpdu, of_a_group_without_members_is_not_sent)
{
    world.sending_ports[2] = nullptr;
    port->txCount = 2;
    port->newInfo = 1;
    send(TRANSMIT_RSTP);
    expect_nothing_sent_but_counted();
}

TEST_F(bpdu, without_a_buffer_is_not_sent)
{
    world.short_of_memory = true;
    port->txCount = 2;
    port->newInfo = 1;
    send(TRANSMIT_RSTP);
    expect_nothing_sent_but_counted();
}

TEST_F(bpdu, of_a_port_outside_the_tree_is_not_sent)
{
    port->nonStp = 1;
    port->selectedRole = ROLE_NON_STP;
    port->txCount = 2;
    port->newInfo = 1;
    send(TRANSMIT_RSTP);
    expect_nothing_sent_but_counted();
}

TEST_F(bpdu, that_is_lost_gives_its_buffer_back)
{
    world.send_result = -1;
    send(TRANSMIT_RSTP);
    EXPECT_EQ(world.sent.size(), 1u);
    EXPECT_EQ(world.buffers_out, 0u);
}

} // namespace

// ---- what a received frame must be ---------------------------------------------------------

TEST(bpdu_rules, each_one_counts)
{
    const octets_t rst = frame_of({}), config = frame_of({.type = 0, .version = 0, .flags = 0}), tcn = tcn_frame();
    const auto valid = [](octets_t frame, size_t length) {
        const octets_t exact(frame.begin(), frame.begin() + static_cast<ptrdiff_t>(length)); // no octet behind it
        return STP_bpdu_is_valid(exact.data(), static_cast<uint32_t>(length));
    };
    for (const octets_t &frame : {rst, config, tcn}) {
        EXPECT_TRUE(valid(frame, frame.size()));
        for (size_t length = 0; length < frame.size(); length++)
            EXPECT_FALSE(valid(frame, length)) << length << " of " << frame.size();
    }
    octets_t padded = tcn;
    padded.resize(60);
    EXPECT_TRUE(valid(padded, 60));

    const struct {
        const char *what;
        size_t at;
        uint8_t octet;
        bool valid;
    } rows[] = {
        {"destination service access point", 14, 0x43, false},
        {"source service access point", 15, 0x43, false},
        {"control", 16, 0x02, false},
        {"protocol, first octet", 17, 1, false},
        {"protocol, second octet", 18, 1, false},
        {"any version", 19, 77, true},
        {"any type", 20, 77, true},
        {"stated one short of a configuration BPDU", 13, 37, false},
        {"stated as a configuration BPDU", 13, 38, true},
        {"stated longer than what came", 13, 40, false},
        {"stated much longer", 12, 1, false},
        {"any address", 0, 0xFF, true},
    };
    for (const auto &row : rows) {
        octets_t frame = rst;
        frame[row.at] = row.octet;
        EXPECT_EQ(valid(frame, frame.size()), row.valid) << row.what;
    }
    octets_t no_bridge_service = rst;
    no_bridge_service[14] = no_bridge_service[15] = 0xAA;
    EXPECT_FALSE(valid(no_bridge_service, rst.size()));
    octets_t short_tcn = tcn;
    short_tcn[13] = 6;
    EXPECT_FALSE(valid(short_tcn, tcn.size()));
}
