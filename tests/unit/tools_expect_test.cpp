/// lvt_rstpctl expect: statements that are so, that are not, and that become so.
#include <fmt/format.h>

#include "tools_ctl.h"

namespace {

class expect : public ctl {
protected:
    void is_so(const std::string &statement)
    {
        const run_t result = run_on_board("expect " + statement);
        EXPECT_EQ(result.status, 0) << statement;
        EXPECT_EQ(result.output, "") << statement;
    }
    /// `fact` is what the tool says instead.
    void is_not_so(const std::string &statement, const std::string &fact)
    {
        expect_refused(fmt::format("expect \"{}\"", statement), fmt::format("not so: {}: {}", statement, fact));
    }
};

} // namespace

TEST_F(expect, root)
{
    report(STATUS);
    is_so("root is 32768/02:00:00:01:11:00");
    is_so("root is 02:00:00:01:11:00");
    is_so("Root is 02:00:00:01:11:00");
    is_so("root is not this bridge");
    is_so("root port is 1");
    is_so("root port is not none");
    is_so("root is 0x8000/02:00:00:01:11:00");
    is_so("root is 032768/02:00:00:01:11:00");
    is_not_so("root is this bridge", "the root is 32768/02:00:00:01:11:00");
    is_not_so("root is not 02:00:00:01:11:00", "the root is 32768/02:00:00:01:11:00");
    is_not_so("root is 4096/02:00:00:01:11:00", "the root is 32768/02:00:00:01:11:00");
    is_not_so("root port is 2", "the root port is 1");

    report(replaced(STATUS, "32768:02-00-00-01-11-00,1\n", "61440:02-00-00-00-01-00,0\n"));
    is_so("root is this bridge");
    is_so("root port is none");
    is_not_so("root is not this bridge", "the root is this bridge, 61440/02:00:00:00:01:00");
    is_not_so("root port is 1", "there is no root port: this bridge is the root");
}

TEST_F(expect, ports)
{
    report(STATUS);
    is_so("port 1 forwards");
    is_so("port 2 discards");
    is_so("port 2 is alternate");
    is_so("port 3 is edge");
    is_so("port 1 is not edge");
    is_so("port 4 is off");
    is_so("ports 1,3 forward");
    is_so("ports 1-3 are point-to-point");
    is_not_so("port 4 forwards", "port 4 is off: the spanning tree does not rule it");
    is_not_so("port 2 forwards", "port 2 is alternate, discarding, not edge, point-to-point");
    is_not_so("port 1-3 is forwarding", "port 2 is alternate, discarding, not edge, point-to-point");
    is_not_so("port 1 is not root", "port 1 is root, forwarding, not edge, point-to-point");
    is_not_so("port 3 learns", "port 3 is designated, forwarding, edge, point-to-point");
}

TEST_F(expect, what_is_no_statement)
{
    report(STATUS);
    for (const char *statement :
         {"nothing", "root", "root is", "root is big", "root is 02:00:00:01:11", "port 1", "port 1 flies", "port 1 is",
          "port 1 is tall", "port 1 forwards fast", "topology changes below", "topology changes above 3"}) {
        const run_t result = run_on_board(fmt::format("expect \"{}\"", statement));
        EXPECT_EQ(result.status, 2) << statement;
        EXPECT_TRUE(result.output.starts_with(
            fmt::format("\"{}\" is not a statement. These are understood:\n  root is", statement)))
            << result.output;
    }
    expect_usage("expect port x forwards", "port: \"x\" is not a number");
    expect_usage("expect topology changes below many", "topology changes below: \"many\" is not a number");
    expect_usage("expect root is not foo/02:00:00:01:11:00", "root is: \"foo\" is not a number");
    expect_usage("expect root port is big", "root port: \"big\" is not a number");
    expect_refused("expect port 10 forwards", "logical port 10: allowed is 1 to 9");
}

TEST_F(expect, without_a_report_nothing_is_so)
{
    const std::string reason = "no status file at " + board.path +
                               "/tmp/rstp_monitor: is the daemon running? It writes the file every second.";
    expect_untold("expect root is not this bridge", reason);
    expect_untold("expect root is not this bridge --within 0.1", reason);
    expect_untold("expect topology changes below 3", reason);
}

TEST_F(expect, waits_for_what_becomes_so)
{
    const run_t result = run_through({STATUS, STATUS, replaced(STATUS, "0,1,1,1,1,0", "0,1,1,1,4,0")},
                                     "expect port 2 forwards --within 10");
    EXPECT_EQ(result.status, 0) << result.output;
    EXPECT_EQ(result.output, "");
}

TEST_F(expect, waits_no_longer_than_it_is_told)
{
    report(STATUS);
    expect_refused("expect port 2 forwards --within 0.1",
                   "not so: port 2 forwards: port 2 is alternate, discarding, not edge, point-to-point");
}

TEST_F(expect, a_time_that_is_none)
{
    report(STATUS);
    for (const char *seconds : {"1e10", "inf", "nan", "1e308", "-1", "1x", " 1"})
        expect_usage(fmt::format("expect topology changes below 1 --within '{}'", seconds),
                     fmt::format("--within: \"{}\" is no number of seconds from 0 to 1000000000", seconds));
    is_so("port 1 forwards --within 1e9");
}

TEST_F(expect, topology_changes)
{
    report(STATUS);
    is_so("topology changes below 1");
    is_so("topology changes below 1 --within 0.1");
    is_not_so("topology changes below 0", "0 seen");

    const std::string during = replaced(STATUS, "15,0,", "15,1,");
    report(during);
    is_so("topology changes below 2");
    is_not_so("topology changes below 1", "1 seen");

    const std::string again = replaced(STATUS, ",3,72", ",3,2");
    const run_t result = run_through({during, STATUS, again}, "expect topology changes below 2 --within 10");
    EXPECT_EQ(result.status, 1);
    EXPECT_EQ(result.output, "lvt_rstpctl: not so: topology changes below 2: 2 seen\n");
}
