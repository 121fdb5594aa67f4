/// The daemon's system calls for each control message, and nothing else: the floor that its cost
/// is compared with.
#include <fcntl.h>
#include <sys/select.h>
#include <unistd.h>

#include "daemon/messages.h"

int main()
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
            return 1;
        if (!FD_ISSET(control, &readable))
            continue;
        rstp_frame_header_t header;
        rstp_msg_t message;
        if (read(control, &header, sizeof header) != sizeof header || header.length > RSTP_BODY_MAX)
            return 1;
        if (read(control, &message, sizeof message.header + header.length) < 0)
            return 1;
    }
}
