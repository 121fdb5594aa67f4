/// The commands for tests and labs: debug.
#include <memory>

#include "tools/ctl/cli.h"
#include "tools/ctl/send.h"

namespace {

constexpr char HEADING[] = "Test";

void add_debug_command(CLI::App &app, const ctl_t &ctl)
{
    auto *command = app.add_subcommand("debug", "Hands a debug command to the daemon")->group(HEADING);
    command->footer("The daemon answers on the board's console; without WORDS it lists its commands there.\n"
                    "Example:\n"
                    "  lvt_rstpctl debug show rstp_port_status 3");

    auto words = std::make_shared<std::vector<std::string>>();
    command->add_option("WORDS", *words, "The command without its first word, \"debug\"")->type_name("");
    command->callback([words, &ctl] { send_debug_words(ctl, *words); });
}

} // namespace

void add_lab_commands(CLI::App &app, const ctl_t &ctl)
{
    add_debug_command(app, ctl);
}
