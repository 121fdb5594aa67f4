/// The documents against the program: the worked examples of docs/messages.md, the man page, and
/// the completion for bash.
#include <algorithm>
#include <cctype>
#include <cstring>
#include <fstream>
#include <sstream>
#include <string>

#include <fmt/format.h>
#include <fmt/ranges.h>
#include <gtest/gtest.h>

#include "tools/bpdu_frame.h"
#include "tools/ctl/hex.h"
#include "tools/decode.h"
#include "tools/hex.h"
#include "tools/messages.h"
#include "tools_ctl.h"
#include "tools_frames.h"

namespace {

/// The octets at the start of a line; after two spaces comes their explanation.
octets_t octets_of_line(const std::string &line) { return parse_hex(line.substr(0, line.find("  "))); }

/// What stands in the code blocks of the page, in order.
std::vector<octets_t> documented_examples()
{
    std::ifstream page(LVT_DOCS "/messages.md");
    std::vector<octets_t> examples;
    bool inside = false;
    for (std::string line; std::getline(page, line);) {
        if (line.starts_with("```")) {
            inside = !inside;
            if (inside)
                examples.emplace_back();
        } else if (inside) {
            const octets_t octets = octets_of_line(line);
            examples.back().insert(examples.back().end(), octets.begin(), octets.end());
        }
    }
    return examples;
}

template <typename record_t>
octets_t octets_of(const record_t &record, size_t size = sizeof(record_t))
{
    octets_t octets(size);
    std::memcpy(octets.data(), &record, size);
    return octets;
}

/// A frame of the port with the address 02:00:00:00:00:SOURCE.
octets_t frame_from(uint8_t source, bpdu_t bpdu)
{
    bpdu.source[0] = 0x02;
    bpdu.source[5] = source;
    return frame_of(bpdu);
}

/// The root's own, from a designated port that forwards.
octets_t rst_from(uint8_t source, uint16_t port_id)
{
    const bridge_id_t root = {LVT_RSTP_SYSTEM_DEFAULTS.bridge_priority, {0x02, 0, 0, 0, 0, 0x01}};
    return frame_from(source,
                      bpdu_of(BPDU_TYPE_RST, {.root = root, .cost = 0, .bridge = root, .port = port_id},
                              bpdu_role_flags(BPDU_ROLE_DESIGNATED) | BPDU_FLAG_LEARNING | BPDU_FLAG_FORWARDING));
}

/// As the CPU sends it: tagged, and filled up before that.
octets_t sent(octets_t frame, uint8_t tag_end)
{
    frame.resize(60);
    return tagged(frame, tag_end);
}

std::string text_of(const std::string &path)
{
    std::ifstream file(path);
    return {std::istreambuf_iterator<char>(file), {}};
}

/// The commands or options that a help shows, by their last names: "--json" of "-j,--json".
std::vector<std::string> names_in_help(const std::string &command)
{
    std::istringstream help(run(command + " --help").output);
    std::vector<std::string> names;
    for (std::string line; std::getline(help, line);) {
        const bool listed = line.starts_with("  ") && line.size() > 3 && line[2] != ' ' && line.find("   ", 3) < 80;
        if (!listed)
            continue;
        const std::string name = line.substr(2, line.find_first_of(" ", 2) - 2);
        if (name.find("--help") == std::string::npos && std::islower(name[name.starts_with("--") ? 2 : 0]))
            names.push_back(name.substr(0, name.find(',')));
    }
    return names;
}

/// What bash offers for the last word of a command line.
std::string completions(const std::string &line)
{
    return completions_of(rstpctl_program(), LVT_COMPLETION, "_lvt_rstpctl", line);
}

std::vector<octets_t> real_examples()
{
    port_statuses_t ports{};
    ports[0] = {.ignored = 0, .link = 1, .speed = 2, .duplex = 1};
    ports[5] = {.ignored = 0, .link = 1, .speed = 1, .duplex = 0};

    lvt_rstp_system_config_t system = LVT_RSTP_SYSTEM_DEFAULTS;
    system.bridge_priority = 4096;
    system.max_age = 6;
    system.hello_time = 1;
    system.forward_delay = 4;

    lvt_rstp_port_config_t groups = LVT_RSTP_PORT_DEFAULTS;
    groups.adminEnable = 1;
    groups.adminPathCost = 10000;
    groups.adminEdge = 0;

    port_configs_t configs = default_port_configs();
    configs[1].adminEnable = configs[2].adminEnable = 1;

    const std::string debug = "debug show bridge_status\n";

    lacp_frame_t lacp{};
    std::copy_n(lacp_msg_magic, sizeof lacp.magic, lacp.magic);
    lacp.length = 6;
    lacp.type = LACP_MSG_RSTP_STATUS;
    lacp.body[0] = lacp.body[1] = 1;

    port_mux_msg_t mux{};
    std::copy_n(PORT_MUX_MAGIC, sizeof mux.magic, mux.magic);
    mux.length = 100;
    mux.type = PORT_MUX_MSG_FORWARDING;
    mux.l2port = 2;
    mux.forwarding = 1;

    return {
        bpdu_message(7, rst_from(2, 0x8002)),
        port_status_message(ports),
        aggr_status_message({0, 7, 7, 3, 4, 5, 6}),
        system_config_message(system),
        aggr_config_message(groups),
        port_config_message(configs),
        work_flush_message(),
        lacp_enable_message({1, 1, 0, 0, 0, 0}),
        {debug.begin(), debug.end()},
        octets_of(lacp, offsetof(lacp_frame_t, body) + lacp.length),
        octets_of(mux),
        sent(rst_from(6, 0x8005), 0xC0),
        sent(frame_from(2, blank_bpdu(BPDU_TYPE_TCN)), 0x82),
    };
}

} // namespace

TEST(docs, examples_of_messages_can_be_decoded)
{
    for (const octets_t &example : documented_examples()) {
        const std::string text(example.begin(), example.end());
        if (!text.starts_with("debug")) {
            EXPECT_EQ(decode(example).fault, "") << decoded_text(decode(example));
            EXPECT_EQ(decode(example).octets, example.size());
        }
    }
}

TEST(docs, the_man_page_has_every_command)
{
    const std::string page = text_of(LVT_DOCS "/man/lvt_rstpctl.1.scd");
    for (const std::string &command : names_in_help(""))
        EXPECT_NE(page.find("*" + command), std::string::npos) << command;
    for (const char *command : {"show", "monitor", "expect", "apply", "set bridge", "set port", "send bridge",
                                "send ports", "send aggr-config", "send lacp", "decode"})
        for (const std::string &option : names_in_help(command))
            EXPECT_NE(page.find("*" + option + "*"), std::string::npos) << command << " " << option;
}

TEST(docs, completion_knows_commands_and_options)
{
    EXPECT_EQ(completions("mo"), "monitor");
    EXPECT_EQ(completions("set p"), "port");
    EXPECT_EQ(completions("send l"), "lacp");
    EXPECT_EQ(completions("con"), "confirm config");
    EXPECT_EQ(completions("po"), "ports port");
    EXPECT_EQ(completions("port 8"), "8");
    EXPECT_EQ(completions("ports --wa"), "--watch");
    EXPECT_EQ(completions("show st"), "statistics");
    EXPECT_EQ(completions("set port --spanning"), "--spanning-tree");
    EXPECT_EQ(completions("--root /tmp show --wa"), "--watch");
    EXPECT_EQ(completions("inject bpdu --message"), "--message-age");
    EXPECT_EQ(completions("monitor --dry"), "--dry-run");
    EXPECT_EQ(completions("--color n"), "never");
    EXPECT_EQ(completions("apply \"" LVT_DOCS "/messages\""), LVT_DOCS "/messages.md");
}

TEST(docs, completion_knows_values)
{
    EXPECT_EQ(completions("set port 1 --edge o"), "on off");
    EXPECT_EQ(completions("set port 1 --p2p a"), "auto");
    EXPECT_EQ(completions("inject bpdu 1 --type r"), "rst");
    EXPECT_EQ(completions("decode --as f"), "frame");
    EXPECT_EQ(completions("send ports --enable 1,2"), "1,2");
    // bash takes "=" for a word of its own.
    EXPECT_EQ(completions("send ports --edge 3"), "3=");
    EXPECT_EQ(completions("send ports --edge 3 = of"), "off");
    EXPECT_EQ(completions("send ports --edge 3 = off --p2p 4 ="), "on off auto");
    EXPECT_EQ(completions("send ports --edge 3 = off --cos"), "--cost");
    EXPECT_EQ(completions("send ports --priority 6 = 1"), "");
    EXPECT_EQ(completions("set port 1 --edge = of"), "off");
    EXPECT_EQ(completions("set port 1 --edge = off --p2p a"), "auto");
    EXPECT_EQ(completions("set --file = x.toml po"), "port");
    EXPECT_EQ(completions("set port 1,"), "1,1 1,2 1,3 1,4 1,5 1,6");
    EXPECT_EQ(completions("set port a"), "all");
    EXPECT_EQ(completions("--root /tmp show port b"), "");
    EXPECT_EQ(completions("show port 7"), "7");
    EXPECT_EQ(completions("expect port 1-3 f"), "forwards");
    EXPECT_EQ(completions("expect --within 30 port 1 is not d"), "designated disabled discarding down");
    EXPECT_EQ(completions("debug show rstp_s"), "rstp_statistics rstp_stp_state");
    EXPECT_EQ(completions("send aggr-config --enable --cos"), "--cost");
}

TEST(docs, examples_of_messages_are_right)
{
    const auto documented = documented_examples();
    const auto real = real_examples();
    ASSERT_EQ(documented.size(), real.size());
    for (size_t i = 0; i < real.size(); i++)
        EXPECT_EQ(hex(documented[i]), hex(real[i])) << "example " << i + 1;
}
