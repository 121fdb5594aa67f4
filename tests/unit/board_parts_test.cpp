// Parts of the board's process that need neither network nor namespaces.
#include <gtest/gtest.h>

#include <cstddef>
#include <cstring>
#include <fstream>
#include <sstream>
#include <vector>

#include <fcntl.h>
#include <fmt/format.h>
#include <linux/if.h>
#include <linux/rtnetlink.h>
#include <sys/socket.h>
#include <unistd.h>

#include "platform/messages.h"
#include "lvt_board/event_log.h"
#include "lvt_board/links.h"
#include "lvt_board/pipes.h"
#include "lvt_board/reports.h"
#include "lvt_board/show.h"

namespace {

/// A reader on a pipe of its own, and the end to write into.
struct wired_reader_t {
    wired_reader_t()
    {
        int ends[2];
        EXPECT_EQ(pipe2(ends, O_NONBLOCK), 0);
        reader = {"", fd_t(ends[0]), {}};
        writer = fd_t(ends[1]);
    }

    template <typename record_t>
    void put(const record_t &record, std::size_t count = sizeof(record_t), std::size_t from = 0)
    {
        const auto *first = reinterpret_cast<const char *>(&record) + from;
        ASSERT_EQ(write(writer.number(), first, count), static_cast<ssize_t>(count));
    }

    reader_t reader;
    fd_t writer;
};

port_mux_msg_t mux_message(std::uint8_t port, std::uint8_t forwarding)
{
    port_mux_msg_t message = {};
    std::memcpy(message.magic, PORT_MUX_MAGIC, sizeof message.magic);
    message.length = 100;
    message.type = PORT_MUX_MSG_FORWARDING;
    message.l2port = port;
    message.forwarding = forwarding;
    return message;
}

lacp_frame_t lacp_frame(std::initializer_list<std::uint8_t> flags)
{
    lacp_frame_t frame = {};
    std::memcpy(frame.magic, lacp_msg_magic, sizeof frame.magic);
    frame.length = static_cast<std::uint32_t>(flags.size());
    frame.type = LACP_MSG_RSTP_STATUS;
    std::copy(flags.begin(), flags.end(), frame.body);
    return frame;
}

constexpr std::size_t LACP_OCTETS = 18; // header and six flags

TEST(board_mux, messages_are_read_one_by_one)
{
    wired_reader_t wired;
    EXPECT_TRUE(mux_read(wired.reader).empty());
    wired.put(mux_message(3, 1));
    wired.put(mux_message(9, 0));
    const auto heard = mux_read(wired.reader);
    ASSERT_EQ(heard.size(), 2u);
    EXPECT_EQ(heard[0]["port"], 3);
    EXPECT_EQ(heard[0]["forwarding"], true);
    EXPECT_EQ(heard[0]["raw"].get<std::string>().substr(0, 24), "b20666a86400000002000300");
    EXPECT_EQ(heard[0]["raw"].get<std::string>().size(), 2 * sizeof(port_mux_msg_t));
    EXPECT_EQ(heard[1]["port"], 9);
    EXPECT_EQ(heard[1]["forwarding"], false);
}

TEST(board_mux, a_message_in_pieces_is_put_together)
{
    wired_reader_t wired;
    const port_mux_msg_t message = mux_message(5, 1);
    for (std::size_t from = 0; from < sizeof message; from += 31) {
        EXPECT_TRUE(mux_read(wired.reader).empty());
        wired.put(message, 31, from);
    }
    ASSERT_EQ(mux_read(wired.reader).size(), 1u);
}

TEST(board_mux, garbage_is_told_and_left_behind)
{
    wired_reader_t wired;
    wired.put("xy", 2);
    const auto heard = mux_read(wired.reader);
    ASSERT_EQ(heard.size(), 1u);
    EXPECT_TRUE(heard[0].contains("error"));
    EXPECT_EQ(heard[0]["raw"], "7879");
    wired.put(mux_message(1, 1));
    EXPECT_EQ(mux_read(wired.reader).at(0)["port"], 1);
}

TEST(board_lacp, enabled_ports_are_listed)
{
    wired_reader_t wired;
    wired.put(lacp_frame({1, 0, 7, 0, 0, 1}), LACP_OCTETS);
    const auto heard = lacp_read(wired.reader);
    ASSERT_EQ(heard.size(), 1u);
    EXPECT_EQ(heard[0]["enabled"], (std::vector<int>{1, 3, 6}));
    EXPECT_EQ(heard[0]["raw"], "ac0143520600000007000000010007000001");
}

TEST(board_lacp, other_types_are_kept_raw)
{
    wired_reader_t wired;
    lacp_frame_t frame = lacp_frame({1, 2});
    frame.type = 9;
    wired.put(frame, 14);
    const auto heard = lacp_read(wired.reader);
    ASSERT_EQ(heard.size(), 1u);
    EXPECT_EQ(heard[0]["type"], 9);
    EXPECT_FALSE(heard[0].contains("enabled"));
}

TEST(board_lacp, a_length_beyond_any_frame_is_garbage)
{
    wired_reader_t wired;
    lacp_frame_t frame = lacp_frame({1, 1, 1, 1, 1, 1});
    frame.length = sizeof frame.body + 1;
    wired.put(frame, LACP_OCTETS);
    const auto heard = lacp_read(wired.reader);
    ASSERT_EQ(heard.size(), 1u);
    EXPECT_TRUE(heard[0].contains("error"));
    wired.put(lacp_frame({0, 0, 0, 0, 0, 0}), LACP_OCTETS);
    EXPECT_EQ(lacp_read(wired.reader).at(0)["enabled"].size(), 0u);
}

TEST(board_lacp, the_longest_frame_is_read)
{
    wired_reader_t wired;
    lacp_frame_t frame = lacp_frame({});
    frame.length = sizeof frame.body;
    wired.put(frame);
    EXPECT_EQ(lacp_read(wired.reader).size(), 1u);
}

TEST(board_speed, codes_are_those_of_the_next_lower_speed)
{
    const std::pair<unsigned, unsigned> rows[] = {{0, 0},    {10, 0},   {99, 0},   {100, 1},  {1000, 2},
                                                  {2499, 2}, {2500, 3}, {5000, 3}, {10000, 3}};
    for (const auto &[mbit, code] : rows)
        EXPECT_EQ(link_speed_code(mbit), code) << mbit;
}

TEST(board_speed, only_what_the_phys_can_do_is_accepted)
{
    EXPECT_EQ(speed_of(100, false).mbit, 100u);
    EXPECT_FALSE(speed_of(100, false).full_duplex);
    for (const unsigned mbit : {0u, 11u, 5000u, 10000u})
        EXPECT_THROW(speed_of(mbit, true), std::invalid_argument) << mbit;
}

TEST(board_links, an_interface_that_does_not_exist_is_down)
{
    int index = 99;
    EXPECT_EQ(link_sample("nosuchport", index), link_t{});
    EXPECT_EQ(index, 0);
}

/// An announcement as the kernel sends it.
std::vector<char> announcement(std::uint16_t type, int index, unsigned flags, int master)
{
    struct {
        nlmsghdr header;
        ifinfomsg info;
        rtattr name_head;
        char name[8];
        rtattr master_head;
        int master;
    } message = {};
    message.header.nlmsg_len = master != 0 ? sizeof message : offsetof(decltype(message), master_head);
    message.header.nlmsg_type = type;
    message.info.ifi_index = index;
    message.info.ifi_flags = flags;
    message.name_head = {RTA_LENGTH(sizeof message.name), IFLA_IFNAME};
    message.master_head = {RTA_LENGTH(sizeof message.master), IFLA_MASTER};
    message.master = master;
    const auto *octets = reinterpret_cast<const char *>(&message);
    return {octets, octets + message.header.nlmsg_len};
}

TEST(board_links, announcements_tell_of_which_interface_they_are)
{
    int ends[2];
    ASSERT_EQ(socketpair(AF_UNIX, SOCK_DGRAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0, ends), 0);
    const fd_t kernel(ends[0]), events(ends[1]);
    const std::vector<char> cut = announcement(RTM_NEWLINK, 9, IFF_UP, 1);
    for (const auto &octets : {announcement(RTM_NEWLINK, 3, IFF_UP | IFF_LOWER_UP, 7),
                               announcement(RTM_NEWLINK, 4, IFF_UP, 0), announcement(RTM_DELLINK, 5, IFF_LOWER_UP, 0),
                               announcement(RTM_NEWADDR, 6, IFF_UP, 7), std::vector(cut.begin(), cut.end() - 1)})
        ASSERT_EQ(send(kernel.number(), octets.data(), octets.size(), 0), static_cast<ssize_t>(octets.size()));
    std::string told;
    link_events_read(events, [&](const link_news_t &news) {
        told += fmt::format("{} {} of {}, ", news.index, news.carrier ? "up" : "down", news.master);
    });
    EXPECT_EQ(told, "3 up of 7, 4 down of 0, 5 down of 0, ");
}

TEST(board_log, has_one_line_per_event_written_at_once)
{
    char path[] = "/tmp/unit_board_log.XXXXXX";
    close(mkstemp(path));
    std::ofstream(path) << "from another board\n";

    const board_clock_t clock;
    event_log_t log(clock);
    log.line("link", "lost, since there is no file yet");
    log.open(path);
    log.line("link", "port={} up={} | port {}: no link", 3, 0, 3);
    std::stringstream text;
    text << std::ifstream(path).rdbuf();
    const std::string line = text.str();
    const auto space = line.find(' ');
    ASSERT_NE(space, std::string::npos);
    EXPECT_EQ(line.substr(space), " link port=3 up=0 | port 3: no link\n");
    EXPECT_EQ(line.find_first_not_of("0123456789."), space);
    EXPECT_EQ(space - line.find('.'), 7u) << "microseconds: " << line;
    unlink(path);
    EXPECT_THROW(log.open("/nonexistent/log"), std::system_error);
}

TEST(board_show, ports_are_laid_out_as_a_table)
{
    const nlohmann::json ports = nlohmann::json::parse(R"([
        {"port": 5, "chip": 6, "interface": "port5", "present": true, "link": true, "mbit": 100,
         "full_duplex": false, "state": 4, "state_name": "forwarding", "trunk": 7},
        {"port": 6, "chip": 5, "interface": "port6", "present": false, "link": false, "mbit": 0,
         "full_duplex": false, "state": 0, "state_name": "disabled", "trunk": 0}])");
    EXPECT_EQ(show_text("ports", ports),
              "port  chip  interface  link              trunk  state\n"
              "5     6     port5      100 half          7      4 forwarding\n"
              "6     5     port6      no interface      -      0 disabled\n");
}

TEST(board_show, messages_are_told_in_words)
{
    const nlohmann::json messages = nlohmann::json::parse(R"([
        {"seconds": 1.5, "pipe": "mux", "type": 2, "port": 3, "forwarding": false, "raw": ""},
        {"seconds": 2, "pipe": "lacp", "type": 7, "enabled": [1, 2], "raw": ""},
        {"seconds": 3, "pipe": "lacp", "type": 8, "raw": ""},
        {"seconds": 4, "pipe": "mux", "error": "not a message", "raw": "00"}])");
    EXPECT_EQ(show_text("messages", messages),
              "     seconds  pipe  message\n"
              "    1.500000  mux   port 3 does not forward\n"
              "    2.000000  lacp  spanning tree on at ports [1, 2]\n"
              "    3.000000  lacp  unknown type\n"
              "    4.000000  mux   not a message\n");
}

} // namespace
