/// lvt_rstpctl inject and decode: messages and BPDUs made up and explained.
#include <cstring>
#include <sstream>

#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include "rstp/bpdu.h"
#include "tests/seed.h"
#include "tools/decode.h"
#include "tools_ctl.h"
#include "tools_frames.h"

namespace {

class inject : public ctl {};
class decode_command : public ctl {};

} // namespace

// ---- inject ----------------------------------------------------------------------------

TEST_F(inject, links_of_all_ports)
{
    port_statuses_t ports{};
    expect_sends("inject link all=down", port_status_message(ports), "link down at all ports");
    for (const size_t i : {0, 1, 2})
        ports[i] = {.ignored = 0, .link = 1, .speed = 2, .duplex = 1};
    ports[3] = {.ignored = 0, .link = 1, .speed = 1, .duplex = 0};
    ports[5] = {.ignored = 0, .link = 1, .speed = 5, .duplex = 1};
    expect_sends("inject link 1-3=up 4=100/half 5=down 6=10000/full", port_status_message(ports));

    expect_usage("inject link 1", "LINK: \"1\" should read LIST=up|down|SPEED/full|SPEED/half");
    expect_usage("inject link 1=left", "LINK: \"left\" should read up, down, SPEED/full or SPEED/half");
    expect_usage("inject link 1=33/full", "LINK: \"33\" is none of 10, 100, 1000, 2500, 5000, 10000");
    expect_usage("inject link 1=10/both", "LINK: \"both\" is none of half, full");
    expect_refused("inject link 7=up", "port 7: allowed is 1 to 6");
    expect_usage("inject", "A subcommand is required");
}

TEST_F(inject, groups) { expect_sends("inject groups 7=1-2", aggr_status_message({0, 7, 7, 3, 4, 5, 6})); }

TEST_F(inject, a_bpdu_of_fields)
{
    const std::string fields = "--source 02:00:00:00:99:00 --root-id 4096/02:00:00:00:99:00 --flags proposal";
    expect_sends("inject bpdu 2 " + fields, bpdu_message(3, rst_frame()));
    expect_sends("inject bpdu 5 " + fields, bpdu_message(7, rst_frame()));
    std::vector<uint8_t> both = bpdu_message(3, rst_frame());
    const std::vector<uint8_t> second = bpdu_message(7, rst_frame());
    both.insert(both.end(), second.begin(), second.end());
    expect_sends("inject bpdu 2,5 " + fields, both,
                 fmt::format("a frame of {} octets, as received on port 2,5", rst_frame().size()));

    octets_t frame = rst_frame();
    const size_t flags = offsetof(bpdu_t, flags);
    frame[flags] = 0x78 | 0x01;
    frame[offsetof(bpdu_t, root_path_cost) + 3] = 200;
    frame[offsetof(bpdu_t, bridge_priority)] = 0x80;
    frame[offsetof(bpdu_t, bridge_address) + 5] = 7;
    frame[offsetof(bpdu_t, port_id)] = 0x10;
    frame[offsetof(bpdu_t, message_age)] = 1;
    frame[offsetof(bpdu_t, max_age)] = 6;
    frame[offsetof(bpdu_t, hello_time)] = 1;
    frame[offsetof(bpdu_t, forward_delay)] = 255;
    expect_sends(
        "inject bpdu 1 --source 02:00:00:00:99:00 --root-id 4096/02:00:00:00:99:00 --cost 200"
        " --bridge-id 32768/02:00:00:00:99:07 --port-id 0x1001 --message-age 1 --max-age 6 --hello 1"
        " --forward-delay 255 --role root --flags tc,learning,forwarding,agreement",
        bpdu_message(2, frame));
}

TEST_F(inject, bpdus_of_the_older_protocol)
{
    const std::string fields = " --source 02:00:00:00:99:00 --root-id 4096/02:00:00:00:99:00";
    octets_t frame = rst_frame();
    frame.pop_back();
    frame[offsetof(bpdu_t, length) + 1] = BPDU_CONFIG_OCTETS + BPDU_LLC_OCTETS;
    frame[offsetof(bpdu_t, version)] = 0;
    frame[offsetof(bpdu_t, type)] = BPDU_TYPE_CONFIG;
    frame[offsetof(bpdu_t, flags)] = BPDU_FLAG_TC_ACK;
    expect_sends("inject bpdu 1 --type config --flags tc-ack" + fields, bpdu_message(2, frame));

    frame.resize(offsetof(bpdu_t, flags));
    frame[offsetof(bpdu_t, length) + 1] = BPDU_TCN_OCTETS + BPDU_LLC_OCTETS;
    frame[offsetof(bpdu_t, type)] = BPDU_TYPE_TCN;
    expect_sends("inject bpdu 1 --type tcn --source 02:00:00:00:99:00", bpdu_message(2, frame));
    expect_usage("inject bpdu 1 --type tcn --cost 9", "--type tcn has no fields but --source");
    expect_usage("inject bpdu 1 --type config --role root", "--role goes with --type rst only");
}

TEST_F(inject, a_bpdu_of_hex)
{
    expect_sends(fmt::format("inject bpdu 6 --hex '{}'", hex(rst_frame())), bpdu_message(6, rst_frame()));
    expect_sends(fmt::format("inject bpdu 6 --hex '{}'", hex(tagged(rst_frame()))), bpdu_message(6, rst_frame()));
    expect_sends("inject bpdu 6 --hex 01-80:C2", bpdu_message(6, octets_t{0x01, 0x80, 0xC2}));
    expect_usage("inject bpdu 6 --hex 01g0", "\"g\" is no digit of octets in hex");
    expect_usage("inject bpdu 6 --hex 1", "1 digit in hex is no whole octet");
    expect_usage("inject bpdu 6 --hex 018", "3 digits in hex are no whole octets");
    expect_usage("inject bpdu 6 --hex 01 --cost 3", "fields do not go with --hex or --capture");
    expect_refused("inject bpdu 6 --hex " + std::string(2050, '0'), "a frame has 1 to 1024 octets, this one has 1025");
}

TEST_F(inject, fields_that_are_none)
{
    expect_usage("inject bpdu", "LIST is required");
    expect_refused("inject bpdu 7", "port 7: allowed is 1 to 6");
    expect_usage("inject bpdu x", "LIST: \"x\" is not a number");
    expect_usage("inject bpdu 1 --type mst", "--type: \"mst\" is none of rst, config, tcn");
    expect_usage("inject bpdu 1 --role king", "--role: \"king\" is none of unknown, alternate, root, designated");
    expect_usage("inject bpdu 1 --flags tc,up",
                 "--flags: \"up\" is none of tc, proposal, learning, forwarding, agreement, tc-ack");
    expect_usage("inject bpdu 1 --root-id 4096", "--root-id: \"4096\" should read PRIORITY/ADDRESS");
    expect_usage("inject bpdu 1 --root-id 4096/02:00:00:00:00",
                 "--root-id: \"02:00:00:00:00\" should read as 02:00:00:00:01:00");
    expect_refused("inject bpdu 1 --root-id 65536/02:00:00:00:00:01", "priority 65536: allowed is 0 to 65535");
    expect_refused("inject bpdu 1 --cost 4294967296", "path cost 4294967296: allowed is 0 to 4294967295");
    expect_refused("inject bpdu 1 --port-id 0x10000", "port identifier 65536: allowed is 0 to 65535");
    expect_refused("inject bpdu 1 --max-age 256", "--max-age 256: allowed is 0 to 255 s");
}

TEST_F(inject, dry_run_tells_the_bpdu)
{
    const run_t result = run("--dry-run inject bpdu 2 --root-id 4096/02:00:00:00:99:00");
    EXPECT_TRUE(
        result.output.starts_with("to /tmp/rstp_if_pipe, 69 octets:\n"
                                  "received frame (type 0)\n"
                                  "  port octet 3, front port 2\n"
                                  "  RST BPDU of 4096/02:00:00:00:99:00, root 4096/02:00:00:00:99:00, cost 0, "
                                  "port 1, priority 128 (designated)\n"))
        << result.output;
}

// ---- decode ----------------------------------------------------------------------------

TEST_F(decode_command, a_control_message)
{
    expect_says("decode 'bc301182 06000000 0a00060000000000 010000000001'",
                "control message, LACP on ports\n"
                "    0  bc 30 11 82               magic                   control message\n"
                "    4  06 00 00 00               frame length            6 octets of body\n"
                "    8  0a                        type                    10, LACP on ports\n"
                "    9  00                        port                    ignored\n"
                "   10  06 00                     length                  ignored\n"
                "   12  00 00 00 00               reserved\n"
                "   16  01                        port 1 LACP             on\n"
                "   17  00                        port 2 LACP             off\n"
                "   18  00                        port 3 LACP             off\n"
                "   19  00                        port 4 LACP             off\n"
                "   20  00                        port 5 LACP             off\n"
                "   21  01                        port 6 LACP             on\n");
}

TEST_F(decode_command, a_tagged_frame)
{
    const run_t result = run_on_board("decode " + hex(tagged(rst_frame())));
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.output,
              "RST BPDU of 4096/02:00:00:00:99:00, root 4096/02:00:00:00:99:00, cost 0, port 1, priority 128 "
              "(designated, proposal)\n"
              "    0  01 80 c2 00 00 00         destination             01:80:c2:00:00:00\n"
              "    6  02 00 00 00 99 00         source                  02:00:00:00:99:00\n"
              "   12  88 99 84 82               switch tag              out of front port 1\n"
              "   16  00 27                     length                  39\n"
              "   18  42 42 03                  LLC                     spanning tree\n"
              "   21  00 00                     protocol                0\n"
              "   23  02                        version                 2, RSTP\n"
              "   24  02                        type                    RST BPDU\n"
              "   25  0e                        flags                   designated, proposal\n"
              "   26  10 00                     root priority           4096\n"
              "   28  02 00 00 00 99 00         root address            02:00:00:00:99:00\n"
              "   34  00 00 00 00               root path cost          0\n"
              "   38  10 00                     bridge priority         4096\n"
              "   40  02 00 00 00 99 00         bridge address          02:00:00:00:99:00\n"
              "   46  80 01                     port identifier         port 1, priority 128\n"
              "   48  00 00                     message age             0 s\n"
              "   50  14 00                     max age                 20 s\n"
              "   52  02 00                     hello time              2 s\n"
              "   54  0f 00                     forward delay           15 s\n"
              "   56  00                        version 1 length        0\n");
}

TEST_F(decode_command, a_tag_has_its_last_bit_and_may_name_no_port_or_several)
{
    EXPECT_EQ(decode(tagged(rst_frame(), 0x02)).fault,
              "this begins as none of the daemon's messages, and as a frame it carries no BPDU");
    for (const uint8_t last_octet : {0x80, 0x81, 0x86})
        EXPECT_NE(decoded_text(decode(tagged(rst_frame(), last_octet))).find("no single front port"), std::string::npos)
            << int{last_octet};
    EXPECT_NE(decoded_text(decode(tagged(rst_frame(), 0xC0))).find("out of front port 5"), std::string::npos);
}

TEST_F(decode_command, a_stream_of_messages)
{
    const std::string stream = hex(work_flush_message()) + hex(aggr_status_message({0, 7, 7, 3, 4, 5, 200}));
    expect_says("decode --brief " + stream,
                "control message, empty the work table\n"
                "control message, groups of ports\n");
    const run_t result = run_on_board("decode " + stream);
    EXPECT_NE(result.output.find("   17  07                        port 1                  in group 7\n"),
              std::string::npos)
        << result.output;
    EXPECT_NE(result.output.find("   22  c8                        port 6                  alone\n"), std::string::npos)
        << result.output;
}

TEST_F(decode_command, standard_input)
{
    const run_t result = run("decode --brief - <<'END'\n" + hex(rst_frame()).substr(0, 30) + "\n" +
                             hex(rst_frame()).substr(30) + "\nEND\ntrue");
    EXPECT_TRUE(result.output.starts_with("RST BPDU of 4096/")) << result.output;
}

TEST_F(decode_command, what_is_cut_off_is_told)
{
    const auto fault_of_octets = [](octets_t octets, size_t size) {
        octets.resize(size);
        return decode(octets).fault;
    };
    const octets_t message = system_config_message(LVT_RSTP_SYSTEM_DEFAULTS);
    EXPECT_EQ(fault_of_octets(message, message.size()), "");
    for (size_t size = 8; size < message.size(); size++)
        EXPECT_EQ(fault_of_octets(message, size), fmt::format("{} of its 26 octets are missing", 26 - size));
    for (size_t size = 17; size < rst_frame().size(); size++)
        EXPECT_EQ(fault_of_octets(rst_frame(), size), "the frame is cut off");

    EXPECT_EQ(decode(raw_message(RSTP_MSG_SYSTEM_CONFIG, octets_t{1, 2})).fault, "the body is too short for type 3");
    EXPECT_EQ(decode(octets_t{0xAC, 0x01, 0x43, 0x52, 6, 0, 0, 0, 7}).fault, "the message is cut off");
    EXPECT_EQ(decode(octets_t{0xB2, 0x06, 0x66, 0xA8}).fault, "the message is cut off");

    const run_t result = run_on_board("decode bc301182 01");
    EXPECT_EQ(result.status, 1);
    EXPECT_NE(result.output.find("lvt_rstpctl: not all of it is sound: see the faults above\n"), std::string::npos);
}

TEST_F(decode_command, brief_tells_no_more_than_is_there)
{
    const auto brief = [this](octets_t octets, size_t size) {
        octets.resize(size);
        const run_t result = run_on_board("decode --brief " + hex(octets));
        EXPECT_EQ(result.status, 1) << result.output;
        return result.output;
    };
    const std::string end = "lvt_rstpctl: not all of it is sound: see the faults above\n";
    EXPECT_EQ(brief(rst_frame(), 40), "RST BPDU, cut off\n  fault: the frame is cut off\n" + end);
    EXPECT_EQ(brief(rst_frame(), 17), "BPDU, cut off\n  fault: the frame is cut off\n" + end);
    EXPECT_EQ(brief(work_flush_message(), 4),
              "control message, cut off\n  fault: 12 of its 16 octets are missing\n" + end);
    EXPECT_EQ(brief(bpdu_message(2, rst_frame()), 20),
              "control message, received frame, cut off\n  fault: 49 of its 69 octets are missing\n" + end);
    EXPECT_EQ(brief({0xB2, 0x06, 0x66, 0xA8}, 4),
              "message to the port multiplexer, cut off\n  fault: the message is cut off\n" + end);
    EXPECT_EQ(brief({0xAC, 0x01, 0x43, 0x52, 6, 0, 0, 0, 7}, 9),
              "message to the LACP daemon, cut off\n  fault: the message is cut off\n" + end);
}

TEST_F(decode_command, what_the_daemon_would_not_take_is_told)
{
    octets_t message = raw_message(RSTP_MSG_LACP_ENABLE, octets_t(1025));
    EXPECT_EQ(decode(message).fault, "a body has at most 1024 octets: the daemon drops this message");
    octets_t frame = rst_frame();
    frame[offsetof(bpdu_t, length) + 1] = 40;
    EXPECT_EQ(decode(frame).fault, "its length field speaks of 54 octets, but there are 53");
    EXPECT_EQ(decode(other_frame()).fault,
              "this begins as none of the daemon's messages, and as a frame it carries no BPDU");
    EXPECT_EQ(decode(other_frame(), kind_t::frame).fault, "");

    const run_t result = run_on_board("decode " + hex(bpdu_message(1, rst_frame())));
    EXPECT_NE(result.output.find("1, which is no front port"), std::string::npos) << result.output;
}

TEST_F(decode_command, bpdus_in_vlans)
{
    octets_t frame = rst_frame();
    frame.insert(frame.begin() + 12, {0x81, 0x00, 0xE0, 0x05});
    EXPECT_EQ(decode(frame).fault, "");
    EXPECT_EQ(decode(frame).title, decode(rst_frame()).title + ", in VLAN 5");
    frame.insert(frame.begin() + 12, {0x88, 0xA8, 0x00, 0x64});
    const std::string text = decoded_text(decode(tagged(frame)));
    EXPECT_TRUE(text.starts_with(decode(rst_frame()).title + ", in VLAN 100 in VLAN 5\n")) << text;
    EXPECT_NE(text.find("   12  88 99 84 82               switch tag              out of front port 1\n"
                        "   16  88 a8 00 64               VLAN tag                VLAN 100, priority 0\n"
                        "   20  81 00 e0 05               VLAN tag                VLAN 5, priority 7\n"
                        "   24  00 27                     length                  39\n"),
              std::string::npos)
        << text;
}

TEST_F(decode_command, a_bpdu_of_one_vlans_tree)
{
    octets_t frame = rst_frame();
    const octets_t header = {0xAA, 0xAA, 0x03, 0x00, 0x00, 0x0C, 0x01, 0x0B};
    frame.erase(frame.begin() + 14, frame.begin() + 17);
    frame.insert(frame.begin() + 14, header.begin(), header.end());
    const decoded_t decoded = decode(frame);
    EXPECT_EQ(decoded.fault, "");
    EXPECT_EQ(decoded.title, "per-VLAN " + decode(rst_frame()).title);
    EXPECT_NE(decoded_text(decoded).find("   27  10 00                     root priority "), std::string::npos)
        << decoded_text(decoded); // behind five octets more
}

TEST_F(decode_command, an_mst_bpdu)
{
    octets_t frame = rst_frame();
    frame[offsetof(bpdu_t, version)] = 3;
    frame[offsetof(bpdu_t, length) + 1] = 39 + 2 + 80;
    octets_t mst = {0, 80, 0, 'l', 'a', 'b'};
    mst.resize(2 + 1 + 32);
    mst.insert(mst.end(), {0, 7});
    mst.resize(mst.size() + 16, 0xDD);
    mst.insert(mst.end(), {0, 0, 0, 9, 0x80, 0, 2, 0, 0, 0, 0x77, 0, 19});
    mst.insert(mst.end(), {0x7C, 0x70, 0x02, 2, 0, 0, 0, 0x77, 1, 0, 0, 1, 0, 0x80, 0x80, 18});
    frame.insert(frame.end(), mst.begin(), mst.end());
    const decoded_t decoded = decode(frame);
    EXPECT_EQ(decoded.fault, "");
    EXPECT_TRUE(decoded.title.starts_with("MST BPDU of 4096/02:00:00:00:99:00, root ")) << decoded.title;
    const std::string text = decoded_text(decoded);
    for (const char *words :
         {"configuration name      \"lab\"", "configuration revision  7", "CIST internal cost      9",
          "CIST bridge priority    32768", "CIST hops left          19",
          "MSTI 2 flags            designated, learning, forwarding, agreement", "MSTI 2 root priority    28672",
          "MSTI 2 internal cost    256", "MSTI 2 hops left        18"})
        EXPECT_NE(text.find(words), std::string::npos) << words << "\n" << text;
    for (size_t size = frame.size() - 1; size > frame.size() - mst.size() + 1; size--) {
        frame.resize(size);
        EXPECT_NE(decode(frame).fault, "") << size;
    }
}

TEST_F(decode_command, other_protocols_by_name)
{
    octets_t frame = other_frame();
    const auto title = [&](uint8_t high, uint8_t low, uint8_t subtype) {
        frame[12] = high;
        frame[13] = low;
        frame[14] = subtype;
        return decode(frame, kind_t::frame).title;
    };
    EXPECT_EQ(title(0x88, 0x09, 1), "LACP frame of 60 octets, no BPDU");
    EXPECT_EQ(title(0x88, 0x09, 2), "marker frame of 60 octets, no BPDU");
    EXPECT_EQ(title(0x88, 0xCC, 0), "LLDP frame of 60 octets, no BPDU");
    EXPECT_EQ(title(0x08, 0x00, 0), "frame of 60 octets, no BPDU");
}

TEST_F(decode_command, what_a_bpdu_should_not_say_is_in_its_headline)
{
    const auto expect_fault = [](size_t offset, uint8_t octet, const std::string &fault) {
        octets_t frame = rst_frame();
        frame[offset] = octet;
        EXPECT_EQ(decode(frame).fault, fault);
        EXPECT_EQ(decode(frame).title, decode(rst_frame()).title + ", " + fault);
    };
    expect_fault(offsetof(bpdu_t, protocol), 1, "protocol identifier 256, which is not 0");
    expect_fault(offsetof(bpdu_t, version), 0, "version 0, which has no RST BPDUs");
    expect_fault(offsetof(bpdu_t, message_age), 20, "message age 20 s, not below max age 20 s");
}

TEST_F(decode_command, as_json)
{
    const run_t result = run_on_board("decode -j " + hex(work_flush_message()) + hex(tagged(rst_frame())));
    EXPECT_EQ(result.status, 0);
    std::istringstream lines(result.output);
    std::string line;
    std::getline(lines, line);
    nlohmann::json document = nlohmann::json::parse(line);
    EXPECT_EQ(document["version"], 2);
    EXPECT_EQ(document["title"], "control message, empty the work table");
    EXPECT_EQ(document["frame"], nullptr);
    EXPECT_EQ(document["time"], nullptr);
    EXPECT_EQ(document["fault"], nullptr);
    EXPECT_EQ(document["octets"], 16);
    EXPECT_EQ(
        document["fields"][0],
        nlohmann::json::parse(R"({"offset": 0, "octets": "bc301182", "name": "magic", "value": "control message"})"));
    std::getline(lines, line);
    EXPECT_EQ(nlohmann::json::parse(line)["fields"][2]["value"], "out of front port 1");
}

TEST_F(decode_command, any_octets_at_all)
{
    // Whatever comes is explained within its bounds; the sanitizers watch.
    const test_seed_t seed(20261120);
    uint32_t random = seed.value;
    for (int round = 0; round < 2000; round++) {
        octets_t octets(round % 150);
        for (uint8_t &octet : octets)
            octet = static_cast<uint8_t>((random = random * 1664525 + 1013904223) >> 24);
        if (round % 4 == 1 && octets.size() > 8)
            std::copy_n(rstp_magic_number_arr, 4, octets.begin());
        if (round % 4 == 2 && octets.size() > 8)
            std::copy_n(lacp_msg_magic, 4, octets.begin());
        size_t explained = 0;
        for (const decoded_t &decoded : decode_all(octets)) {
            EXPECT_FALSE(decoded_text(decoded).empty());
            explained += decoded.octets;
        }
        EXPECT_EQ(explained, octets.size()) << round;
    }
}

TEST_F(decode_command, a_kind_by_name)
{
    EXPECT_TRUE(run("decode --as lacp " + hex(rst_frame())).output.starts_with("message to the LACP daemon, cut "));
    EXPECT_TRUE(run("decode --as mux " + hex(rst_frame())).output.starts_with("message to the port multiplexer"));
    EXPECT_TRUE(run("decode --as control " + hex(rst_frame())).output.starts_with("control message"));
    expect_usage("decode --as music 00", "--as: \"music\" is none of any, control, lacp, mux, frame");
    expect_usage("decode", "decode: give octets in hex, or --capture FILE");
    for (const int type : {7, 8, 11, 99}) { // as long as the one that is known, but ignored
        const run_t result = run(fmt::format("decode bc 30 11 82 00 00 00 00 {:02x} 00 00 00 00 00 00 00", type));
        EXPECT_EQ(result.status, 1) << type;
        EXPECT_NE(result.output.find(fmt::format("type {} is not known: the daemon ignores this message", type)),
                  std::string::npos)
            << result.output;
    }
    expect_usage("decode - </dev/null", "decode: there are no octets in hex");
    expect_usage("decode --as lacp --capture x", "--as: a capture holds frames");
    expect_usage("decode 0g", "\"g\" is no digit of octets in hex");
    expect_usage("decode 10xbc", "\"x\" is no digit of octets in hex");
    for (const char *prefixed : {"0xbc301182000000000600000000000000", "0xbc 0x30 0x11:0x82 000000000600000000000000"})
        expect_says(std::string("decode --brief ") + prefixed, "control message, empty the work table\n");
}
