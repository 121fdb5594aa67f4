/// What the daemon asks of its process, answered by the system.
#include <fcntl.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstring>
#include <ctime>
#include <fstream>
#include <thread>

#include "daemon_fixture.h"

namespace {

class process : public daemon_test {};

int flags_of(int fd) { return fcntl(fd, F_GETFL) & (O_ACCMODE | O_NONBLOCK); }

} // namespace

// ---- pipes ------------------------------------------------------------------------------

TEST_F(process, pipes_are_opened_for_reading_and_writing)
{
    const int waits = system_open_pipe(path("rstp_if_pipe").c_str(), PIPE_WAITS);
    const int never_waits = system_open_pipe(path("rstp_if_pipe").c_str(), PIPE_NEVER_WAITS);
    EXPECT_EQ(flags_of(waits), O_RDWR);
    EXPECT_EQ(flags_of(never_waits), O_RDWR | O_NONBLOCK);
    close(waits);
    close(never_waits);
}

TEST_F(process, what_is_no_pipe_is_not_opened)
{
    std::ofstream(path("file")) << "kept";
    for (const std::string &name : {path("file"), path("missing"), std::string("/dev/null"), board.folder})
        for (const pipe_mode_t mode : {PIPE_WAITS, PIPE_NEVER_WAITS})
            EXPECT_EQ(system_open_pipe(name.c_str(), mode), -1) << name;
    EXPECT_EQ(system_write_once(path("file").c_str(), "x", 1), -1);
    std::string text;
    std::getline(std::ifstream(path("file")), text);
    EXPECT_EQ(text, "kept");
}

TEST_F(process, writing_once_never_waits)
{
    const octets_t message(4096, 7);
    int written = 0;
    while (system_write_once(path("lacp_if_pipe").c_str(), message.data(), message.size()) > 0)
        written += 4096;
    EXPECT_EQ(errno, EAGAIN); // the pipe is full
    EXPECT_EQ(lacp_received().size(), static_cast<size_t>(written));
}

TEST_F(process, writing_once_needs_no_reader)
{
    close(lacp_reader);
    lacp_reader = -1;
    EXPECT_EQ(system_write_once(path("lacp_if_pipe").c_str(), "lost", 4), 4);
}

TEST_F(process, the_wait_leaves_what_can_be_read)
{
    write_debug("x");
    fd_set readable;
    FD_ZERO(&readable);
    FD_SET(control_fd, &readable);
    FD_SET(debug_fd, &readable);
    EXPECT_EQ(system_wait_pipes(std::max(control_fd, debug_fd) + 1, &readable), 1);
    EXPECT_FALSE(FD_ISSET(control_fd, &readable));
    EXPECT_TRUE(FD_ISSET(debug_fd, &readable));
    FD_SET(control_fd, &readable);
    close(control_fd);
    EXPECT_EQ(system_wait_pipes(std::max(control_fd, debug_fd) + 1, &readable), -1);
    control_fd = -1;
}

// ---- frames -----------------------------------------------------------------------------

TEST_F(process, a_socket_that_cannot_be_had_is_told)
{
    sockaddr_ll address = {};
    address.sll_family = AF_PACKET;
    int fd = 0;
    rlimit limit = {};
    getrlimit(RLIMIT_NOFILE, &limit);
    const rlimit none = {0, limit.rlim_max};
    testing::internal::CaptureStderr();
    setrlimit(RLIMIT_NOFILE, &none);
    fd = system_open_socket("eth0", &address);
    setrlimit(RLIMIT_NOFILE, &limit);
    EXPECT_EQ(testing::internal::GetCapturedStderr(),
              "Cannot create socket!!: Too many open files\nCannot bind!!: Bad file descriptor\n");
    EXPECT_EQ(fd, -1);
    EXPECT_EQ(address.sll_ifindex, 0);
}

TEST_F(process, a_frame_that_cannot_be_sent_is_told)
{
    const sockaddr_ll address = {};
    const uint8_t frame[60] = {};
    EXPECT_EQ(system_send_frame(-1, frame, sizeof frame, &address), -1);
    EXPECT_EQ(errno, EBADF);
}

TEST_F(process, a_deaf_socket_forgets_and_hears_nothing)
{
    int ends[2];
    ASSERT_EQ(socketpair(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0, ends), 0);
    ASSERT_EQ(write(ends[1], "before", 6), 6);
    system_deafen_socket(ends[0]);
    (void)!write(ends[1], "after", 5);
    char octets[10];
    EXPECT_EQ(read(ends[0], octets, sizeof octets), -1);
    EXPECT_EQ(errno, EAGAIN);
    close(ends[0]);
    close(ends[1]);
}

TEST_F(process, the_kind_of_an_interface_is_told)
{
    sockaddr address;
    ASSERT_EQ(system_interface_address("lo", &address), 0);
    EXPECT_EQ(address.sa_family, 772);
    EXPECT_EQ(system_interface_address("no such one", &address), -1);
    EXPECT_EQ(errno, ENODEV);
}

// ---- time, memory -----------------------------------------------------------------------

TEST_F(process, seconds_are_those_of_the_clock)
{
    const time_t before = time(nullptr);
    const time_t now = system_now();
    EXPECT_LE(before, now);
    EXPECT_LE(now, time(nullptr));
}

TEST_F(process, memory_is_given_and_taken_back)
{
    void *block = system_alloc(7);
    ASSERT_NE(block, nullptr);
    memset(block, 1, 7);
    free(block);
}
