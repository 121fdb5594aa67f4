// What no well-behaved neighbour writes into the daemon's pipes. After each of these the daemon
// lives, and serves the next good message as if nothing had been.
#include <random>

#include <fcntl.h>
#include <fmt/format.h>
#include <gmock/gmock.h>
#include <sys/resource.h>

#include "daemon_actions.h"
#include "daemon_support.h"
#include "fixture.h"
#include "tests/seed.h"
#include "tools/messages.h"
#include "tools/pipe.h"

namespace {

using namespace e2e;
using testing::EndsWith;
using testing::HasSubstr;
using octets_t = std::vector<uint8_t>;

class daemon_bad_input : public switches_test_t {
protected:
    void SetUp() override
    {
        const rlimit no_core = {0, 0};
        setrlimit(RLIMIT_CORE, &no_core);
        device.start();
    }

    /// Sends a good message that nobody sent before, and looks whether it arrived.
    testing::AssertionResult serves_a_good_message()
    {
        lvt_rstp_system_config_t config = LVT_RSTP_SYSTEM_DEFAULTS;
        config.max_age = static_cast<uint16_t>(1000 + next_++);
        serve(device, system_config_message(config));
        const std::string report = ask(device, "debug show system_config");
        if (report.find(fmt::format(" {} ", config.max_age)) == std::string::npos)
            return testing::AssertionFailure() << "not served:\n" << report;
        return testing::AssertionSuccess();
    }

    long all_counted() const
    {
        long sum = 0;
        for (const counts_t &c : counts(device))
            sum += c.stp_received + c.rstp_received + c.tcn_received + c.unknown + c.illegal;
        return sum;
    }

    lab::switch_t &device = add_switch();

private:
    unsigned next_ = 0;
};

/// A frame whose header says another body length than it has.
octets_t with_length(octets_t message, uint32_t length)
{
    for (size_t i = 0; i < 4; i++)
        message[4 + i] = static_cast<uint8_t>(length >> 8 * i);
    return message;
}

octets_t joined(octets_t first, const octets_t &second)
{
    first.insert(first.end(), second.begin(), second.end());
    return first;
}

octets_t rubbish(std::mt19937 &random, size_t count)
{
    octets_t octets(count);
    for (uint8_t &octet : octets)
        octet = static_cast<uint8_t>(random());
    return octets;
}

TEST_F(daemon_bad_input, wrong_magic_drops_eight_octets)
{
    octets_t message = system_config_message(LVT_RSTP_SYSTEM_DEFAULTS);
    for (const size_t octet : {0, 1, 2, 3}) {
        octets_t wrong = message;
        wrong[octet] ^= 1;
        serve(device, wrong);
        EXPECT_TRUE(serves_a_good_message()) << octet;
    }

    // What follows the eight octets is the start of the next frame.
    lvt_rstp_system_config_t config = LVT_RSTP_SYSTEM_DEFAULTS;
    config.forward_delay = 77;
    serve(device, joined(octets_t(16, 0), system_config_message(config)));
    EXPECT_THAT(ask(device, "debug show system_config"), HasSubstr("        77 "));

    // It is not searched for.
    config.forward_delay = 88;
    serve(device, joined(octets_t(4, 0), system_config_message(config)));
    EXPECT_THAT(ask(device, "debug show system_config"), HasSubstr("        77 "));
    EXPECT_TRUE(serves_a_good_message());
    EXPECT_EQ(device.node().read(lab::DAEMON_OUTPUT_FILE), "");
}

TEST_F(daemon_bad_input, overlong_frames_are_discarded_whole)
{
    const octets_t body(2000, 0xEE);
    for (const uint32_t length : {1025u, 1500u, 2000u}) {
        serve(device, raw_message(RSTP_MSG_SYSTEM_CONFIG, std::span(body).first(length)));
        EXPECT_TRUE(serves_a_good_message()) << length;
    }

    // In one piece with a good message: exactly the frame is dropped, although its end looks like
    // the beginning of another one.
    lvt_rstp_system_config_t config = LVT_RSTP_SYSTEM_DEFAULTS;
    config.forward_delay = 99;
    octets_t frame = raw_message(RSTP_MSG_SYSTEM_CONFIG, std::span(body).first(1025));
    const octets_t beginning = work_flush_message();
    std::copy_n(beginning.begin(), sizeof(rstp_frame_header_t), frame.end() - sizeof(rstp_frame_header_t));
    serve(device, joined(frame, system_config_message(config)));
    EXPECT_THAT(ask(device, "debug show system_config"), HasSubstr("        99 "));

    // A length that no pipe holds takes all that is there, and no more.
    for (const uint32_t length : {4096u, 0x7FFFFFFFu, 0x80000000u, 0xFFFFFFF7u, 0xFFFFFFF8u, 0xFFFFFFFFu}) {
        serve(device, with_length(raw_message(RSTP_MSG_SYSTEM_CONFIG, std::span(body).first(12)), length));
        EXPECT_TRUE(serves_a_good_message()) << length;
        octets_t alone = with_length(system_config_message(config), length);
        alone.resize(sizeof(rstp_frame_header_t));
        serve(device, alone);
        EXPECT_TRUE(serves_a_good_message()) << length << " without anything behind it";
    }
    EXPECT_THAT(ask(device, "debug show system_config"), testing::Not(HasSubstr("61166"))); // 0xEEEE
}

TEST_F(daemon_bad_input, body_of_1024_octets_is_the_longest)
{
    lvt_rstp_system_config_t config = LVT_RSTP_SYSTEM_DEFAULTS;
    config.forward_delay = 123;
    octets_t body(1024, 0xEE);
    const auto *octets = reinterpret_cast<const uint8_t *>(&config);
    std::copy(octets, octets + sizeof config, body.begin());
    serve(device, raw_message(RSTP_MSG_SYSTEM_CONFIG, body));
    EXPECT_THAT(ask(device, "debug show system_config"), HasSubstr("       123 "));
    EXPECT_TRUE(serves_a_good_message());
}

TEST_F(daemon_bad_input, what_is_short_is_taken_as_zeros)
{
    serve(device, raw_message(RSTP_MSG_SYSTEM_CONFIG, {}));
    EXPECT_THAT(ask(device, "debug show system_config"),
                HasSubstr("          0         0            0           0           0\n"));
    EXPECT_TRUE(serves_a_good_message());

    octets_t half = system_config_message(LVT_RSTP_SYSTEM_DEFAULTS);
    half.resize(half.size() - 6); // priority and max age are there
    serve(device, half);
    EXPECT_THAT(ask(device, "debug show system_config"),
                HasSubstr("      32768        20            0           0           0\n"));
    EXPECT_TRUE(serves_a_good_message());

    for (uint8_t type = 0; type < 12; type++) {
        serve(device, raw_message(type, {}, 2));
        EXPECT_TRUE(serves_a_good_message()) << int{type};
    }
}

TEST_F(daemon_bad_input, header_alone_is_waited_for)
{
    lvt_rstp_system_config_t config = LVT_RSTP_SYSTEM_DEFAULTS;
    config.forward_delay = 55;
    const octets_t message = system_config_message(config);
    const size_t before = device.node().read(lab::CONSOLE_FILE).size();
    device.send(std::span(message).first(8));

    // The main thread waits; the clock goes on.
    const std::string question = "debug show system_config";
    ASSERT_TRUE(eventually(
        SOON, [&] { return octets_waiting(device, RSTP_IF_PIPE); }, 0));
    ASSERT_TRUE(write_to_pipe(device.node().path(RSTP_DBG_IF_PIPE),
                              {reinterpret_cast<const uint8_t *>(question.data()), question.size()})
                    .ok());
    EXPECT_TRUE(ticks(device, 2));
    EXPECT_EQ(octets_waiting(device, RSTP_DBG_IF_PIPE), question.size());
    EXPECT_EQ(device.node().read(lab::CONSOLE_FILE).size(), before);

    device.send(std::span(message).subspan(8));
    EXPECT_TRUE(eventually(
        SOON, [&] { return octets_waiting(device, RSTP_DBG_IF_PIPE); }, 0));
    EXPECT_THAT(ask(device, question), HasSubstr("        55 "));
    EXPECT_TRUE(serves_a_good_message());
}

TEST_F(daemon_bad_input, bpdu_from_no_port_is_dropped_uncounted)
{
    const octets_t frame = frame_of(superior_bpdu());
    for (const uint8_t octet : {0, 8, 9, 100, 128, 255}) {
        serve(device, bpdu_message(octet, frame));
        EXPECT_TRUE(serves_a_good_message()) << int{octet};
    }
    EXPECT_EQ(all_counted(), 0);
}

TEST_F(daemon_bad_input, bpdu_from_the_cpu_port_is_a_programming_error)
{
    device.send(bpdu_message(1, frame_of(superior_bpdu())));
    ASSERT_TRUE(eventually(
        SOON, [&] { return device.daemon().exit_code(); }, 128 + SIGABRT));
    EXPECT_EQ(device.node().read(lab::DAEMON_ERROR_FILE),
              "lvt_rstpd: lvt_rstp:1197: lvt_rstp_receive: Assertion `((from_port) <= (((6) * 1)))' failed.\n");
}

TEST_F(daemon_bad_input, status_of_no_port_is_a_programming_error)
{
    const std::string question = "debug show rstp_port_status 10";
    ASSERT_TRUE(write_to_pipe(device.node().path(RSTP_DBG_IF_PIPE),
                              {reinterpret_cast<const uint8_t *>(question.data()), question.size()})
                    .ok());
    ASSERT_TRUE(eventually(
        SOON, [&] { return device.daemon().exit_code(); }, 128 + SIGABRT));
    EXPECT_THAT(device.node().read(lab::DAEMON_ERROR_FILE),
                testing::MatchesRegex("lvt_rstpd: lvt_rstp:[0-9]+: [a-z_]+: Assertion "
                                      "`\\(\\(poag\\) > 0 && \\(poag\\) <= \\(\\(\\(6\\) \\* 1\\)\\) \\+ "
                                      "\\(\\(3 \\* 1\\)\\+\\(0 \\)\\)\\)' failed\\.\n"));
}

TEST_F(daemon_bad_input, long_bpdus_keep_their_first_octets)
{
    octets_t frame = octets_of(superior_bpdu(), 1024);
    std::fill(frame.begin() + sizeof(bpdu_t), frame.end(), uint8_t{0xFF});
    long expected = 0;
    for (const size_t octets : {60, 99, 100, 101, 500, 1024}) {
        serve(device, bpdu_message(4, std::span(frame).first(octets)));
        EXPECT_EQ(counts(device, 3), counts_t{.rstp_received = ++expected}) << octets;
    }

    // The stated length counts, not that of the body.
    for (const uint16_t stated : {1025, 1514, 65535}) {
        serve(device, bpdu_message(4, frame, stated));
        EXPECT_EQ(counts(device, 3), counts_t{.rstp_received = ++expected}) << stated;
    }
    serve(device, bpdu_message(4, std::span(frame).first(53), 400));
    EXPECT_EQ(counts(device, 3), counts_t{.rstp_received = ++expected});
    serve(device, bpdu_message(4, std::span(frame).first(53), 52));
    serve(device, bpdu_message(4, std::span(frame).first(53), 0));
    EXPECT_EQ(counts(device, 3), (counts_t{.rstp_received = expected, .illegal = 2}));
    EXPECT_TRUE(serves_a_good_message());
}

TEST_F(daemon_bad_input, debug_texts_of_all_kinds)
{
    const test_seed_t seed(20041);
    std::mt19937 random(seed.value);
    const std::string console = device.node().read(lab::CONSOLE_FILE);
    for (const std::string &text : {std::string("bug show system_config"), std::string("Debug show system_config"),
                                    std::string(" debug"), std::string(100, '\0'), std::string("\n")})
        EXPECT_EQ(ask(device, text), "") << text;
    EXPECT_EQ(ask(device, "debug bpdu_filter"), "");
    EXPECT_EQ(ask(device, "debug bpdu_filter maybe"), "");

    const std::string menu = ask(device, "debug");
    EXPECT_THAT(menu, HasSubstr("The RSTP debug command:\n"));
    EXPECT_EQ(ask(device, "debug " + std::string(94, 'x')), menu);
    EXPECT_EQ(ask(device, "debug show" + std::string(90, ' ')), menu);
    EXPECT_EQ(ask(device, "debug show a b c d e f g h i j k l m n o p q r s t u v w x y z"), menu);
    EXPECT_EQ(ask(device, "debug show rstp_port_status 1 2 3 4 5 6 7 8 9 10 11 12 13"), menu);
    EXPECT_EQ(ask(device, "debugging"), menu);
    EXPECT_EQ(ask(device, "debug    show   system_config\n"), ask(device, "debug show system_config_and_more"));

    // More than one read takes: the rest is a text of its own.
    EXPECT_EQ(ask(device, "debug " + std::string(94, 'x') + "debug"), menu + menu);
    EXPECT_EQ(ask(device, "debug " + std::string(94, 'x') + std::string(300, 'y')), menu);

    for (int i = 0; i < 200; i++) {
        const octets_t octets = rubbish(random, 1 + random() % 300);
        ask(device, std::string(octets.begin(), octets.end()));
    }
    EXPECT_TRUE(is_sound(device));
    EXPECT_THAT(device.node().read(lab::CONSOLE_FILE), testing::StartsWith(console));
}

TEST_F(daemon_bad_input, a_command_and_a_message_that_come_together)
{
    // The first header makes the daemon wait, so that all the rest is there when it looks again.
    lvt_rstp_system_config_t config = LVT_RSTP_SYSTEM_DEFAULTS;
    const octets_t first = system_config_message(config);
    device.send(std::span(first).first(8));
    ASSERT_TRUE(eventually(
        SOON, [&] { return octets_waiting(device, RSTP_IF_PIPE); }, 0));
    const size_t before = device.node().read(lab::CONSOLE_FILE).size();
    const std::string question = "debug show system_config";
    ASSERT_TRUE(write_to_pipe(device.node().path(RSTP_DBG_IF_PIPE),
                              {reinterpret_cast<const uint8_t *>(question.data()), question.size()})
                    .ok());
    config.forward_delay = 31;
    device.send(joined(octets_t(first.begin() + 8, first.end()), system_config_message(config)));
    serve_all(device);

    // The message is read first, but the command is served before the message is applied.
    const std::string answer = device.node().read(lab::CONSOLE_FILE).substr(before);
    EXPECT_THAT(answer, HasSubstr("      32768        20            2          15           2\n"));
    EXPECT_THAT(ask(device, question), HasSubstr("         31 "));
}

TEST_F(daemon_bad_input, rubbish_in_the_control_pipe)
{
    const test_seed_t seed(20040);
    std::mt19937 random(seed.value);
    for (int round = 0; round < 20; round++) {
        for (int i = 0; i < 20; i++)
            serve(device, rubbish(random, 1 + random() % 1500));
        ASSERT_TRUE(device.daemon().running()) << round;
        EXPECT_TRUE(serves_a_good_message()) << round;
    }
    EXPECT_TRUE(is_sound(device));
}

/// A frame with the right magic; all the rest is drawn.
octets_t drawn_message(std::mt19937 &random)
{
    const uint8_t type = static_cast<uint8_t>(random() % 14);
    octets_t body = rubbish(random, random() % (random() % 4 == 0 ? 1025 : 110));
    uint8_t port = static_cast<uint8_t>(random() % 3 == 0 ? random() : random() % 9);
    if (type == RSTP_MSG_BPDU) {
        if (port == 1) // a programming error; it has a test of its own
            port = 0;
        if (random() % 4 != 0) {
            const octets_t bpdu = frame_of(superior_bpdu());
            std::copy_n(bpdu.begin(), std::min(bpdu.size(), body.size()), body.begin());
            for (unsigned i = random() % 4; i > 0 && !body.empty(); i--)
                body[random() % body.size()] = static_cast<uint8_t>(random());
        }
    }
    if (type == RSTP_MSG_AGGR_STATUS)
        for (uint8_t &octet : body)
            octet %= 12;
    const auto stated = static_cast<uint16_t>(random() % 5 == 0 ? random() : body.size());
    octets_t message = raw_message(type, body, port, stated);
    if (random() % 10 == 0)
        message = with_length(std::move(message), random() % 2 == 0 ? random() % 1500 : random());
    // A frame header alone is waited for.
    constexpr size_t headers = sizeof(rstp_frame_header_t) + sizeof(rstp_msg_header_t);
    if (random() % 10 == 0)
        message.resize(message.size() - std::min<size_t>(random() % 20, message.size() - headers));
    return message;
}

TEST_F(daemon_bad_input, drawn_messages_of_all_types)
{
    const test_seed_t seed(20042);
    std::mt19937 random(seed.value);
    for (int round = 0; round < 15; round++) {
        for (int i = 0; i < 40; i++)
            serve(device, drawn_message(random));
        ASSERT_TRUE(device.daemon().running()) << round;
        EXPECT_TRUE(serves_a_good_message()) << round;
    }
    EXPECT_TRUE(is_sound(device));
    EXPECT_TRUE(ticks(device, 2));
    EXPECT_THAT(device.node().read(lab::STATUS_FILE), EndsWith("!\n"));
}

} // namespace
