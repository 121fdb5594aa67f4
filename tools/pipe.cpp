#include "tools/pipe.h"

#include <cerrno>
#include <csignal>
#include <cstring>
#include <ctime>

#include <fcntl.h>
#include <fmt/format.h>
#include <poll.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

std::string explain(int error, const std::string &path)
{
    switch (error) {
    case ENOENT:
    case ENOTDIR:
        return fmt::format("no pipe at {}: is the daemon's board running?", path);
    case ENXIO:
    case EPIPE:
        return fmt::format("no reader on {}: is the daemon running?", path);
    case EAGAIN:
        return fmt::format("{} is full: the daemon does not read it; is it running, or stopped?", path);
    case EACCES:
    case EPERM:
        return fmt::format("no permission to write to {}: try it as root", path);
    case ENOTSUP:
        return fmt::format("{} is not a named pipe: remove it and restart the daemon's board", path);
    default:
        return fmt::format("cannot write to {}: {}", path, std::strerror(error));
    }
}

pipe_result_t failure(int error, const std::string &path)
{
    return {error, explain(error, path)};
}

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
    struct stat status;
    if (fstat(fd, &status) != 0)
        return failure(errno, path);
    if (!S_ISFIFO(status.st_mode))
        return failure(ENOTSUP, path);

    const ssize_t written = write_patiently(fd, octets, patience);
    if (written < 0)
        return failure(errno, path);
    if (static_cast<size_t>(written) < octets.size())
        return {EMSGSIZE, fmt::format("only {} of {} octets fitted into {}", written, octets.size(), path)};
    return {};
}

} // namespace

pipe_result_t write_to_pipe(const std::string &path, std::span<const uint8_t> octets,
                            std::chrono::milliseconds patience)
{
    const int fd = open(path.c_str(), O_WRONLY | O_NONBLOCK | O_CLOEXEC | O_NOCTTY);
    if (fd < 0)
        return failure(errno, path);
    const pipe_result_t result = write_open_pipe(fd, path, octets, patience);
    close(fd);
    return result;
}
