#include <cstdio>
#include <cstring>

#include "daemon/rstp_daemon.h"
#include "l2_proto_utility/os_api.h"
#include "lvt_rstp.h"
#include "process/process.h"

namespace {

#ifdef LVT_NO_RAPID
constexpr char USAGE[] = "usage: lvt_rstpd [--help | --version]\n";
#else
constexpr char USAGE[] = "usage: lvt_rstpd [--rapid | --help | --version]\n";
#endif
constexpr int GOES_ON = -1;
constexpr int NOT_UNDERSTOOD = 2;

/// Takes one word of the command line. Returns GOES_ON, or the status with which to end.
int take_argument(const char *argument)
{
#ifndef LVT_NO_RAPID
    if (strcmp(argument, "--rapid") == 0) {
        lvt_rstp_rapid = true;
        return GOES_ON;
    }
#endif
    if (strcmp(argument, "--version") == 0) {
        puts("lvt_rstpd " LVT_VERSION);
        return 0;
    }
    const bool help = strcmp(argument, "--help") == 0;
    fputs(USAGE, help ? stdout : stderr);
    return help ? 0 : NOT_UNDERSTOOD;
}

} // namespace

int main(int argc, char **argv)
{
    for (int i = 1; i < argc; i++)
        if (const int status = take_argument(argv[i]); status != GOES_ON)
            return status;

    // Messages shall be seen when they are printed, also behind a pipe.
    setvbuf(stdout, nullptr, _IONBF, 0);
    initSocket(&rstp_socket_fd, &rstp_socket_addr, RSTP_CPU_INTERFACE);
    process_deafen_socket(rstp_socket_fd); // it is for sending: received frames come through the control pipe
    rstp_init();
    return 0;
}
