#include <cstdio>
#include <cstring>

#include "daemon/rstp_daemon.h"
#include "l2_proto_utility/os_api.h"
#include "lvt_rstp.h"
#include "process/process.h"

int main([[maybe_unused]] int argc, [[maybe_unused]] char **argv)
{
#ifndef LVT_NO_RAPID
    lvt_rstp_rapid = argc > 1 && strncmp(argv[1], "--rapid", sizeof "--rapid") == 0; // all else is ignored
#endif
    // Messages shall be seen when they are printed, also behind a pipe.
    setvbuf(stdout, nullptr, _IONBF, 0);
    initSocket(&rstp_socket_fd, &rstp_socket_addr, RSTP_CPU_INTERFACE);
    process_deafen_socket(rstp_socket_fd); // it is for sending: received frames come through the control pipe
    rstp_init();
    return 0;
}
