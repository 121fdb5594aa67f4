#include "tools/ctl/confirm.h"

#include <cerrno>
#include <csignal>
#include <cstring>
#include <thread>

#include <fcntl.h>
#include <fmt/format.h>
#include <sys/file.h>
#include <syslog.h>
#include <unistd.h>

#include "tools/ctl/config_edit.h"
#include "tools/ctl/config_file.h"
#include "tools/ctl/memory.h"
#include "tools/ctl/output.h"
#include "tools/ctl/status.h"

namespace {

using namespace std::chrono_literals;
using std::chrono::steady_clock;
using std::chrono::system_clock;

constexpr char NOTE[] = "confirm";
constexpr char LOCK[] = "confirm.lock";
constexpr char WAITING[] = "waiting "; ///< begins the note of a change that is awaited
constexpr auto GUARD_POLL_PAUSE = 50ms;
constexpr auto GUARD_PATIENCE = 2s; ///< until a guard that is no longer needed has gone

std::string note(const ctl_t &ctl) { return find_runtime_text(ctl, NOTE).value_or(""); }

void write_note(const ctl_t &ctl, const std::string &text) { save_config(runtime_file(ctl, NOTE), text); }

std::string now_text() { return time_text(system_clock::now()); }

/// Takes the lock that a guard holds. Returns its descriptor, or -1 when there is a guard.
int take_guards_lock(const ctl_t &ctl)
{
    const std::string path = runtime_file(ctl, LOCK).text();
    const int fd = open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC | O_NOFOLLOW, 0600);
    if (fd < 0)
        throw refused_t(fmt::format("cannot open {}: {}", path, std::strerror(errno)));
    if (flock(fd, LOCK_EX | LOCK_NB) == 0)
        return fd;
    close(fd);
    return -1;
}

bool is_guarded(const ctl_t &ctl)
{
    const int fd = take_guards_lock(ctl);
    if (fd >= 0)
        close(fd);
    return fd < 0;
}

/// A guard that has just been told to go may take a moment.
int take_guards_lock_soon(const ctl_t &ctl)
{
    const auto deadline = steady_clock::now() + GUARD_PATIENCE;
    int fd;
    while ((fd = take_guards_lock(ctl)) < 0 && steady_clock::now() < deadline)
        std::this_thread::sleep_for(GUARD_POLL_PAUSE);
    return fd;
}

bool is_awaited(const ctl_t &ctl) { return note(ctl).starts_with(WAITING) && is_guarded(ctl); }

/// A guard must hold none of the locks of who started it, but its own.
void close_all_but(int kept)
{
    constexpr int files_max = 1024;
    for (int fd = STDERR_FILENO + 1; fd < files_max; fd++)
        if (fd != kept)
            close(fd);
}

/// Of its own session, so that neither a terminal's end nor its keys reach it, and with no part in the
/// output that somebody may read to its end.
void leave_the_terminal()
{
    setsid();
    std::signal(SIGHUP, SIG_IGN);
    const int nothing = open("/dev/null", O_RDWR | O_CLOEXEC);
    for (const int number : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO})
        dup2(nothing, number);
    close(nothing);
}

void tell(const ctl_t &ctl, int level, const std::string &text)
{
    openlog("lvt_rstpctl", LOG_PID | LOG_CONS, LOG_DAEMON);
    syslog(level, "%s", text.c_str());
    closelog();
    write_note(ctl, text + "\n");
}

void guard(const ctl_t &ctl, steady_clock::time_point deadline, const std::function<void()> &go_back)
{
    while (steady_clock::now() < deadline) {
        if (!note(ctl).starts_with(WAITING))
            return;
        std::this_thread::sleep_for(std::min<steady_clock::duration>(GUARD_POLL_PAUSE, deadline - steady_clock::now()));
    }
    const config_lock_t lock(runtime_file(ctl, NOTE)); // whoever confirms now comes too late
    if (!note(ctl).starts_with(WAITING))
        return;
    try {
        go_back();
        tell(ctl, LOG_WARNING, fmt::format("the last change went back at {}: nobody had confirmed it", now_text()));
    } catch (const std::exception &error) {
        tell(ctl, LOG_ERR,
             fmt::format("the last change should have gone back at {}, but: {}", now_text(), error.what()));
    }
}

} // namespace

void refuse_while_unconfirmed(const ctl_t &ctl)
{
    if (!ctl.dry_run && is_awaited(ctl))
        throw refused_t(
            "a change waits to be confirmed, and going back would undo this one as well. Say lvt_rstpctl "
            "confirm, or wait. Nothing was changed or sent.");
}

void start_guard(const ctl_t &ctl, std::chrono::nanoseconds patience, const std::function<void()> &go_back)
{
    make_runtime_folder(ctl);
    const int lock = take_guards_lock_soon(ctl);
    if (lock < 0)
        throw refused_t("another change waits to be confirmed. Nothing was changed or sent.");
    write_note(ctl, fmt::format("{}since {}\n", WAITING, now_text()));

    flush_output();
    const auto deadline = steady_clock::now() + patience;
    int stands[2]; // closed by the guard when it stands on its own
    if (pipe2(stands, O_CLOEXEC) < 0)
        throw refused_t(fmt::format("cannot make a pipe: {}", std::strerror(errno)));
    const pid_t child = fork();
    if (child < 0)
        throw refused_t(fmt::format("cannot start a process: {}", std::strerror(errno)));
    if (child == 0) {
        leave_the_terminal();
        close_all_but(lock);
        try {
            guard(ctl, deadline, go_back);
        } catch (const std::exception &) {
            _exit(EXIT_FAILURE);
        }
        _exit(EXIT_SUCCESS);
    }
    close(lock); // the guard's copy holds it
    close(stands[1]);
    // The terminal may end with this command: not before its end can't reach the guard any more.
    char none;
    while (read(stands[0], &none, sizeof none) < 0 && errno == EINTR)
        continue;
    close(stands[0]);
}

void confirm_change(const ctl_t &ctl)
{
    constexpr char nothing[] = "nothing waits to be confirmed";
    if (note(ctl).empty())
        throw refused_t(nothing);
    const config_lock_t lock(runtime_file(ctl, NOTE));
    std::string last = note(ctl);
    if (last.ends_with('\n'))
        last.pop_back();
    if (!last.starts_with(WAITING))
        throw refused_t(fmt::format("{}: {}", nothing, last));
    if (!is_guarded(ctl))
        throw refused_t(fmt::format("{}: who was {} was ended, and the last change stays", nothing, last));
    if (ctl.dry_run) {
        fmt::print("a change would be confirmed that is {}\n", last);
        return;
    }
    write_note(ctl, fmt::format("the last change was confirmed at {}\n", now_text()));
    fmt::print("confirmed: the change stays\n");
}
