// What leaves through the CPU port, octet by octet, and what a protocol analyser makes of it.
#include <algorithm>
#include <array>
#include <list>
#include <map>
#include <memory>
#include <stdexcept>

#include <fmt/format.h>
#include <fmt/ranges.h>
#include <gmock/gmock.h>
#include <nlohmann/json.hpp>
#include <sys/socket.h>
#include <tins/tins.h>

#include "board/lab/cable.h"
#include "daemon_support.h"
#include "fixture.h"
#include "tests/bpdus.h"
#include "tools/decode.h"
#include "tools/messages.h"

namespace {

using namespace e2e;
using octets_t = std::vector<uint8_t>;
using nlohmann::json;

/// Everything that passes an interface, from the moment that the object is there.
class capture_t {
public:
    capture_t(const lab::node_t &node, const std::string &interface) : socket_(node.packet_socket(interface)) {}

    const std::vector<octets_t> &frames()
    {
        octets_t frame(2048);
        for (ssize_t got; (got = recv(socket_.number(), frame.data(), frame.size(), MSG_DONTWAIT)) >= 0;)
            frames_.emplace_back(frame.begin(), frame.begin() + got);
        return frames_;
    }

    /// Those of a BPDU type, with or without the switch tag.
    std::vector<octets_t> bpdus(uint8_t type)
    {
        std::vector<octets_t> found;
        for (const octets_t &frame : frames())
            if (const octets_t plain = without_switch_tag(frame); is_bpdu(plain) && read_bpdu(plain).type == type)
                found.push_back(frame);
        return found;
    }

private:
    fd_t socket_;
    std::vector<octets_t> frames_;
};

void write_file(const std::string &path, const std::vector<octets_t> &frames)
{
    Tins::PacketWriter writer(path, Tins::DataLinkType<Tins::Dot3>());
    for (const octets_t &frame : frames) {
        Tins::RawPDU octets(frame);
        writer.write(octets);
    }
}

class daemon_frames : public switches_test_t {
protected:
    static constexpr std::array PORTS = {1, 4, 5, 6};

    void SetUp() override
    {
        if (lab::find_program("tshark").empty())
            GTEST_SKIP() << "cannot run here: there is no tshark";
        for (const int port : PORTS) {
            const std::string interface = fmt::format("port{}", port);
            cables_.emplace_back(device.port(port), lab::cable_end_t{&far, interface, far.mac(port)});
            at_port.emplace(port, std::make_unique<capture_t>(far, interface));
        }
        device.start();
    }

    static constexpr lvt_rstp_system_config_t BRIDGE = {
        .bridge_priority = 24576, .max_age = 9, .hello_time = 1, .forward_delay = 2, .force_version = 2, .reserved = 0};

    void take_part(uint8_t force_version)
    {
        lvt_rstp_system_config_t config = BRIDGE;
        config.force_version = force_version;
        serve(device, system_config_message(config));
        port_configs_t configs = enabled({1, 4, 5, 6});
        for (lvt_rstp_port_config_t &port : configs)
            port.adminEdge = 0;
        configs[4].port_priority = 16;
        configs[4].adminPathCost = 1234;
        serve(device, port_config_message(configs));
    }

    /// The analyser's view of frames: for each one its layers.
    json analysed(const std::vector<octets_t> &frames) const
    {
        write_file(far.path("/tmp/frames.pcap"), frames);
        const lab::outcome_t outcome =
            far.run({.argv = {"sh", "-c", "exec tshark -r /tmp/frames.pcap -T json 2>/tmp/tshark.err"},
                     .environment = {"HOME=/tmp"}});
        json layers = json::array();
        for (const json &packet : json::parse(outcome.output))
            layers.push_back(packet.at("_source").at("layers"));
        if (outcome.exit_code != 0 || layers.size() != frames.size())
            throw std::runtime_error("tshark: " + far.read("/tmp/tshark.err"));
        return layers;
    }

    capture_t &at(int port) { return *at_port.at(port); }

    lab::switch_t &device = add_switch();
    lab::node_t far{"far", 100};
    capture_t at_cpu{device.node(), "cpu0"};
    std::map<int, std::unique_ptr<capture_t>> at_port;

private:
    std::list<lab::cable_t> cables_;
};

/// What a field of a layer says, however deep it stands; "none" when it is not there.
std::string field(const json &layer, const std::string &name)
{
    if (!layer.is_object())
        return "none";
    if (layer.contains(name))
        return layer.at(name).is_string() ? layer.at(name).get<std::string>() : layer.at(name).dump();
    for (const auto &[key, inner] : layer.items())
        if (std::string found = field(inner, name); found != "none")
            return found;
    return "none";
}

std::string fields(const json &layer, std::initializer_list<const char *> names)
{
    std::string text;
    for (const char *name : names)
        text += fmt::format("{}={}\n", name, field(layer, name));
    return text;
}

/// The switch's addresses are 02:00:00:00:01:00 and, for its ports, those that follow.
std::string ethernet_of(int port, int length, int padding)
{
    return fmt::format("eth.dst=01:80:c2:00:00:00\neth.src=02:00:00:00:01:{:02x}\neth.len={}\neth.padding={}\n", port,
                       length, fmt::join(std::vector<std::string>(static_cast<size_t>(padding), "00"), ":"));
}

std::string ethernet_in(const json &layers)
{
    return fields(layers.at("eth"), {"eth.dst", "eth.src", "eth.len", "eth.padding"});
}

std::string llc_in(const json &layers) { return fields(layers.at("llc"), {"llc.dsap", "llc.ssap", "llc.control"}); }

constexpr char LLC[] = "llc.dsap=0x42\nllc.ssap=0x42\nllc.control=0x0003\n";

constexpr std::initializer_list<const char *> BPDU_FIELDS = {
    "stp.protocol", "stp.version",   "stp.type",        "stp.flags",      "stp.root.prio",       "stp.root.ext",
    "stp.root.hw",  "stp.root.cost", "stp.bridge.prio", "stp.bridge.ext", "stp.bridge.hw",       "stp.port",
    "stp.msg_age",  "stp.max_age",   "stp.hello",       "stp.forward",    "stp.version_1_length"};

struct expected_bpdu_t {
    std::string version, type, flags;
    std::string root_priority, root_address, cost;
    std::string port;
    std::string message_age, max_age, hello_time, forward_delay;
    std::string version_1_length;
};

std::string text_of(const expected_bpdu_t &b)
{
    return fmt::format(
        "stp.protocol=0x0000\nstp.version={}\nstp.type={}\nstp.flags={}\n"
        "stp.root.prio={}\nstp.root.ext=0\nstp.root.hw={}\nstp.root.cost={}\n"
        "stp.bridge.prio=24576\nstp.bridge.ext=0\nstp.bridge.hw=02:00:00:00:01:00\nstp.port={}\n"
        "stp.msg_age={}\nstp.max_age={}\nstp.hello={}\nstp.forward={}\nstp.version_1_length={}\n",
        b.version, b.type, b.flags, b.root_priority, b.root_address, b.cost, b.port, b.message_age, b.max_age,
        b.hello_time, b.forward_delay, b.version_1_length);
}

TEST_F(daemon_frames, rst_bpdus)
{
    take_part(2);
    ASSERT_TRUE(status_within(device, 20s, [](const lab::bridge_status_t &status) {
        return status.port(1).state == HW_FORWARDING && status.port(6).state == HW_FORWARDING;
    }));
    ASSERT_TRUE(ticks(device, 2));

    unsigned changes = 0;
    for (const int port : PORTS) {
        const std::vector<octets_t> frames = at(port).bpdus(BPDU_TYPE_RST);
        ASSERT_GE(frames.size(), 3u) << port;
        const json layers = analysed(frames);
        expected_bpdu_t expected = {.version = "2",
                                    .type = "0x02",
                                    .flags = "",
                                    .root_priority = "24576",
                                    .root_address = "02:00:00:00:01:00",
                                    .cost = "0",
                                    .port = fmt::format("0x{:02x}{:02x}", port == 4 ? 16 : 128, port),
                                    .message_age = "0",
                                    .max_age = "9",
                                    .hello_time = "1",
                                    .forward_delay = "2",
                                    .version_1_length = "0"};
        std::string course;
        for (const json &frame : layers) {
            EXPECT_EQ(ethernet_in(frame), ethernet_of(port, 39, 7));
            EXPECT_EQ(llc_in(frame), LLC);
            expected.flags = field(frame.at("stp"), "stp.flags");
            EXPECT_EQ(fields(frame.at("stp"), BPDU_FIELDS), text_of(expected));
            const unsigned flags = static_cast<unsigned>(std::stoul(expected.flags, nullptr, 16));
            changes += flags & BPDU_FLAG_TC;
            if (const std::string word = fmt::format(" {:02x}", flags & ~1u); !course.ends_with(word))
                course += word;
        }
        // A designated port proposes, is in step with the others, learns and forwards.
        EXPECT_THAT(course, testing::MatchesRegex("( 0c)?( 0e)?( 4e)? 5e 7e")) << port;
        EXPECT_EQ(fields(layers.back().at("stp"), {"stp.flags.tcack", "stp.flags.agreement", "stp.flags.forwarding",
                                                   "stp.flags.learning", "stp.flags.port_role", "stp.flags.proposal"}),
                  "stp.flags.tcack=0\nstp.flags.agreement=1\nstp.flags.forwarding=1\nstp.flags.learning=1\n"
                  "stp.flags.port_role=3\nstp.flags.proposal=1\n");
    }
    EXPECT_GT(changes, 0u) << "nobody tells that ports began to forward";
}

TEST_F(daemon_frames, rst_bpdus_of_a_root_port)
{
    take_part(2);
    ASSERT_TRUE(ticks(device, 2));
    told_t told = root_bridge(4096, 0x99);
    told.cost = 70000;
    told.times = {.MessageAge = 3, .MaxAge = 20, .ForwardDelay = 15, .HelloTime = 2};
    hear(device, 4, rst_bpdu(told, BPDU_FLAG_PROPOSAL));
    hear(device, 4, rst_bpdu(told, BPDU_FLAG_PROPOSAL));
    const auto last_role = [&] {
        const auto frames = at(4).bpdus(BPDU_TYPE_RST);
        return frames.empty() ? -1 : bpdu_role(read_bpdu(frames.back()).flags);
    };
    ASSERT_TRUE(eventually(SOON, last_role, BPDU_ROLE_ROOT));
    const json last = analysed(at(4).bpdus(BPDU_TYPE_RST)).back();
    EXPECT_EQ(ethernet_in(last), ethernet_of(4, 39, 7));
    const json &stp = last.at("stp");
    EXPECT_EQ(field(stp, "stp.flags.port_role"), "2");
    EXPECT_EQ(fields(stp, {"stp.root.prio", "stp.root.hw", "stp.root.cost", "stp.bridge.prio", "stp.bridge.hw",
                           "stp.port", "stp.msg_age", "stp.max_age", "stp.hello", "stp.forward"}),
              "stp.root.prio=4096\nstp.root.hw=02:00:00:00:99:00\nstp.root.cost=71234\n"
              "stp.bridge.prio=24576\nstp.bridge.hw=02:00:00:00:01:00\nstp.port=0x1004\n"
              "stp.msg_age=4\nstp.max_age=20\nstp.hello=2\nstp.forward=15\n");
}

TEST_F(daemon_frames, configuration_bpdus)
{
    take_part(0);
    ASSERT_TRUE(ticks(device, 3));
    for (const int port : PORTS) {
        EXPECT_TRUE(at(port).bpdus(BPDU_TYPE_RST).empty());
        const json layers = analysed(at(port).bpdus(BPDU_TYPE_CONFIG));
        ASSERT_GE(layers.size(), 2u) << port;
        std::string flags = "0x00";
        for (const json &frame : layers) {
            if (flags == "0x00") // until the port forwards, and tells of the change
                flags = field(frame.at("stp"), "stp.flags");
            EXPECT_EQ(ethernet_in(frame), ethernet_of(port, 38, 8));
            EXPECT_EQ(llc_in(frame), LLC);
            EXPECT_EQ(fields(frame.at("stp"), BPDU_FIELDS),
                      text_of({.version = "0",
                               .type = "0x00",
                               .flags = flags,
                               .root_priority = "24576",
                               .root_address = "02:00:00:00:01:00",
                               .cost = "0",
                               .port = fmt::format("0x{:02x}{:02x}", port == 4 ? 16 : 128, port),
                               .message_age = "0",
                               .max_age = "9",
                               .hello_time = "1",
                               .forward_delay = "2",
                               .version_1_length = "none"}));
        }
        EXPECT_THAT(flags, testing::AnyOf("0x00", "0x01"));
    }
}

TEST_F(daemon_frames, a_configuration_bpdu_acknowledges_a_topology_change)
{
    take_part(0);
    ASSERT_TRUE(ticks(device, 3));
    hear(device, 6, tcn_bpdu());
    const auto acknowledges = [](const octets_t &frame) { return is_ack(read_bpdu(frame)); };
    ASSERT_TRUE(eventually(
        SOON, [&] { return std::ranges::count_if(at(6).bpdus(BPDU_TYPE_CONFIG), acknowledges); }, Gt(0)));
    const auto frames = at(6).bpdus(BPDU_TYPE_CONFIG);
    const auto found = std::find_if(frames.begin(), frames.end(), acknowledges);
    const json stp = analysed({*found}).front().at("stp");
    EXPECT_EQ(field(stp, "stp.flags.tcack"), "1");
    EXPECT_EQ(field(stp, "stp.type"), "0x00");
}

TEST_F(daemon_frames, tcn_bpdus)
{
    take_part(0);
    ASSERT_TRUE(ticks(device, 2));
    told_t told = root_bridge(4096, 0x99);
    told.times = {.MessageAge = 0, .MaxAge = 6, .ForwardDelay = 1, .HelloTime = 2};
    // The root port tells of itself when it forwards.
    const auto notifications = [&] {
        hear(device, 5, config_bpdu(told));
        return at(5).bpdus(BPDU_TYPE_TCN).size();
    };
    ASSERT_TRUE(eventually(20s, notifications, Gt(0u), 200ms));

    const std::vector<octets_t> frames = at(5).bpdus(BPDU_TYPE_TCN);
    for (const json &frame : analysed(frames)) {
        EXPECT_EQ(ethernet_in(frame), ethernet_of(5, 7, 39));
        EXPECT_EQ(llc_in(frame), LLC);
        EXPECT_EQ(fields(frame.at("stp"), {"stp.protocol", "stp.version", "stp.type", "stp.flags"}),
                  "stp.protocol=0x0000\nstp.version=0\nstp.type=0x80\nstp.flags=none\n");
    }
    for (const octets_t &frame : frames)
        EXPECT_EQ(hex(frame, ""),
                  "0180c20000000200000001050007424203"
                  "0000"
                  "00"
                  "80" +
                      std::string(78, '0'));
    for (const int port : {1, 4, 6})
        EXPECT_TRUE(at(port).bpdus(BPDU_TYPE_TCN).empty()) << port;
    EXPECT_GE(counts(device, 5).tcn_sent, static_cast<long>(frames.size()));
}

TEST_F(daemon_frames, the_tag_names_the_chip_port)
{
    take_part(2);
    ASSERT_TRUE(ticks(device, 3));

    std::map<std::string, size_t> tags;
    for (const octets_t &frame : at_cpu.bpdus(BPDU_TYPE_RST)) {
        ASSERT_EQ(frame.size(), 64u);
        EXPECT_EQ(hex(std::span(frame).first(6), ""), "0180c2000000");
        EXPECT_EQ(hex(std::span(frame).subspan(57), ""), std::string(14, '0')) << "padding";
        tags[hex(std::span(frame).subspan(11, 5), "")]++;
    }
    // The last octet of the source address is the front port; 5 and 6 are crossed on the board.
    std::vector<std::string> seen;
    for (const auto &[tag, count] : tags)
        seen.push_back(tag);
    EXPECT_THAT(seen, testing::ElementsAre("0188998482", "0488998490", "05889984c0", "06889984a0"));
}

TEST_F(daemon_frames, the_chip_takes_the_tag_off_and_nothing_else)
{
    take_part(2);
    ASSERT_TRUE(ticks(device, 3));
    const size_t frames = at_cpu.frames().size();
    ASSERT_GE(at_cpu.bpdus(BPDU_TYPE_RST).size(), frames) << "something else was sent";

    std::map<std::string, size_t> from_cpu, at_ports;
    ASSERT_TRUE(lab::within(SOON,
                            [&] { // all that was sent until now has come
                                from_cpu.clear();
                                at_ports.clear();
                                for (const octets_t &frame : at_cpu.frames())
                                    from_cpu[hex(without_switch_tag(frame))]++;
                                for (const int port : PORTS)
                                    for (const octets_t &frame : at(port).frames())
                                        at_ports[hex(frame)]++;
                                return at_ports == from_cpu;
                            }))
        << testing::PrintToString(at_ports) << " instead of " << testing::PrintToString(from_cpu);
    EXPECT_GE(from_cpu.size(), 4u);
}

} // namespace
