/// The daemon's threads and its system calls for each control message, and nothing else: the floor
/// that its cost is compared with. (A process with several threads pays more for each call.)
#include <fcntl.h>
#include <pthread.h>
#include <sys/select.h>
#include <unistd.h>

#include "platform/messages.h"

namespace {

void *tick(void *)
{
    for (;;) {
        timeval second = {1, 0};
        select(1, nullptr, nullptr, nullptr, &second);
    }
}

void *read_messages(void *)
{
    const int control = open(RSTP_IF_PIPE, O_RDWR);
    const int debug = open(RSTP_DBG_IF_PIPE, O_RDWR);
    const int width = (control > debug ? control : debug) + 1;

    for (;;) {
        fd_set readable;
        FD_ZERO(&readable);
        FD_SET(control, &readable);
        FD_SET(debug, &readable);
        if (select(width, &readable, nullptr, nullptr, nullptr) < 1)
            return nullptr;
        if (!FD_ISSET(control, &readable))
            continue;
        rstp_frame_header_t header;
        rstp_msg_t message;
        if (read(control, &header, sizeof header) != sizeof header || header.length > RSTP_BODY_MAX)
            return nullptr;
        if (read(control, &message, sizeof message.header + header.length) < 0)
            return nullptr;
    }
}

} // namespace

int main()
{
    pthread_t ticking, reading;
    if (pthread_create(&ticking, nullptr, tick, nullptr) != 0 ||
        pthread_create(&reading, nullptr, read_messages, nullptr) != 0)
        return 1;
    pthread_join(reading, nullptr);
    return 1;
}
