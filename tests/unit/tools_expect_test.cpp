/// lvt_rstpctl expect: statements that are so, that are not, and that become so.
#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include "tools_ctl.h"

namespace {

using json_t = nlohmann::json;

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

TEST_F(expect, several_statements_at_once)
{
    report(STATUS);
    is_so("'root port is 1' 'port 1 forwards' 'port 2 blocks'");
    expect_refused("expect 'root port is 2' 'port 1 forwards' 'port 2 is root'",
                   "not so: root port is 2: the root port is 1\n"
                   "lvt_rstpctl: not so: port 2 is root: port 2 is alternate, discarding, not edge, point-to-point");
    is_so("'port 1 forwards' 'topology changes below 1' --within 0.1");
    expect_refused("expect 'port 1 discards' 'topology changes below 1' --within 0.1",
                   "not so: port 1 discards: port 1 is root, forwarding, not edge, point-to-point");
}

TEST_F(expect, a_file_of_statements)
{
    report(STATUS);
    write_file(path("baseline"), "# the uplink\n\n  root port is 1  # over the first\nport 2 is blocking\n");
    is_so("--all " + path("baseline"));
    is_so("--all - <" + path("baseline"));
    expect_refused("expect 'port 1 is edge' --all " + path("baseline"),
                   "not so: port 1 is edge: port 1 is root, forwarding, not edge, point-to-point");
    write_file(path("baseline"), "root port is 1\nport 10 forwards\n");
    expect_refused("expect --all " + path("baseline"), path("baseline") + ":2: logical port 10: allowed is 1 to 9");
    write_file(path("baseline"), "root port is big\n");
    expect_usage("expect --all " + path("baseline"), path("baseline") + ":1: root port: \"big\" is not a number");
    write_file(path("baseline"), "# nothing\n");
    expect_refused("expect --all " + path("baseline"), path("baseline") + " holds no statements");
    expect_refused("expect --all " + path("none"), "cannot read " + path("none") + ": No such file or directory");
    expect_usage("expect", "expect: give a STATEMENT, or --all FILE");
}

TEST_F(expect, links)
{
    report(replaced(STATUS, "port05=0,1,1,0,5,5,0", "port05=0,1,1,0,0,0,0"));
    is_so("port 1-3 is up");
    is_so("port 5 is down");
    is_so("port 5 is not up");
    is_not_so("port 5 is up", "port 5 is disabled, down, edge, point-to-point");
    is_not_so("port 1 is down", "port 1 is root, forwarding, not edge, point-to-point");
    for (const char *statement : {"port 4 is up", "port 4 is down", "port 4 is not up"})
        expect_untold(
            fmt::format("expect \"{}\"", statement),
            fmt::format("nobody can tell: {}: port 4 is off: the daemon does not report its link", statement));
}

TEST_F(expect, a_port_that_hears)
{
    report(STATUS);
    is_not_so("port 1 hears", "port 1 has received no BPDU since this command began");
    const run_t result = run_through({STATUS, STATUS, replaced(STATUS, "port01=4,5,6,7,20,", "port01=4,5,6,7,21,")},
                                     "expect port 1 hears --within 10");
    EXPECT_EQ(result.status, 0) << result.output;
}

TEST_F(expect, as_json)
{
    report(STATUS);
    run_t result = run_on_board("expect -j 'port 1 forwards' 'port 2 forwards' 'port 4 is up' 2>/dev/null #");
    EXPECT_EQ(result.status, 1);
    EXPECT_EQ(json_t::parse(result.output), json_t::parse(R"({"version": 2, "so": false, "statements": [
        {"statement": "port 1 forwards", "so": true, "fact": null},
        {"statement": "port 2 forwards", "so": false,
         "fact": "port 2 is alternate, discarding, not edge, point-to-point"},
        {"statement": "port 4 is up", "so": null,
         "fact": "port 4 is off: the daemon does not report its link"}]})"));
    age = std::chrono::hours(1);
    result = run_on_board("expect -j port 1 forwards 2>/dev/null #");
    EXPECT_EQ(result.status, 3);
    EXPECT_EQ(json_t::parse(result.output)["so"], nullptr);
}

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
    is_so("port 2 blocks");
    is_so("ports 2 block");
    is_so("port 2 is blocking");
    is_so("port 1 is not blocking");
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
