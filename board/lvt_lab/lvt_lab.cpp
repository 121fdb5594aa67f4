// lvt_lab: networks of simulated switches, Linux bridges and hosts on this machine.
#include <fcntl.h>
#include <unistd.h>

#include "board/lvt_lab/command_line.h"
#include "board/lvt_lab/server.h"

int main(int argc, char **argv)
{
    // Nothing that is opened later is to pass for a standard stream that was closed.
    int fd;
    while ((fd = open("/dev/null", O_RDONLY)) >= 0 && fd <= STDERR_FILENO)
        continue;
    close(fd);
    return lvt_lab::is_server() ? lvt_lab::serve(argv) : lvt_lab::run_program(argc, argv);
}
