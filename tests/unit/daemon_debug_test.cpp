/// The words of the debug pipe, and which report each leads to.
#include "daemon/diag_out.h"

#include <cstring>
#include <memory>
#include <random>

#include "daemon/rstp_config.h"
#include "daemon_fixture.h"
#include "diag/reports.h"
#include "l2_proto_utility/os_api.h"
#include "tests/report_texts.h"
#include "tests/seed.h"

namespace {

class debug_cmd : public daemon_test {
protected:
    debug_cmd() { boot(); }

    /// Runs one command; gives what the console shows. The text lies in memory of just its size.
    static std::string run(const std::string &text)
    {
        const std::unique_ptr<char[]> exact(new char[text.size() + 1]);
        memcpy(exact.get(), text.c_str(), text.size() + 1);
        board_console();
        excute_dbg_cmd(exact.get());
        return board_console();
    }

    /// The second line of a report, its title.
    static std::string title(const std::string &text)
    {
        const std::string shown = run(text);
        if (shown == MENU)
            return "menu";
        if (!shown.starts_with("===="))
            return shown;
        const size_t start = shown.find('\n') + 1;
        return shown.substr(start, shown.find('\n', start) - start);
    }
};

} // namespace

TEST_F(debug_cmd, menu)
{
    lvt_debug_menu();
    EXPECT_EQ(board_console(), MENU);
}

TEST_F(debug_cmd, what_is_a_command)
{
    EXPECT_EQ(is_dbg_msg("debug"), 1);
    EXPECT_EQ(is_dbg_msg("debugging"), 1);
    EXPECT_EQ(is_dbg_msg("debug show"), 1);
    for (const char *text : {"", "d", "debu", " debug", "DEBUG", "debu g"})
        EXPECT_EQ(is_dbg_msg(text), 0) << text;
}

TEST_F(debug_cmd, the_table)
{
    const struct {
        const char *text, *title;
    } rows[] = {
        {"debug", "menu"},
        {"debug\n", "menu"},
        {"debug ", "menu"},
        {"debug show", "menu"},
        {"debug show\n", "menu"},
        {"debug show system_config", "RSTP SYSTEM CONFIG:"},
        {"debug show port_config", "RSTP PORT CONFIG:"},
        {"debug show bridge_status", "RSTP BRIDGE STATUS:"},
        {"debug show rstp_port_status 3", "RSTP PORT STATUS: PoAG=3"},
        {"debug show rstp_port_status 9\n", "RSTP PORT STATUS: PoAG=9"},
        {"debug show rstp_port_status", "menu"},
        {"debug show rstp_port_status 3 4", "menu"},
        {"debug show rstp_port_status 3 \n", "menu"}, // the line end is a fifth word
        {"debug show rstp_statistics", "RSTP Statistics:"},
        {"debug show port_status", "Port Status:"},
        {"debug show aggr_status", "RSTP Aggr Status:"},
        {"debug show rstp_aggr_status", "RSTP AGGR STATUS:"},
        {"debug show rstp_stp_state", "RSTP STP STATE:"},
        {"debug show bpdu_filter", "bpdu_filter_en = 0\n"},
        {"debug show lacp_port_config", "RSTP LACP PORT STATE:"},
        {"debug show l2pt_trap", "menu"},
        {"debug show nothing", "menu"},
        {"debug show system", "menu"},
        {"debug show \n", "menu"},
        {"debug bpdu_filter", ""},
        {"debug bpdu_filter\n", ""},
        {"debug bpdu_filter maybe", ""},
        {"debug bpdu_filter enabl", ""},
        {"debug l2pt_trap 1 1", "menu"},
        {"debug sho bridge_status", "menu"},
        {"debug hide bridge_status", "menu"},
        {"debug bridge_status", "menu"},
    };
    for (const auto &row : rows)
        EXPECT_EQ(title(row.text), row.title) << row.text;
}

TEST_F(debug_cmd, a_word_matches_the_keyword_that_it_begins_with)
{
    const struct {
        const char *text, *title;
    } rows[] = {
        {"debug show system_config\n", "RSTP SYSTEM CONFIG:"},
        {"debug show system_configuration", "RSTP SYSTEM CONFIG:"},
        {"debug show port_configuration", "RSTP PORT CONFIG:"},
        {"debug showing bridge_statuses", "RSTP BRIDGE STATUS:"},
        {"debugger show port_status2", "Port Status:"},
        {"debug show rstp_port_statusx 2", "RSTP PORT STATUS: PoAG=2"},
        {"debug show aggr_status\r\n", "RSTP Aggr Status:"},
        {"debug show bpdu_filters", "bpdu_filter_en = 0\n"},
        {"debug show bridge_status and more of it", "RSTP BRIDGE STATUS:"},
        {"anything show bridge_status", "RSTP BRIDGE STATUS:"}, // word 0 was judged before
        {"debug\nshow bridge_status", "menu"},                  // a line end does not cut
        {"debug show\nbridge_status", "menu"},
        {"debug\tshow bridge_status", "menu"}, // nor does a tab
        {"debug show Bridge_status", "menu"},
    };
    for (const auto &row : rows)
        EXPECT_EQ(title(row.text), row.title) << row.text;
}

TEST_F(debug_cmd, runs_of_spaces_are_one)
{
    EXPECT_EQ(title("debug   show     bridge_status"), "RSTP BRIDGE STATUS:");
    EXPECT_EQ(title("  debug show rstp_port_status   5  "), "RSTP PORT STATUS: PoAG=5");
    EXPECT_EQ(title(std::string(100, ' ')), "menu");
    EXPECT_EQ(title(""), "menu");
}

TEST_F(debug_cmd, words_beyond_ten_are_counted_not_kept)
{
    EXPECT_EQ(title("debug show bridge_status 4 5 6 7 8 9 10 11 12 13 14 15 16 17 18 19 20 21 22 23 24 25 26"),
              "RSTP BRIDGE STATUS:");
    std::string many = "debug show rstp_port_status 3";
    while (many.size() < 98)
        many += " x";
    EXPECT_EQ(title(many), "menu");
    many = "x";
    while (many.size() < 99)
        many += " x";
    EXPECT_EQ(title(many), "menu");
}

TEST_F(debug_cmd, port_numbers_are_read_as_atoi_does)
{
    EXPECT_EQ(title("debug show rstp_port_status 7abc"), "RSTP PORT STATUS: PoAG=7");
    EXPECT_EQ(title("debug show rstp_port_status +8"), "RSTP PORT STATUS: PoAG=8");
    EXPECT_EQ(title("debug show rstp_port_status 0009"), "RSTP PORT STATUS: PoAG=9");
    EXPECT_EQ(title("debug show rstp_port_status 1.9"), "RSTP PORT STATUS: PoAG=1");
}

TEST_F(debug_cmd, a_port_that_does_not_exist_ends_the_process)
{
    for (const char *number : {"0", "10", "64", "-1", "4294967298", "x", "\n", "2147483647"})
        EXPECT_DEATH(run(std::string("debug show rstp_port_status ") + number),
                     testing::AllOf(HasSubstr("lvt_rstp:"),
                                    HasSubstr("Assertion `((poag) > 0 && (poag) <= (((6) * 1)) + ((3 * 1)+(0 )))' "
                                              "failed.")))
            << number;
    EXPECT_EQ(board_console(), "");
}

TEST_F(debug_cmd, bpdu_filter_clears_the_trap_of_ports_without_spanning_tree)
{
    send_enabled({2, 5});
    lvt_rstp_run_pending();
    board_log();
    for (const char *text : {"debug bpdu_filter enable", "debug bpdu_filter disable", "debug bpdu_filter enabled\n",
                             "debug bpdu_filter disable now"}) {
        EXPECT_EQ(run(text), "");
        EXPECT_EQ(board_log(), log_t(4, "trap off")) << text;
        EXPECT_EQ(bpdu_filter_en_get(), strstr(text, "enable") ? 1 : 0);
    }
    EXPECT_EQ(run("debug bpdu_filter enable"), "");
    EXPECT_EQ(run("debug show bpdu_filter"), "bpdu_filter_en = 1\n");
    for (const char *text : {"debug bpdu_filter", "debug bpdu_filter off", "debug bpdu_filter \n"}) {
        board_log();
        EXPECT_EQ(run(text), "");
        EXPECT_THAT(board_log(), IsEmpty());
        EXPECT_EQ(bpdu_filter_en_get(), 1);
    }
}

TEST_F(debug_cmd, bpdu_filter_asks_the_daemons_copy)
{
    record(1).config.adminEnable = 1;    // the engine's own settings do not count
    rstp_port_config[3].adminEnable = 9; // any octet but 0 is on
    run("debug bpdu_filter enable");
    EXPECT_EQ(board_log(), log_t(5, "trap off"));
}

TEST_F(debug_cmd, bpdu_filter_tells_of_failures_and_goes_on)
{
    board.chip_fails = true;
    std::string told;
    for (int i = 0; i < 6; i++)
        told += "E:sw_cfg_trap_portMgmtFrameAction_rstp_set_api() L126, mdio_intf_access_multi failed\n";
    EXPECT_EQ(run("debug bpdu_filter enable"), told);
    EXPECT_EQ(bpdu_filter_en_get(), 1);
}

TEST_F(debug_cmd, reports_do_not_step_the_engine)
{
    send_links({1, 2});
    send_enabled({1, 2});
    const port_t *const pending = current_port;
    ASSERT_NE(pending, nullptr);
    for (const char *name : {"system_config", "port_config", "bridge_status", "rstp_port_status 1", "rstp_statistics",
                             "port_status", "aggr_status", "rstp_aggr_status", "rstp_stp_state", "lacp_port_config"}) {
        EXPECT_NE(run(std::string("debug show ") + name), "");
        EXPECT_EQ(current_port, pending) << name;
    }
}

TEST_F(debug_cmd, rubbish_through_the_pipe)
{
    const test_seed_t seed(4711);
    std::mt19937 random(seed.value);
    for (int round = 0; round < 2000; round++) {
        std::string text = round % 3 ? "debug " : "";
        if (round % 5 == 0)
            text += "show ";
        const size_t length = 1 + random() % 150;
        while (text.size() < length) {
            // Mostly spaces and letters of keywords, and any octet.
            static const char letters[] = "   shownbpdu_filterstp_port_status\n%s%n";
            text += random() % 4 ? letters[random() % (sizeof letters - 1)] : static_cast<char>(random());
        }
        if (text.find("rstp_port_status") != std::string::npos)
            continue;
        write_debug(text);
        for (size_t left = text.size(); left > 0; left -= std::min<size_t>(left, 100))
            ASSERT_EQ(serve(), 0);
    }
    EXPECT_EQ(title("debug show bridge_status"), "RSTP BRIDGE STATUS:");
}
