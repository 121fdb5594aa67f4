#include <cerrno>
#include <cstdio>
#include <cstring>

#include <unistd.h>

#include "daemon/rstp_daemon.h"
#include "l2_proto_utility/os_api.h"
#include "lvt_rstp.h"
#include "process/process.h"

namespace {

constexpr char WORDS[][sizeof "--version"] = {"--rapid", "--help", "--version"};
enum word_t { RAPID, HELP, VERSION, UNKNOWN };

constexpr char VERSION_TEXT[] = LVT_VERSION "\n";
constexpr char USAGE[] = "lvt_rstpd [--rapid | --help | --version]\n";
constexpr int GOES_ON = -1;
constexpr int REFUSED = 2;

/// The daemon is to be rapid. Who does not ask for it runs a program without a trace of it: this one then becomes
/// another, of the same sources with rstp/rapid.cpp, which lies beside it. Returns REFUSED when that is not there.
int be_rapid([[maybe_unused]] char **argv)
{
#ifdef LVT_RAPID
    lvt_rstp_rapid = true;
    return GOES_ON;
#else
    char path[256];
    errno = ENAMETOOLONG;
    if (snprintf(path, sizeof path, "%s_rapid", argv[0]) < int{sizeof path})
        execvp(path, argv);
    perror(path);
    return REFUSED;
#endif
}

/// One argument is taken. Returns GOES_ON, or the status with which to end. Small, since every switch carries it.
[[gnu::cold]] int take_arguments(int argc, char **argv)
{
    int word = argc == 2 ? RAPID : UNKNOWN;
    while (word < UNKNOWN && strncmp(argv[1], WORDS[word], sizeof WORDS[word]) != 0)
        word++;
    if (word == RAPID)
        return be_rapid(argv);
    const bool is_version = word == VERSION;
    const ssize_t told = write(word == UNKNOWN ? STDERR_FILENO : STDOUT_FILENO, is_version ? VERSION_TEXT : USAGE,
                               is_version ? sizeof VERSION_TEXT - 1 : sizeof USAGE - 1);
    return word == UNKNOWN || told < 0 ? REFUSED : 0;
}

} // namespace

int main(int argc, char **argv)
{
    if (argc > 1)
        if (const int status = take_arguments(argc, argv); status != GOES_ON)
            return status;

    // Messages shall be seen when they are printed, also behind a pipe.
    setvbuf(stdout, nullptr, _IONBF, 0);
    initSocket(&rstp_socket_fd, &rstp_socket_addr, RSTP_CPU_INTERFACE);
    process_deafen_socket(rstp_socket_fd); // it is for sending: received frames come through the control pipe
    rstp_init();
    return 0;
}
