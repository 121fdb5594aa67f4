/// Which semaphore is held where: what each message takes and gives back, in order, and that what a
/// semaphore guards changes only while it is held.
#include <cstring>

#include "daemon/rstp_aggr.h"
#include "daemon_fixture.h"
#include "daemon_image.h"
#include "l2_proto_utility/os_api.h"
#include "state.h"

namespace {

enum guard_t : uint8_t { BY_DATA, BY_CORE, BY_NONE };

class semaphores : public daemon_test {
protected:
    semaphores() : guards(daemon_image().state.size(), BY_DATA)
    {
        guarded(lvt_rstp_vars, BY_CORE);
        guarded(current_stpm, BY_CORE);
        guarded(current_port, BY_CORE);
        guarded(cached_stpstates, BY_CORE);
        guarded(cached_fwdstates, BY_CORE);
        // The main thread's own, and single values that are read and written whole.
        guarded(aggr_port_status, BY_NONE);
        guarded(aggr_group_status, BY_NONE);
        guarded(lacp_enable_port, BY_NONE);
        leave_link_table_out();
    }

    /// Sends a message. Gives what was taken, given back, and asked of the chip meanwhile, in order.
    log_t record_of(const octets_t &message)
    {
        write_control(message);
        return recorded([this] { EXPECT_EQ(serve(), 1); });
    }

    log_t recorded(const std::function<void()> &action)
    {
        board_log();
        board.log_locks = true;
        const std::vector<uint8_t> now = daemon_image().state;
        last[BY_DATA] = last[BY_CORE] = now;
        board.on_semaphore = [this](bool core, bool taken) {
            if (taken)
                expect_unchanged(core ? BY_CORE : BY_DATA);
            else
                last[core ? BY_CORE : BY_DATA] = daemon_image().state;
        };
        action();
        board.on_semaphore = nullptr;
        board.log_locks = false;
        expect_unchanged(BY_CORE);
        expect_unchanged(BY_DATA);
        return board_log();
    }

private:
    std::vector<guard_t> guards;        ///< by octet of the daemon's state
    std::vector<uint8_t> last[BY_NONE]; ///< the state when a semaphore was last given back

    template <typename variable_t>
    void guarded(const variable_t &variable, guard_t guard)
    {
        const auto *first = reinterpret_cast<const char *>(&variable);
        ASSERT_TRUE(first >= __start_lvt_state && first + sizeof variable <= __stop_lvt_state);
        std::fill_n(guards.begin() + (first - __start_lvt_state), sizeof variable, guard);
    }

    /// It has no name outside: those octets that a report of links writes.
    void leave_link_table_out()
    {
        const std::vector<uint8_t> before = daemon_image().state;
        uint8_t report[24], changed;
        memset(report, 0xFF, sizeof report);
        lvt_port_status_update_from_drv_msg(report, &changed);
        const std::vector<uint8_t> after = daemon_image().state;
        for (size_t i = 0; i < after.size(); i++)
            if (after[i] != before[i])
                guards[i] = BY_NONE;
        daemon_image_t image = daemon_image();
        image.state = before;
        daemon_image_restore(image);
    }

    void expect_unchanged(guard_t guard)
    {
        const std::vector<uint8_t> now = daemon_image().state;
        for (size_t i = 0; i < now.size(); i++)
            if (guards[i] == guard && now[i] != last[guard][i]) {
                ADD_FAILURE() << "octet " << i << " of the state changed without "
                              << (guard == BY_CORE ? "rstp_core_sem" : "rstp_data_sem");
                return;
            }
    }
};

const log_t DATA = {"data+", "data-"};
const log_t CORE = {"core+", "core-"};
const log_t NOTHING_QUEUED = DATA;

using ::operator+; // of logs; other files have their own

/// A queued group that is set up: rstp_core_sem inside rstp_data_sem.
log_t core_around(const log_t &actions) { return log_t{"core+"} + actions + log_t{"core-"}; }
log_t data_around(const log_t &actions) { return log_t{"data+"} + actions + log_t{"data-"}; }

} // namespace

// ---- messages ---------------------------------------------------------------------------

TEST_F(semaphores, type_0)
{
    boot({1});
    EXPECT_EQ(record_of(bpdu_message(2, frame_of({}))), CORE);
    EXPECT_EQ(record_of(bpdu_message(2, octets_t{})), CORE); // counted as malformed
}

TEST_F(semaphores, type_0_that_finishes_a_pass)
{
    boot({1});
    send_enabled({1});
    seconds(5);
    record(1).helloWhen = 0;
    STP_stpm_update(); // has not come to port 1 yet
    EXPECT_EQ(record_of(bpdu_message(2, frame_of({}))), core_around({"frame 1 rst"}));
}

TEST_F(semaphores, type_1)
{
    boot();
    links[1].link = links[4].link = 1;
    EXPECT_EQ(record_of(port_status_message(links)), CORE + CORE);
    EXPECT_EQ(record_of(port_status_message(links)), log_t{}); // nothing new
}

TEST_F(semaphores, type_2)
{
    boot();
    const log_t queued = DATA;
    EXPECT_EQ(record_of(aggr_status_message({0, 7, 2, 9, 4, 5, 6})),
              queued + queued + data_around(core_around(state_written(1, 4)) + core_around(state_written(3, 4))));
    EXPECT_EQ(record_of(aggr_status_message({0, 7, 2, 3, 4, 5, 6})), // deleted
              queued + data_around(core_around(state_written(3, 4) + state_written(3, 4))));
    EXPECT_EQ(record_of(aggr_status_message({0, 7, 2, 3, 4, 5, 6})), NOTHING_QUEUED);
    board.allocations_left = 0;
    EXPECT_EQ(record_of(aggr_status_message({0, 7, 7, 3, 4, 5, 6})), queued);
}

TEST_F(semaphores, type_3)
{
    boot();
    lvt_rstp_system_config_t config = LVT_RSTP_SYSTEM_DEFAULTS;
    config.bridge_priority = 4096;
    EXPECT_EQ(record_of(system_config_message(config)), DATA + CORE); // one after the other
    EXPECT_EQ(record_of(system_config_message(config)), DATA + CORE); // also when nothing is new
}

TEST_F(semaphores, type_4)
{
    boot();
    lvt_rstp_port_config_t config = LVT_RSTP_PORT_DEFAULTS;
    config.port_priority = 16;
    EXPECT_EQ(record_of(aggr_config_message(config)), DATA + CORE + NOTHING_QUEUED);

    send_groups({0, 7, 2, 9, 4, 5, 6});
    const log_t queued = DATA;
    config.port_priority = 32;
    EXPECT_EQ(record_of(aggr_config_message(config)),
              DATA + CORE + queued + queued +
                  data_around(core_around(state_written(1, 4)) + core_around(state_written(3, 4))));
}

TEST_F(semaphores, types_5_and_9)
{
    boot();
    send_groups({0, 7, 2, 3, 4, 5, 6});
    EXPECT_EQ(record_of(port_config_message(ports)), NOTHING_QUEUED);
    EXPECT_EQ(record_of(port_config_only_message(ports)), log_t{});

    ports[1].port_priority = ports[4].port_priority = 16;
    const log_t queued = DATA;
    const log_t member = DATA + log_t{"trap off"} + CORE + queued;
    const log_t alone = DATA + log_t{"trap off"} + CORE;
    EXPECT_EQ(record_of(port_config_message(ports)), member + alone + data_around(core_around(state_written(1, 4))));
    ports[1].port_priority = ports[4].port_priority = 32;
    EXPECT_EQ(record_of(port_config_only_message(ports)), member + alone);
}

TEST_F(semaphores, types_5_and_9_that_write_a_state)
{
    boot({1});
    send_enabled({1});
    seconds(10);
    ports[1].adminEnable = 0;
    EXPECT_EQ(record_of(port_config_only_message(ports)), DATA + log_t{"trap off"} + core_around(state_written(1, 4)));
}

TEST_F(semaphores, type_6)
{
    boot();
    EXPECT_EQ(record_of(work_flush_message()), DATA + DATA); // once only to look, then until nothing is found
    board.allocations_left = 0;
    EXPECT_EQ(record_of(work_flush_message()), DATA);
}

TEST_F(semaphores, messages_that_take_none)
{
    boot();
    EXPECT_EQ(record_of(lacp_enable_message({1, 1, 1, 1, 1, 1})), log_t{});
    for (const int type : {7, 8, 11, 255})
        EXPECT_EQ(record_of(raw_message(static_cast<uint8_t>(type), octets_t(100, 0xFF))), log_t{});
}

TEST_F(semaphores, reports_take_none)
{
    boot({1});
    for (const char *report : {"system_config", "port_config", "bridge_status", "rstp_port_status 1", "rstp_statistics",
                               "port_status", "aggr_status", "rstp_aggr_status", "rstp_stp_state", "lacp_port_config"})
        EXPECT_EQ(recorded([&] { debug(std::string("debug show ") + report); }), log_t{}) << report;
}
