#include "process/process.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <linux/filter.h>
#include <net/ethernet.h>
#include <net/if.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>

namespace {

constexpr mode_t FILE_MODE = 0666; ///< less the process's mask

/// Copies a file into one that is there.
bool write_in_place(const char *from, const char *to)
{
    const int in = open(from, O_RDONLY | O_CLOEXEC | O_NOFOLLOW);
    const int out = open(to, O_WRONLY | O_TRUNC | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK);
    bool whole = in >= 0 && out >= 0;
    char octets[512];
    ssize_t count = 0;
    while (whole && (count = read(in, octets, sizeof octets)) > 0)
        whole = write(out, octets, static_cast<size_t>(count)) == count;
    if (in >= 0)
        close(in);
    if (out >= 0)
        close(out);
    return whole && count == 0;
}

} // namespace

// ---- pipes ------------------------------------------------------------------------------

int process_open_pipe(const char *path, pipe_mode_t mode)
{
    const int fd = open(path, mode == PIPE_NEVER_WAITS ? O_RDWR | O_NONBLOCK : O_RDWR);
    struct stat what;
    if (fd >= 0 && (fstat(fd, &what) != 0 || !S_ISFIFO(what.st_mode))) {
        close(fd);
        errno = EINVAL;
        return -1;
    }
    return fd;
}

int process_write_pipe(int fd, const void *octets, size_t length)
{
    return static_cast<int>(write(fd, octets, length));
}

int process_write_once(const char *path, const void *octets, size_t length)
{
    const int fd = process_open_pipe(path, PIPE_NEVER_WAITS);
    const int result = process_write_pipe(fd, octets, length);
    if (fd >= 0)
        close(fd);
    return result;
}

int process_wait_pipes(int width, fd_set *readable) { return select(width, readable, nullptr, nullptr, nullptr); }

// ---- frames -----------------------------------------------------------------------------

int process_open_socket(const char *interface, sockaddr_ll *address)
{
    address->sll_ifindex = static_cast<int>(if_nametoindex(interface));

    const int fd = socket(AF_PACKET, SOCK_RAW, htons(ETH_P_ALL));
    if (fd < 0)
        perror("Cannot create socket!!");
    if (bind(fd, reinterpret_cast<sockaddr *>(address), sizeof *address) < 0)
        perror("Cannot bind!!");
    return fd;
}

void process_deafen_socket(int fd)
{
    sock_filter take_nothing = BPF_STMT(BPF_RET | BPF_K, 0);
    const sock_fprog filter = {1, &take_nothing};
    setsockopt(fd, SOL_SOCKET, SO_ATTACH_FILTER, &filter, sizeof filter);
    char octet;
    while (recv(fd, &octet, sizeof octet, MSG_DONTWAIT) >= 0) {
    }
}

int process_send_frame(int fd, const void *frame, size_t length, const sockaddr_ll *address)
{
    return sendto(fd, frame, length, MSG_DONTROUTE | MSG_DONTWAIT, reinterpret_cast<const sockaddr *>(address),
                  sizeof *address) == -1
               ? -1
               : 0;
}

int process_interface_address(const char *interface, sockaddr *address)
{
    ifreq request = {};
    strncpy(request.ifr_name, interface, sizeof request.ifr_name - 1);

    const int fd = socket(AF_UNIX, SOCK_DGRAM, 0);
    if (fd < 0)
        return -1;
    const int result = ioctl(fd, SIOCGIFHWADDR, &request);
    const int reason = errno;
    close(fd);
    errno = reason;
    *address = request.ifr_hwaddr;
    return result < 0 ? -1 : 0;
}

// ---- the status file --------------------------------------------------------------------

FILE *process_create_file(const char *temporary)
{
    // Everyone may write in the file's folder: what stands there may be a link or a pipe of anybody's.
    remove(temporary);
    const int fd = open(temporary, O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC, FILE_MODE);
    if (fd < 0)
        return nullptr;
    FILE *file = fdopen(fd, "w");
    if (!file)
        close(fd);
    return file;
}

int process_place_file(FILE *file, const char *temporary, const char *path)
{
    const bool written = !ferror(file);
    const bool whole = fclose(file) == 0 && written;
    if (whole && rename(temporary, path) == 0)
        return 0;
    const bool in_place = whole && errno == EBUSY && write_in_place(temporary, path);
    remove(temporary);
    return whole && !in_place ? -1 : 0;
}

// ---- time, threads, memory --------------------------------------------------------------

time_t process_now() { return time(nullptr); }

int process_wait_second()
{
    timeval second = {1, 0};
    return select(1, nullptr, nullptr, nullptr, &second);
}

void process_sleep_second()
{
    const timespec second = {1, 0};
    nanosleep(&second, nullptr);
}

int process_start_thread(pthread_t *handle, void *(*body)(void *))
{
    return pthread_create(handle, nullptr, body, nullptr);
}

void *process_alloc(size_t size) { return malloc(size); }
