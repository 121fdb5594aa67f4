#include <cstdio>

#include "daemon/rstp_daemon.h"
#include "l2_proto_utility/os_api.h"
#include "process/process.h"

int main()
{
    // Messages shall be seen when they are printed, also behind a pipe.
    setvbuf(stdout, nullptr, _IONBF, 0);
    initSocket(&rstp_socket_fd, &rstp_socket_addr, RSTP_CPU_INTERFACE);
    process_deafen_socket(rstp_socket_fd); // it is for sending: received frames come through the control pipe
    rstp_init();
    return 0;
}
