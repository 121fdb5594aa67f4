#include "platform/board_connection.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>

#include <sys/socket.h>
#include <sys/time.h>
#include <sys/un.h>
#include <unistd.h>

namespace {

int board_connect()
{
    const char *path = getenv(BOARD_SOCKET_VARIABLE);
    if (path == nullptr || *path == '\0')
        path = BOARD_SOCKET;

    sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    if (strlen(path) >= sizeof address.sun_path)
        return -1;
    strcpy(address.sun_path, path);

    const int fd = socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0);
    if (fd < 0)
        return -1;

    // The limit for sending also bounds connect, when the board's queue of callers is full.
    const timeval patience = {BOARD_PATIENCE_MS / 1000, BOARD_PATIENCE_MS % 1000 * 1000};
    if (setsockopt(fd, SOL_SOCKET, SO_SNDTIMEO, &patience, sizeof patience) != 0 ||
        setsockopt(fd, SOL_SOCKET, SO_RCVTIMEO, &patience, sizeof patience) != 0 ||
        connect(fd, reinterpret_cast<const sockaddr *>(&address), sizeof address) != 0) {
        close(fd);
        return -1;
    }
    return fd;
}

bool board_ask(int fd, const board_head_t *request, size_t request_size, board_head_t *answer, size_t answer_size)
{
    if (send(fd, request, request_size, MSG_NOSIGNAL) != static_cast<ssize_t>(request_size))
        return false;

    // A stopped and continued process sees EINTR here even without a signal handler.
    ssize_t got;
    do
        got = recv(fd, answer, answer_size, MSG_TRUNC);
    while (got < 0 && errno == EINTR);

    return got == static_cast<ssize_t>(answer_size) && answer->magic == BOARD_MAGIC && answer->kind == request->kind;
}

} // namespace

int board_exchange(board_connection_t *connection, board_head_t *request, size_t request_size, board_head_t *answer,
                   size_t answer_size)
{
    request->magic = BOARD_MAGIC;
    request->result = 0;
    request->length = static_cast<uint32_t>(request_size - sizeof *request);

    pthread_mutex_lock(&connection->lock);
    if (connection->fd < 0)
        connection->fd = board_connect();

    int result = -1;
    if (connection->fd >= 0) {
        if (board_ask(connection->fd, request, request_size, answer, answer_size)) {
            result = answer->result;
        } else {
            close(connection->fd);
            connection->fd = -1;
        }
    }
    pthread_mutex_unlock(&connection->lock);
    return result;
}
