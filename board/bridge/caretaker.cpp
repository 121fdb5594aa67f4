#include "board/bridge/caretaker.h"

#include <csignal>
#include <cstddef>
#include <cstdlib>
#include <fstream>
#include <sstream>
#include <utility>

#include <fcntl.h>
#include <fmt/format.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include "board/lvt_board/fd.h"
#include "platform/messages.h"
#include "tools/pipe.h"

namespace {

constexpr char CONSOLE[] = "/tmp/console";
constexpr char LAST_OF_BANNER[] = "RSTP Initial Complete   *\n*****************************\n";

bool is_empty(const char *pipe)
{
    const fd_t fd(open(pipe, O_RDONLY | O_NONBLOCK | O_CLOEXEC));
    int count = 0;
    return fd && ioctl(fd.number(), FIONREAD, &count) == 0 && count == 0;
}

timespec time_of_status()
{
    struct stat file = {};
    stat(RSTP_MONITOR_FILE, &file);
    return file.st_mtim;
}

} // namespace

lab::process_t start_daemon(int net, bool rapid)
{
    std::vector<std::string> argv = {lab::program("LVT_RSTPD", "lvt_rstpd")};
    if (rapid)
        argv.push_back("--rapid");
    return lab::start({.argv = std::move(argv),
                       .environment = {fmt::format("LVT_CONSOLE={}", CONSOLE)},
                       .out = STDOUT_FILENO,
                       .err = STDERR_FILENO,
                       .dies_with_parent = SIGKILL,
                       .place = {.net = net}});
}

bool daemon_is_ready()
{
    std::ifstream console(CONSOLE);
    std::ostringstream text;
    text << console.rdbuf();
    return text.str().find(LAST_OF_BANNER) != std::string::npos;
}

lab::process_t start_apply(const std::string &name, const std::string &settings)
{
    const std::string file = fmt::format("/tmp/{}.toml", name);
    std::ofstream(file) << settings;
    return lab::start({.argv = {lab::program("LVT_RSTPCTL", "lvt_rstpctl"), "apply", file},
                       .environment = {"LVT_ROOT="},
                       .out = STDOUT_FILENO,
                       .err = STDERR_FILENO,
                       .dies_with_parent = SIGKILL});
}

bool settling_t::done()
{
    constexpr std::uint8_t nothing[] = {'\n'};
    if (!asked_ && is_empty(RSTP_IF_PIPE))
        asked_ = write_to_empty_pipe(RSTP_DBG_IF_PIPE, nothing, {}).ok();
    if (!asked_ || (!taken_ && !is_empty(RSTP_DBG_IF_PIPE)))
        return false;

    const timespec now = time_of_status();
    if (std::exchange(taken_, true) && !(now.tv_sec == written_.tv_sec && now.tv_nsec == written_.tv_nsec))
        writings_--;
    written_ = now;
    return writings_ <= 0;
}

void notify_manager(const std::string &line)
{
    const char *path = getenv("NOTIFY_SOCKET");
    sockaddr_un address = {};
    const std::string name = path != nullptr ? path : "";
    if (name.empty() || name.size() >= sizeof address.sun_path)
        return;
    address.sun_family = AF_UNIX;
    name.copy(address.sun_path, name.size());
    if (name.front() == '@') // a name of no file
        address.sun_path[0] = '\0';
    const fd_t socket_fd(socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0));
    const auto length = static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + name.size());
    [[maybe_unused]] const ssize_t told = sendto(socket_fd.number(), line.data(), line.size(), MSG_NOSIGNAL,
                                                 reinterpret_cast<const sockaddr *>(&address), length);
}
