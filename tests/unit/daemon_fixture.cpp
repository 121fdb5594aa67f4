#include "daemon_fixture.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstring>
#include <filesystem>

#include "daemon/rstp_aggr.h"
#include "daemon/rstp_config.h"
#include "daemon/rstp_daemon.h"
#include "daemon/rstp_msg.h"
#include "daemon/semaphores.h"
#include "daemon_image.h"
#include "l2_proto_utility/os_api.h"

namespace {

constexpr int SOCKET = 77; ///< a descriptor for frames; sendto is answered by the board
constexpr unsigned HANGS_AFTER_SECONDS = 100;

int make_pipe(const std::string &path, int flags)
{
    if (mkfifo(path.c_str(), 0600) != 0)
        abort();
    const int fd = open(path.c_str(), flags | O_CLOEXEC);
    if (fd < 0)
        abort();
    return fd;
}

void forget_everything()
{
    daemon_image_restore(daemon_image_at_start());
    rstp_aggr_init();
    rstp_socket_fd = SOCKET;
    sem_init(&rstp_core_sem, 0, 1);
    sem_init(&rstp_data_sem, 0, 1);
    sem_watch = board_note_semaphore;
}

std::string captured(bool of_stderr, const std::function<void()> &action)
{
    if (of_stderr)
        testing::internal::CaptureStderr();
    else
        testing::internal::CaptureStdout();
    action();
    return of_stderr ? testing::internal::GetCapturedStderr() : testing::internal::GetCapturedStdout();
}

} // namespace

daemon_test::daemon_test()
{
    alarm(HANGS_AFTER_SECONDS);
    setenv("TZ", "UTC", 1);
    board = {};
    board.folder = (std::filesystem::temp_directory_path() / "lvt_daemon_XXXXXX").string();
    if (!mkdtemp(board.folder.data()))
        abort();
    board.mux_reader = make_pipe(path("port_mux_if_pipe"), O_RDONLY | O_NONBLOCK);
    lacp_reader = make_pipe(path("lacp_if_pipe"), O_RDONLY | O_NONBLOCK);
    control_fd = make_pipe(path("rstp_if_pipe"), O_RDWR);
    debug_fd = make_pipe(path("rstp_dbg_if_pipe"), O_RDWR);
    forget_everything();
    rstp_msg_open(control_fd, debug_fd);
}

daemon_test::~daemon_test()
{
    for (const int fd : {board.mux_reader, lacp_reader, control_fd, debug_fd, port_mux_fd})
        if (fd >= 0)
            close(fd);
    std::filesystem::remove_all(board.folder);
    board = {};
    alarm(0);
}

void daemon_test::boot(std::initializer_list<uint32_t> ports_up)
{
    for (const uint32_t port : ports_up) {
        board.link_words[port - 1] = LINK_1000_FULL;
        links[port - 1] = LINK_UP;
    }
    rstp_start_bridge();
    board_log();
}

void daemon_test::write_control(const octets_t &octets) const
{
    ASSERT_EQ(write(control_fd, octets.data(), octets.size()), static_cast<ssize_t>(octets.size()));
}

void daemon_test::write_debug(const std::string &text) const
{
    ASSERT_EQ(write(debug_fd, text.data(), text.size()), static_cast<ssize_t>(text.size()));
}

int daemon_test::serve()
{
    static rstp_msg_t message;
    const int result = rstp_msg_recv(&message);
    if (result != 1)
        return result;
    board.on_engine_call = [](const std::string &line) {
        int free = -1;
        sem_getvalue(&rstp_core_sem, &free);
        EXPECT_EQ(free, 0) << "the engine runs without its lock: " << line;
    };
    rstp_dispatch(&message);
    board.on_engine_call = nullptr;
    return result;
}

int daemon_test::control(const octets_t &octets)
{
    write_control(octets);
    return serve();
}

void daemon_test::send_links(std::initializer_list<uint32_t> ports_up)
{
    links = {};
    for (const uint32_t port : ports_up)
        links[port - 1] = LINK_UP;
    send_links();
}

void daemon_test::send_links() { EXPECT_EQ(control(port_status_message(links)), 1); }
void daemon_test::send_groups(const aggr_status_t &groups) { EXPECT_EQ(control(aggr_status_message(groups)), 1); }

void daemon_test::send_system(const lvt_rstp_system_config_t &config)
{
    EXPECT_EQ(control(system_config_message(config)), 1);
}

void daemon_test::send_ports(uint8_t type)
{
    EXPECT_EQ(control(type == RSTP_MSG_PORT_CONFIG ? port_config_message(ports) : port_config_only_message(ports)), 1);
}

void daemon_test::send_enabled(std::initializer_list<uint32_t> enabled)
{
    for (uint32_t port = 1; port <= RSTP_PHYSICAL_PORTS; port++)
        ports[port].adminEnable = std::find(enabled.begin(), enabled.end(), port) != enabled.end();
    send_ports();
}

void daemon_test::send_group_settings(const lvt_rstp_port_config_t &config)
{
    EXPECT_EQ(control(aggr_config_message(config)), 1);
}

void daemon_test::send_lacp(const lacp_enables_t &enables) { EXPECT_EQ(control(lacp_enable_message(enables)), 1); }

void daemon_test::send_bpdu(uint32_t port, const octets_t &frame)
{
    EXPECT_EQ(control(received_message(port, frame)), 1);
}

std::string daemon_test::debug(const std::string &text)
{
    board_console();
    write_debug(text);
    EXPECT_EQ(serve(), 0);
    return board_console();
}

void daemon_test::seconds(uint32_t count)
{
    for (uint32_t i = 0; i < count; i++)
        lvt_rstp_tick();
    lvt_rstp_run_pending();
}

octets_t daemon_test::lacp_received() const
{
    octets_t octets(65536);
    const ssize_t count = read(lacp_reader, octets.data(), octets.size());
    octets.resize(count > 0 ? static_cast<size_t>(count) : 0);
    return octets;
}

log_t operator+(log_t a, const log_t &b)
{
    a.insert(a.end(), b.begin(), b.end());
    return a;
}

log_t state_written(uint32_t port, uint32_t code)
{
    return {"state " + std::to_string(port) + " " + std::to_string(code),
            "mux " + std::to_string(port) + (code >= 4 ? " 1" : " 0")};
}

std::string assertion(const std::string &source_and_line, const std::string &function, const std::string &text)
{
    return source_and_line + ": " + function + ": Assertion `" + text + "' failed.\n";
}

std::string stdout_of(const std::function<void()> &action) { return captured(false, action); }
std::string stderr_of(const std::function<void()> &action) { return captured(true, action); }
