// lvt_lab: networks of simulated switches, Linux bridges and hosts on this machine.
#include "board/lvt_lab/command_line.h"
#include "board/lvt_lab/server.h"

int main(int argc, char **argv)
{
    return lvt_lab::is_server() ? lvt_lab::serve(argv) : lvt_lab::run_program(argc, argv);
}
