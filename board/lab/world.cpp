#include "board/lab/world.h"

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <system_error>

#include <fcntl.h>
#include <fmt/format.h>
#include <poll.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include "board/lab/mounts.h"
#include "board/lab/privileges.h"
#include "tools/about.h"

namespace lab {

namespace {

constexpr char INSIDE[] = "LVT_WORLD"; ///< "caller's network namespace:outside process number"

constexpr int FORWARDED[] = {SIGINT, SIGTERM, SIGHUP, SIGQUIT};

/// Waits for the end of `child`, handing on the signals meant for it. What the terminal's keys
/// send reaches every process by itself. Returns the exit code, or 128 + signal.
int shepherd(pid_t child, const sigset_t &awaited)
{
    for (;;) {
        siginfo_t info;
        const int number = sigwaitinfo(&awaited, &info);
        if (number > 0 && number != SIGCHLD && info.si_code != SI_KERNEL)
            kill(child, number);

        int status;
        for (pid_t ended; (ended = waitpid(-1, &status, WNOHANG)) > 0;) {
            if (ended == child)
                return WIFSIGNALED(status) ? 128 + WTERMSIG(status) : WEXITSTATUS(status);
        }
    }
}

struct signals_t {
    sigset_t awaited;
    sigset_t before;
};

signals_t block_signals()
{
    signals_t signals;
    sigemptyset(&signals.awaited);
    sigaddset(&signals.awaited, SIGCHLD);
    for (const int number : FORWARDED)
        sigaddset(&signals.awaited, number);
    sigprocmask(SIG_BLOCK, &signals.awaited, &signals.before);
    return signals;
}

[[noreturn]] void fail(const char *what)
{
    std::fprintf(stderr, "%s: %s\n", what, std::strerror(errno));
    _exit(EXIT_UNTOLD);
}

/// The program's own process: it sees the world's processes only, and runs `program` anew.
[[noreturn]] void be_program(const std::string &program, char **argv, int caller_net, const signals_t &signals)
{
    // The old /proc still knows this process by its outside number.
    char outside[32] = {};
    if (readlink("/proc/self", outside, sizeof outside - 1) < 0)
        fail("/proc/self");
    // A container that hides parts of /proc forbids a fresh one; the old one serves, too.
    mount("proc", "/proc", "proc", MS_NOSUID | MS_NODEV | MS_NOEXEC, nullptr);

    fcntl(caller_net, F_SETFD, 0);
    setenv(INSIDE, fmt::format("{}:{}", caller_net, outside).c_str(), 1);
    sigprocmask(SIG_SETMASK, &signals.before, nullptr);
    execv(program.c_str(), argv);
    fail(program.c_str());
}

/// The world's first process. The kernel ends the world with it, and it with its caller.
[[noreturn]] void be_first(const std::string &program, char **argv, int caller_net, int caller_alive,
                           const user_t &user, const signals_t &signals)
{
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    pollfd alive = {caller_alive, POLLIN, 0};
    if (poll(&alive, 1, 0) != 0) // the caller was gone before the line above
        _exit(EXIT_FAILURE);

    try {
        take_root(user);
        make_mounts_private();
    } catch (const std::system_error &error) {
        std::fprintf(stderr, "%s\n", error.what());
        _exit(EXIT_UNTOLD);
    }

    const pid_t child = bare_fork();
    if (child < 0)
        fail("fork");
    if (child == 0)
        be_program(program, argv, caller_net, signals);
    _exit(shepherd(child, signals.awaited));
}

[[noreturn]] void end_alike(int exit_code)
{
    if (exit_code > 128) {
        std::signal(exit_code - 128, SIG_DFL);
        sigset_t all;
        sigfillset(&all);
        sigprocmask(SIG_UNBLOCK, &all, nullptr);
        raise(exit_code - 128);
    }
    _exit(exit_code);
}

/// An ordinary user's PATH may leave out the folders where Debian keeps `ip`.
void complete_path()
{
    const char *path = getenv("PATH");
    setenv("PATH", fmt::format("{}:/usr/sbin:/sbin", path != nullptr ? path : "/usr/bin:/bin").c_str(), 1);
}

world_t look_around(const std::string &inside)
{
    unsetenv(INSIDE);
    world_t world = {};
    int caller_net = -1;
    if (std::sscanf(inside.c_str(), "%d:%d", &caller_net, &world.outside_pid) != 2)
        throw std::runtime_error(fmt::format("{}={} is not for people to set", INSIDE, inside));
    fcntl(caller_net, F_SETFD, FD_CLOEXEC);
    world.caller_net = fd_t(caller_net);
    world.unprivileged = in_own_user_namespace();
    return world;
}

} // namespace

world_t enter_world(char **argv, const char *farewell)
{
    complete_path();
    if (const char *inside = getenv(INSIDE))
        return look_around(inside);

    if (std::vector<lack_t> lacks = find_lacks(); !lacks.empty())
        throw cannot_run_t(std::move(lacks));

    ensure_proc();
    const std::string program = own_program();
    const fd_t caller_net(checked(open("/proc/self/ns/net", O_RDONLY | O_CLOEXEC), "/proc/self/ns/net"));
    int ends[2];
    checked(pipe2(ends, O_CLOEXEC), "pipe");
    const fd_t caller_alive(ends[0]);
    fd_t alive_end(ends[1]);
    const user_t user = this_user();
    const signals_t signals = block_signals();

    std::fflush(nullptr);
    const pid_t child = checked(bare_fork(user.flags | CLONE_NEWPID | CLONE_NEWNS | CLONE_NEWNET), "new namespaces");
    if (child == 0) {
        close(alive_end.number());
        be_first(program, argv, caller_net.number(), caller_alive.number(), user, signals);
    }
    const int exit_code = shepherd(child, signals.awaited);
    if (farewell != nullptr && exit_code > 128)
        std::fprintf(stderr, "%s\n", farewell);
    end_alike(exit_code);
}

} // namespace lab
