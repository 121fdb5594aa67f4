/// Long random lives of the daemon: every kind of message, good and bad, in any order. After each
/// step all tables agree with each other and with a model of the groups; at the end the daemon is
/// treated well and must come to rest.
#include <array>
#include <cstring>
#include <optional>
#include <random>

#include "daemon_fixture.h"
#include "daemon_invariants.h"
#include "daemon/diag_out.h"
#include "tests/seed.h"

namespace {

constexpr int STEPS = 3000;

/// What a report of groups leads to, told in another way than the daemon's tables.
struct groups_model_t {
    std::array<int, 7> reported = {0, 1, 2, 3, 4, 5, 6}; ///< by port
    std::array<int, 7> stood_for = {};                   ///< by port: its group in the tree, or 0
    std::array<bool, 10> queued = {};
    std::array<std::optional<int>, 10> sender; ///< by group: the port, while it is formed
    std::array<bool, 7> in_step = {};          ///< by port: it was given the state of its group
    std::array<uint8_t, 10> state = {};        ///< by group: what was asked for it last

    void report(const aggr_status_t &status)
    {
        for (size_t port = 1; port <= 6; port++) {
            const int now = status[port] > 9 ? 0 : status[port];
            const int before = reported[port];
            reported[port] = now ? now : static_cast<int>(port);
            if (now >= 7)
                queue(now, now != before);
            else if (now > 0)
                queue(before, before >= 7);
        }
    }

    void queue(int group, bool needed)
    {
        if (needed)
            queued[static_cast<size_t>(group)] = true;
    }

    bool has_members(int group) const { return std::count(reported.begin() + 1, reported.end(), group) > 0; }

    void apply()
    {
        for (int group = 7; group <= 9; group++) {
            if (!queued[static_cast<size_t>(group)])
                continue;
            queued[static_cast<size_t>(group)] = false;
            const bool formed = sender[static_cast<size_t>(group)].has_value();
            const bool forced = record(static_cast<uint32_t>(group)).config.adminEnable == 0;
            std::optional<int> first;
            for (size_t port = 1; port <= 6; port++)
                if (reported[port] == group) {
                    stood_for[port] = group;
                    in_step[port] = formed || forced; // else when the group's state changes
                    if (!first)
                        first = static_cast<int>(port);
                } else if (stood_for[port] == group)
                    stood_for[port] = 0;
            sender[static_cast<size_t>(group)] = first;
        }
    }

    /// A new state of a group is given to all its members.
    void take_states()
    {
        for (size_t group = 7; group <= 9; group++) {
            const uint8_t now = record(static_cast<uint32_t>(group)).hw_state;
            for (size_t port = 1; port <= 6; port++)
                if (stood_for[port] == static_cast<int>(group) && now != state[group])
                    in_step[port] = true;
            state[group] = now;
        }
    }
};

class random_life : public daemon_test, public testing::WithParamInterface<unsigned> {
protected:
    const test_seed_t seed{GetParam()};
    std::mt19937 random{seed.value};
    groups_model_t model;
    uint32_t frames_given = 0;

    uint32_t below(uint32_t limit) { return static_cast<uint32_t>(random() % limit); }
    uint8_t octet() { return static_cast<uint8_t>(random()); }
    bool one_in(uint32_t n) { return below(n) == 0; }

    octets_t any_octets(size_t count)
    {
        octets_t octets(count);
        for (uint8_t &each : octets)
            each = octet();
        return octets;
    }

    /// Ours or one that is hardly another.
    bridge_id_t any_bridge()
    {
        const auto priority = static_cast<uint16_t>(below(16) << 12);
        return {priority, {0, 0x11, 0x22, 0x33, 0x44, static_cast<uint8_t>(0x4F + below(3))}};
    }

    octets_t any_bpdu()
    {
        constexpr uint8_t types[] = {0x02, 0x02, 0x02, 0x00, 0x80, 0x01};
        heard_t fields;
        fields.type = types[below(6)];
        fields.version = one_in(4) ? octet() : fields.type == 2 ? 2 : 0;
        fields.flags = octet();
        fields.root = any_bridge();
        fields.cost = below(3) * 20000;
        fields.bridge = any_bridge();
        fields.port_id = static_cast<uint16_t>(0x8000 + below(12));
        if (one_in(3)) {
            fields.times.MessageAge = octet();
            fields.times.MaxAge = octet();
            fields.times.HelloTime = octet();
            fields.times.ForwardDelay = octet();
        }
        octets_t frame = frame_of(fields);
        if (one_in(6))
            frame[12 + below(9)] = octet();
        if (one_in(6))
            frame.resize(below(80));
        return frame;
    }

    lvt_rstp_port_config_t any_port_config()
    {
        constexpr uint32_t costs[] = {0, 0, 1, 20000, 0xFFFFFFFF};
        return {.adminPathCost = costs[below(5)],
                .port_priority = static_cast<uint16_t>(below(16) << 4),
                .adminEnable = static_cast<uint8_t>(!one_in(3)),
                .adminEdge = static_cast<uint8_t>(below(2)),
                .adminPointToPoint = static_cast<uint8_t>(below(4)),
                .reserved = {}};
    }

    void change_links()
    {
        for (int i = 0; i < 2; i++) {
            rstp_port_status_t &link = links[below(6)];
            link.link = one_in(3) ? 0 : one_in(5) ? octet() : 1;
            link.speed = one_in(5) ? octet() : 2;
            link.duplex = one_in(5) ? octet() : 1;
        }
        send_links();
    }

    void change_groups()
    {
        aggr_status_t status;
        for (size_t port = 0; port < status.size(); port++) {
            constexpr uint8_t values[] = {0, 1, 6, 7, 7, 7, 8, 9, 10, 255};
            status[port] = one_in(3)   ? values[below(10)]
                           : one_in(2) ? static_cast<uint8_t>(model.reported[port])
                                       : static_cast<uint8_t>(port);
        }
        send_groups(status);
        model.report(status);
        model.apply();
    }

    void change_system()
    {
        lvt_rstp_system_config_t config = LVT_RSTP_SYSTEM_DEFAULTS;
        config.bridge_priority = static_cast<uint16_t>(below(16) << 12);
        config.force_version = static_cast<uint8_t>(one_in(3) ? below(4) : 2);
        if (one_in(3)) {
            config.hello_time = static_cast<uint16_t>(below(4) << (one_in(4) ? 8 : 0));
            config.max_age = octet();
            config.forward_delay = octet();
        }
        send_system(config);
    }

    void change_ports(uint8_t type)
    {
        std::vector<size_t> changed;
        for (uint32_t port = 1; port <= 6; port++) {
            if (!one_in(4))
                continue;
            const lvt_rstp_port_config_t before = ports[port];
            ports[port] = any_port_config();
            if (memcmp(&before, &ports[port], sizeof before) == 0)
                continue;
            changed.push_back(port);
            model.queue(model.reported[port], model.reported[port] >= 7);
        }
        send_ports(type);
        model.take_states();
        for (const size_t port : changed) // a member is asked for code 5, until its group is set up
            model.in_step[port] = false;
        if (type == RSTP_MSG_PORT_CONFIG)
            model.apply();
    }

    void change_group_settings()
    {
        send_group_settings(any_port_config());
        for (int group = 7; group <= 9; group++)
            model.queue(group, model.has_members(group));
        model.apply();
    }

    void give_frame()
    {
        const uint32_t port = 1 + below(6);
        const bool no_octets_of_its_own = one_in(8);
        send_bpdu(port, no_octets_of_its_own ? any_octets(below(120)) : any_bpdu());
        frames_given++;
    }

    void give_rubbish()
    {
        switch (below(5)) {
        case 0:
            EXPECT_EQ(control({1, 2, 3, 4, 5, 6, 7, 8}), -1);
            break;
        case 1:
            EXPECT_EQ(control(raw_message(static_cast<uint8_t>(11 + below(245)), any_octets(below(1025)))), 1);
            break;
        case 2:
            EXPECT_EQ(control(raw_message(1, any_octets(1025 + below(1000)))), -1);
            break;
        case 3:
            EXPECT_EQ(control(bpdu_message(static_cast<uint8_t>(8 + below(248)), any_bpdu())), -1);
            break;
        default:
            EXPECT_EQ(control(work_flush_message()), 1);
        }
    }

    void ask()
    {
        constexpr const char *questions[] = {"",
                                             " show system_config",
                                             " show port_config",
                                             " show bridge_status",
                                             " show rstp_statistics",
                                             " show port_status",
                                             " show aggr_status",
                                             " show rstp_aggr_status",
                                             " show rstp_stp_state",
                                             " show lacp_port_config",
                                             " bpdu_filter enable",
                                             " show rstp_port_status 1",
                                             " show rstp_port_status 7"};
        debug(std::string("debug") + questions[below(13)]);
    }

    void step()
    {
        switch (below(20)) {
        case 0:
            return change_links();
        case 1:
            return change_groups();
        case 2:
            return one_in(4) ? change_system() : change_groups();
        case 3:
            return change_ports(RSTP_MSG_PORT_CONFIG);
        case 4:
            return change_ports(RSTP_MSG_PORT_CONFIG_ONLY);
        case 5:
            return change_group_settings();
        case 6:
            return send_lacp({octet(), 0, static_cast<uint8_t>(below(2)), 0, 0, octet()});
        case 7:
            return give_rubbish();
        case 8:
            return ask();
        case 9:
            lvt_rstp_set_mcheck(1 + below(9));
            return;
        case 10:
            EXPECT_EQ(lvt_rstp_monitor_info_write(), 0);
            return;
        case 11: {
            lvt_rstp_bridge_status_t status;
            lvt_rstp_get_bridge_status(0, &status);
            return;
        }
        case 12:
        case 13:
        case 14:
        case 15:
            return give_frame();
        default:
            for (uint32_t left = 1 + (one_in(10) ? 40 : 0); left > 0; left--)
                lvt_rstp_tick();
        }
    }

    /// What is counted, against what was given and sent.
    void check_counters()
    {
        uint32_t sent = 0, received = 0;
        for (const port_t &port : lvt_rstp_vars.ports) {
            sent += port.stp_frame_xmits + port.rstp_frame_xmits + port.tcn_frame_xmits;
            received += port.stp_frame_recvs + port.rstp_frame_recvs + port.tcn_frame_recvs + port.unknown_frame_recvs +
                        port.illegal_frame_recvs;
        }
        EXPECT_EQ(sent, board.frames.size());
        EXPECT_EQ(received, frames_given);
        for (const sent_frame_t &frame : board.frames)
            ASSERT_EQ(frame.octets.size(), 64u);
    }

    void check_model()
    {
        for (uint32_t port = 1; port <= 6; port++) {
            const int group = model.stood_for[port];
            EXPECT_EQ(lvt_rstp_vars.representative[port - 1], &record(group ? static_cast<uint32_t>(group) : port))
                << port;
        }
        for (uint32_t group = 7; group <= 9; group++) {
            EXPECT_EQ(record(group).stpEnabled, model.sender[group].has_value()) << group;
            if (model.sender[group]) {
                EXPECT_EQ(lvt_rstp_vars.by_l2port[group - 1], &record(static_cast<uint32_t>(*model.sender[group])));
            }
        }
        model.take_states();
        for (uint32_t port = 1; port <= 6; port++) {
            if (!model.stood_for[port] || !model.in_step[port])
                continue;
            EXPECT_EQ(record(port).hw_state, record(static_cast<uint32_t>(model.stood_for[port])).hw_state) << port;
        }
    }
};

} // namespace

TEST_P(random_life, holds_together_and_heals)
{
    boot({1, 2});
    for (int i = 0; i < STEPS && !HasFailure(); i++) {
        SCOPED_TRACE("step " + std::to_string(i));
        step();
        EXPECT_EQ(daemon_faults(), "");
        check_model();
        board.log.clear();
        lacp_received();
    }
    check_counters();

    // Alone, all links taken out and put in again, the same settings as ever.
    SCOPED_TRACE("healing");
    send_groups({0, 7, 8, 9, 7, 8, 9}); // each group is queued, so that none keeps a port
    send_groups(AGGR_STATUS_ALONE);
    send_system(LVT_RSTP_SYSTEM_DEFAULTS);
    ports = default_port_configs();
    send_enabled({1, 2, 3, 4, 5, 6});
    send_links({});
    seconds(5);
    send_links({1, 2, 3, 4, 5, 6});
    seconds(60);
    EXPECT_EQ(daemon_faults(), "");
    EXPECT_EQ(lvt_rstp_vars.bridge.rootPortId, 0u);
    EXPECT_EQ(lvt_rstp_vars.bridge.topoChange, 0);
    for (uint32_t port = 1; port <= 6; port++) {
        EXPECT_EQ(record(port).role, ROLE_DESIGNATED) << port;
        EXPECT_EQ(board_port_state(port), 4u) << port;
        EXPECT_EQ(record(port).sendRSTP, 1) << port;
    }
    for (uint32_t group = 7; group <= 9; group++)
        EXPECT_EQ(record(group).nonStp, 1) << group;
    board.frames.clear();
    seconds(4);
    EXPECT_EQ(board.frames.size(), 12u); // a hello from each port every two seconds
}

INSTANTIATE_TEST_SUITE_P(seeds, random_life, testing::Range(1u, 1 + seeds_here(20)));
