// lvt_lab: networks of simulated switches, Linux bridges and hosts on this machine.
#include <cstdio>
#include <exception>
#include <string>
#include <vector>

#include <fmt/format.h>

#include "board/lvt_lab/command_line.h"
#include "board/lvt_lab/server.h"
#include "tools/about.h"
#include "tools/command_line.h"
#include "tools/ctl/ctl.h"

int main(int argc, char **argv)
{
    if (lvt_lab::is_server())
        return lvt_lab::serve(argv);
    understand_help(argc, argv);
    try {
        return lvt_lab::run_command(std::vector<std::string>(argv + 1, argv + argc));
    } catch (const faults_t &faults) {
        complain(faults.what());
        return EXIT_NOT_UNDERSTOOD;
    } catch (const usage_t &error) {
        complain(fmt::format("lvt_lab: {}\nRun with --help for more information.", error.what()));
        return EXIT_NOT_UNDERSTOOD;
    } catch (const untold_t &error) {
        complain(fmt::format("lvt_lab: {}", error.what()));
        return EXIT_UNTOLD;
    } catch (const std::exception &error) {
        complain(fmt::format("lvt_lab: {}", error.what()));
    }
    return EXIT_FAILURE;
}
