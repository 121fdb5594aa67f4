#include "tools/pipe.h"

#include <cerrno>
#include <csignal>
#include <cstring>
#include <ctime>
#include <thread>

#include <fcntl.h>
#include <fmt/format.h>
#include <poll.h>
#include <sys/file.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

constexpr auto EMPTY_POLL_PAUSE = std::chrono::milliseconds(1);

std::string explain(int error, const std::string &path)
{
    switch (error) {
    case ENOENT:
    case ENOTDIR:
        return fmt::format("no pipe at {}: is the daemon's board running? Start it, and then the daemon.", path);
    case ENXIO:
    case EPIPE:
        return fmt::format("no reader on {}: is the daemon running? Start it.", path);
    case EAGAIN:
        return fmt::format(
            "{} is full: the daemon hangs or is stopped. Look at what it printed last, and start it "
            "again.",
            path);
    case EBUSY:
        return fmt::format(
            "{} holds what the daemon has not read: it hangs or is stopped. Look at what it printed "
            "last, and start it again.",
            path);
    case EACCES:
    case EPERM:
        return fmt::format("no permission to write to {}: try it as root", path);
    case EISDIR:
    case ENOTSUP:
        return fmt::format("{} is not a named pipe: remove it and restart the daemon's board", path);
    default:
        return fmt::format("cannot write to {}: {}", path, std::strerror(error));
    }
}

pipe_result_t failure(int error, const std::string &path) { return {error, explain(error, path)}; }

/// A write whose error does not come as a signal, whatever the program does with SIGPIPE.
ssize_t write_quietly(int fd, std::span<const uint8_t> octets)
{
    sigset_t broken_pipe, before, pending;
    sigemptyset(&broken_pipe);
    sigaddset(&broken_pipe, SIGPIPE);
    sigpending(&pending);
    const bool was_pending = sigismember(&pending, SIGPIPE);
    pthread_sigmask(SIG_BLOCK, &broken_pipe, &before);

    const ssize_t written = write(fd, octets.data(), octets.size());
    const int error = errno;
    if (written < 0 && error == EPIPE && !was_pending) {
        const timespec now{};
        sigtimedwait(&broken_pipe, nullptr, &now);
    }

    pthread_sigmask(SIG_SETMASK, &before, nullptr);
    errno = error;
    return written;
}

/// As write_quietly, but waits for room as long as `patience` lasts.
ssize_t write_patiently(int fd, std::span<const uint8_t> octets, std::chrono::milliseconds patience)
{
    using std::chrono::steady_clock;
    const auto deadline = steady_clock::now() + patience;
    for (;;) {
        const ssize_t written = write_quietly(fd, octets);
        const auto left = std::chrono::ceil<std::chrono::milliseconds>(deadline - steady_clock::now());
        if (written >= 0 || errno != EAGAIN || left.count() <= 0)
            return written;
        pollfd room = {fd, POLLOUT, 0};
        poll(&room, 1, static_cast<int>(left.count()));
    }
}

pipe_result_t write_open_pipe(int fd, const std::string &path, std::span<const uint8_t> octets,
                              std::chrono::milliseconds patience)
{
    const ssize_t written = write_patiently(fd, octets, patience);
    if (written < 0)
        return failure(errno, path);
    if (static_cast<size_t>(written) < octets.size())
        return {EMSGSIZE, fmt::format("only {} of {} octets fitted into {}", written, octets.size(), path)};
    return {};
}

/// Waits until nothing lies in the pipe and no other writer does the same. False when that lasts longer
/// than `patience`.
bool wait_until_empty(int fd, std::chrono::milliseconds patience)
{
    const auto deadline = std::chrono::steady_clock::now() + patience;
    const auto is_ours = [fd] {
        int waiting = 0;
        return flock(fd, LOCK_EX | LOCK_NB) == 0 && ioctl(fd, FIONREAD, &waiting) == 0 && waiting == 0;
    };
    while (!is_ours()) {
        if (std::chrono::steady_clock::now() >= deadline)
            return false;
        std::this_thread::sleep_for(EMPTY_POLL_PAUSE); // a pipe does not tell that it is empty
    }
    return true;
}

/// Opens the pipe for one use of it, which never waits for a reader.
template <typename use_t>
pipe_result_t with_open_pipe(const std::string &path, use_t use)
{
    const int fd = open(path.c_str(), O_WRONLY | O_NONBLOCK | O_CLOEXEC | O_NOCTTY);
    if (fd < 0)
        return failure(errno, path);
    struct stat status;
    const pipe_result_t result = fstat(fd, &status) != 0     ? failure(errno, path)
                                 : !S_ISFIFO(status.st_mode) ? failure(ENOTSUP, path)
                                                             : use(fd);
    close(fd);
    return result;
}

} // namespace

pipe_result_t write_to_pipe(const std::string &path, std::span<const uint8_t> octets,
                            std::chrono::milliseconds patience)
{
    return with_open_pipe(path, [&](int fd) { return write_open_pipe(fd, path, octets, patience); });
}

pipe_result_t write_to_empty_pipe(const std::string &path, std::span<const uint8_t> octets,
                                  std::chrono::milliseconds patience)
{
    return with_open_pipe(path, [&](int fd) {
        return wait_until_empty(fd, patience) ? write_open_pipe(fd, path, octets, {}) : failure(EBUSY, path);
    });
}
