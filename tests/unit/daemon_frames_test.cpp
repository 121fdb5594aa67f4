/// Frames on the CPU port, octet by octet, and the sockets under them.
#include <arpa/inet.h>
#include <fcntl.h>
#include <sys/socket.h>

#include <cstring>

#include "daemon_fixture.h"
#include "l2_proto_utility/os_api.h"
#include "rstp/step.h"

namespace {

class frames : public daemon_test {};

octets_t counting(size_t count)
{
    octets_t frame(count);
    for (size_t i = 0; i < count; i++)
        frame[i] = static_cast<uint8_t>(i + 1);
    return frame;
}

std::string zeros(size_t count)
{
    std::string text;
    for (size_t i = 0; i < count; i++)
        text += " 00";
    return text;
}

} // namespace

// ---- tag and padding --------------------------------------------------------------------

TEST_F(frames, tag_names_the_chip_port)
{
    const uint8_t last_octets[] = {0x82, 0x84, 0x88, 0x90, 0xC0, 0xA0}; // ports 5 and 6 are crossed
    const octets_t frame = counting(60);
    for (uint32_t port = 1; port <= 6; port++) {
        EXPECT_EQ(rstp_rawSocketIfTx(frame.data(), port, frame.size()), 0);
        const octets_t &sent = board.frames.back().octets;
        ASSERT_EQ(sent.size(), 64u);
        EXPECT_EQ(hex({sent.data() + 12, 3}), "88 99 84");
        EXPECT_EQ(sent[15], last_octets[port - 1]) << port;
    }
}

TEST_F(frames, tag_bits_add_up)
{
    uint8_t tag[] = {1, 2, 3, 0x10};
    lvt_cpu_tx_tag_source_port_set(tag, 0);
    lvt_cpu_tx_tag_source_port_set(tag, 4);
    EXPECT_EQ(hex({tag, 4}), "01 02 03 52");
    lvt_cpu_tx_tag_source_port_set(tag, 6); // the CPU's own port
    EXPECT_EQ(tag[3], 0x53);
    lvt_cpu_tx_tag_source_port_set(tag, 7); // no port: the bit lies outside the octet
    EXPECT_EQ(tag[3], 0x53);
}

TEST_F(frames, notification_is_padded_with_zeros)
{
    const octets_t frame = tcn_frame();
    EXPECT_EQ(rstp_rawSocketIfTx(frame.data(), 1, frame.size()), 0);
    EXPECT_EQ(hex(board.frames.back().octets),
              "01 80 c2 00 00 00 02 aa bb cc dd ee 88 99 84 82 "
              "00 07 42 42 03 00 00 00 80" +
                  zeros(39));
}

TEST_F(frames, lengths)
{
    const octets_t frame = counting(100);
    const struct {
        size_t given, sent;
    } rows[] = {{21, 64}, {52, 64}, {53, 64}, {59, 64}, {60, 64}, {61, 65}, {100, 104}};
    for (const auto &row : rows) {
        const octets_t exact(frame.begin(), frame.begin() + static_cast<ptrdiff_t>(row.given));
        EXPECT_EQ(rstp_rawSocketIfTx(exact.data(), 2, exact.size()), 0);
        const octets_t &sent = board.frames.back().octets;
        ASSERT_EQ(sent.size(), row.sent);
        EXPECT_EQ(hex({sent.data(), 12}), hex({exact.data(), 12}));
        EXPECT_EQ(hex({sent.data() + 16, row.given - 12}), hex({exact.data() + 12, row.given - 12}));
        for (size_t i = row.given + 4; i < sent.size(); i++)
            EXPECT_EQ(sent[i], 0) << "pad octet " << i << " of " << row.given;
    }
}

TEST_F(frames, what_is_no_ethernet_frame_is_refused)
{
    const octets_t frame = counting(2000);
    for (size_t length : {0, 11, 1515, 2000})
        EXPECT_EQ(rstp_rawSocketIfTx(frame.data(), 1, length), -1) << length;
    EXPECT_THAT(board.frames, IsEmpty());
    EXPECT_EQ(rstp_rawSocketIfTx(frame.data(), 1, 1514), 0);
    EXPECT_EQ(board.frames.back().octets.size(), 1518u);
}

TEST_F(frames, destination_and_flags_of_the_call)
{
    memset(&rstp_socket_addr, 0x5A, sizeof rstp_socket_addr);
    const octets_t frame = counting(60);
    rstp_rawSocketIfTx(frame.data(), 1, frame.size());
    const sent_frame_t &sent = board.frames.back();
    EXPECT_EQ(sent.fd, rstp_socket_fd);
    EXPECT_EQ(sent.address, octets_t(20, 0x5A));
}

TEST_F(frames, without_socket_nothing_is_sent)
{
    rstp_socket_fd = 0;
    const octets_t frame = counting(60);
    EXPECT_EQ(rstp_rawSocketIfTx(frame.data(), 1, frame.size()), -1);
    EXPECT_THAT(board.frames, IsEmpty());
}

TEST_F(frames, a_failed_socket_fails_in_sendto)
{
    rstp_socket_fd = -1;
    board.send_error = EBADF;
    const octets_t frame = counting(60);
    EXPECT_EQ(stderr_of([&] { EXPECT_EQ(rstp_rawSocketIfTx(frame.data(), 1, frame.size()), -1); }),
              "sendto: Bad file descriptor\n");
    EXPECT_EQ(board.frames.size(), 1u); // tried once
}

// ---- what the engine sends --------------------------------------------------------------

TEST_F(frames, rst_bpdu_of_each_port)
{
    boot({1, 2, 3, 4, 5, 6});
    send_enabled({1, 2, 3, 4, 5, 6});
    seconds(3);

    const char *tags[] = {"82", "84", "88", "90", "c0", "a0"};
    for (uint32_t port = 1; port <= 6; port++) {
        log_t sent;
        for (const sent_frame_t &frame : board.frames)
            if (hex({&frame.octets[15], 1}) == tags[port - 1])
                sent.push_back(hex(frame.octets));
        ASSERT_GE(sent.size(), 2u) << port;
        // Designated; the transmit machine is entered before the one that makes it propose.
        const char *flags[] = {"0c", "0e"};
        for (size_t i = 0; i < 2; i++) {
            const std::string number = std::to_string(port);
            EXPECT_EQ(sent[i], "01 80 c2 00 00 00 00 11 22 33 44 5" + number + " 88 99 84 " + tags[port - 1] +
                                   " 00 27 42 42 03 00 00 02 02 " + flags[i] +
                                   " 80 00 00 11 22 33 44 50 00 00 00 00" // root: this bridge
                                   " 80 00 00 11 22 33 44 50 80 0" +
                                   number + " 00 00 14 00 02 00 0f 00 00" + zeros(7));
        }
    }
}

TEST_F(frames, config_bpdu_after_a_neighbour_of_old)
{
    boot({5});
    send_system(
        {.bridge_priority = 0, .max_age = 10, .hello_time = 1, .forward_delay = 6, .force_version = 0, .reserved = 0});
    send_enabled({5});
    board.frames.clear();
    seconds(2);
    ASSERT_FALSE(board.frames.empty());
    EXPECT_EQ(hex(board.frames.front().octets),
              "01 80 c2 00 00 00 00 11 22 33 44 55 88 99 84 c0 00 26 42 42 03 00 00 00 00 00"
              " 00 00 00 11 22 33 44 50 00 00 00 00 00 00 00 11 22 33 44 50 80 05"
              " 00 00 0a 00 01 00 06 00" +
                  zeros(8));
}

TEST_F(frames, notification_of_a_root_port)
{
    boot({6});
    send_enabled({6});
    seconds(5);
    // A root that speaks STP, heard after the migration delay.
    send_bpdu(6, frame_of({.type = 0x00, .version = 0, .flags = 0}));
    seconds(1);
    board.frames.clear();
    record(6).newInfo = 1;
    seconds(1);
    ASSERT_EQ(record(6).role, ROLE_ROOT);
    ASSERT_FALSE(board.frames.empty());
    EXPECT_EQ(hex(board.frames.front().octets),
              "01 80 c2 00 00 00 00 11 22 33 44 56 88 99 84 a0 00 07 42 42 03 00 00 00 80" + zeros(39));
}

TEST_F(frames, counted_before_they_are_lost)
{
    boot({1});
    send_enabled({1});
    board.send_error = ENOBUFS;
    const std::string told = stderr_of([&] { seconds(3); });
    EXPECT_GT(record(1).rstp_frame_xmits, 0u);
    EXPECT_EQ(record(1).rstp_frame_xmits, board.frames.size());
    EXPECT_THAT(told, testing::StartsWith("sendto: No buffer space available\n"));

    board.send_error = 0; // nothing is left over: the next hello goes out
    board.frames.clear();
    seconds(2);
    EXPECT_FALSE(board.frames.empty());
}

TEST_F(frames, memory_shortage_costs_a_bpdu_and_a_place_in_the_hold_count)
{
    boot({1});
    send_enabled({1});
    seconds(10);
    board.frames.clear();
    const uint32_t counted = record(1).rstp_frame_xmits;
    record(1).newInfo = 1;
    record(1).txCount = 0;
    record(1).helloWhen = 2;
    board.allocations_left = 0;
    STP_stpm_update();
    lvt_rstp_run_pending();
    board.allocations_left = -1;
    EXPECT_THAT(board.frames, IsEmpty());
    EXPECT_EQ(record(1).rstp_frame_xmits, counted);
    EXPECT_EQ(record(1).newInfo, 0);
    EXPECT_EQ(record(1).txCount, 1);
}

TEST_F(frames, tx_counts_by_type)
{
    boot({1});
    const struct {
        uint8_t type;
        uint32_t port_t::*counter;
    } rows[] = {{0x00, &port_t::stp_frame_xmits}, {0x02, &port_t::rstp_frame_xmits}, {0x80, &port_t::tcn_frame_xmits}};
    for (const auto &row : rows) {
        const octets_t frame = frame_of({.type = row.type});
        EXPECT_EQ(STP_OUT_tx_bpdu(3, 1, frame.data(), 0, frame.size()), 0);
        EXPECT_EQ(record(3).*row.counter, 1u);
    }
    octets_t odd = frame_of({});
    odd[20] = 0x01;
    EXPECT_EQ(STP_OUT_tx_bpdu(3, 1, odd.data(), 0, odd.size()), 0); // sent, not counted
    EXPECT_EQ(record(3).stp_frame_xmits + record(3).rstp_frame_xmits + record(3).tcn_frame_xmits, 3u);
    EXPECT_EQ(board.frames.size(), 4u);
    EXPECT_EQ(record(1).rstp_frame_xmits, 0u);
}

TEST_F(frames, tx_of_a_deleted_group_is_nothing)
{
    boot();
    lvt_rstp_aggr_del(8);
    const octets_t frame = frame_of({});
    EXPECT_EQ(STP_OUT_tx_bpdu(8, 1, frame.data(), 0, frame.size()), 0);
    EXPECT_THAT(board.frames, IsEmpty());
    EXPECT_EQ(record(8).rstp_frame_xmits, 0u);
}

TEST_F(frames, tx_of_no_port_is_a_programming_error)
{
    boot();
    const octets_t frame = frame_of({});
    for (uint32_t port : {0u, 10u})
        EXPECT_DEATH(STP_OUT_tx_bpdu(port, 1, frame.data(), 0, frame.size()),
                     HasSubstr(assertion("lvt_rstp:1314", "STP_OUT_tx_bpdu",
                                         "((port_index) > 0 && (port_index) <= (((6) * 1)) + ((3 * 1)+(0 )))")));
}

// ---- buffers ----------------------------------------------------------------------------

TEST_F(frames, buffers)
{
    uint16_t tag = 0xFFFF;
    uint8_t *buffer = lvt_os_alloc_xmit(6, 21, &tag);
    ASSERT_NE(buffer, nullptr);
    EXPECT_EQ(tag, 0);
    memset(buffer - 12, 0x55, 60 + 16); // headroom before, padding and a tag behind
    packet_tx_free(buffer);

    buffer = packet_tx_alloc(1000);
    ASSERT_NE(buffer, nullptr);
    memset(buffer - 12, 0x55, 1000 + 16);
    packet_tx_free(buffer);

    for (uint32_t group = 7; group <= 9; group++)
        EXPECT_EQ(lvt_os_alloc_xmit(group, 53, &tag), nullptr);
}

TEST_F(frames, no_buffer_without_memory)
{
    uint16_t tag;
    board.allocations_left = 0;
    uint8_t *const by_length = packet_tx_alloc(60);
    uint8_t *const by_port = lvt_os_alloc_xmit(1, 60, &tag);
    board.allocations_left = -1;
    EXPECT_EQ(by_length, nullptr);
    EXPECT_EQ(by_port, nullptr);
}

TEST_F(frames, buffer_assertions)
{
    uint16_t tag;
    for (uint32_t l2port : {0u, 10u})
        EXPECT_DEATH(lvt_os_alloc_xmit(l2port, 53, &tag), asserts("lvt_os_alloc_xmit", "l2port_is_valid(l2port)"));
    EXPECT_DEATH(packet_tx_free(nullptr), asserts("packet_tx_free", "buffer != ((void *)0)"));
    for (uint32_t l2port : {0u, 7u})
        EXPECT_DEATH(lvt_os_xmit(l2port, nullptr), asserts("lvt_os_xmit", "l2port_is_port(l2port)"));
}

TEST_F(frames, os_xmit_takes_nothing)
{
    uint16_t tag;
    uint8_t *buffer = lvt_os_alloc_xmit(1, 53, &tag);
    EXPECT_EQ(lvt_os_xmit(1, buffer), 0);
    EXPECT_THAT(board.frames, IsEmpty());
    packet_tx_free(buffer); // it was not freed
}

// ---- sockets ----------------------------------------------------------------------------

TEST_F(frames, socket_and_address)
{
    int fd = -5;
    sockaddr_ll address;
    memset(&address, 0xFF, sizeof address);
    EXPECT_EQ(initSocket(&fd, &address, "eth0"), 0);
    EXPECT_EQ(fd, 77);
    EXPECT_EQ(board.socket_interface, "eth0");
    // family, protocol, interface index, hardware type, packet type, address length, address
    EXPECT_EQ(hex(board.socket_address), "11 00 00 03 00 00 00 00 01 00 03 06 00 00 00 00 00 02 00 00");
    EXPECT_EQ(hex({reinterpret_cast<uint8_t *>(&address), sizeof address}),
              "11 00 00 03 2a 00 00 00 01 00 03 06 00 00 00 00 00 02 00 00");

    board.socket_result = -1;
    EXPECT_EQ(initSocket(&fd, &address, "eth0"), 0);
    EXPECT_EQ(fd, -1);
}

namespace {

/// A socket for the next one-shot operation; the other end.
int next_socket()
{
    int ends[2];
    EXPECT_EQ(socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0, ends), 0);
    board.socket_result = ends[0];
    return ends[1];
}

} // namespace

TEST_F(frames, one_shot_receive)
{
    int other = next_socket();
    const uint8_t octets[] = {1, 2, 3};
    ASSERT_EQ(write(other, octets, sizeof octets), 3);
    uint8_t buffer[10];
    EXPECT_EQ(rstp_rawSocketOnceRx(buffer, sizeof buffer, "eth0"), 3);
    EXPECT_EQ(hex({buffer, 3}), "01 02 03");
    EXPECT_EQ(fcntl(board.socket_result, F_GETFD), -1); // closed
    close(other);

    close(next_socket()); // nobody is at the other end
    EXPECT_THAT(stderr_of([&] { EXPECT_EQ(rstp_rawSocketOnceRx(buffer, sizeof buffer, "eth0"), 0); }),
                testing::StartsWith("recvfrom error: "));
    board.socket_result = -1;
    EXPECT_EQ(stderr_of([&] { EXPECT_EQ(rstp_rawSocketOnceRx(buffer, sizeof buffer, "eth0"), -1); }),
              "recvfrom error: Bad file descriptor\n");

    board.socket_result = 0;
    EXPECT_EQ(rstp_rawSocketOnceRx(buffer, sizeof buffer, "eth0"), -1);
}

TEST_F(frames, one_shot_send)
{
    int other = next_socket();
    const octets_t frame = counting(64);
    EXPECT_EQ(rstp_rawSocketOnceTx(frame.data(), frame.size(), "eth0"), 0);
    ASSERT_EQ(board.frames.size(), 1u);
    EXPECT_EQ(board.frames[0].fd, board.socket_result);
    EXPECT_EQ(board.frames[0].octets, frame); // as it is: no tag
    EXPECT_EQ(fcntl(board.socket_result, F_GETFD), -1);
    close(other);

    other = next_socket();
    board.send_error = ENETDOWN;
    EXPECT_EQ(stderr_of([&] { EXPECT_EQ(rstp_rawSocketOnceTx(frame.data(), frame.size(), "eth0"), 0); }),
              "sendto: Network is down\n");
    close(other);
    board.socket_result = 0;
    EXPECT_EQ(rstp_rawSocketOnceTx(frame.data(), frame.size(), "eth0"), -1);
}
