/// The command that hands a debug command to the daemon, which answers on the board's console.
#include <cstdlib>
#include <iterator>
#include <memory>
#include <sstream>

#include <fmt/format.h>

#include "tools/ctl.h"

namespace {

/// The daemon ends itself on a port status report of a port that does not exist.
void refuse_fatal_report(const std::string &text)
{
    std::istringstream stream(text);
    const std::vector<std::string> words{std::istream_iterator<std::string>(stream), {}};
    if (words.size() == 4 && words[1].starts_with("show") && words[2].starts_with("rstp_port_status"))
        demand(LOGICAL_PORT, std::atol(words[3].c_str()));
}

} // namespace

void add_debug_command(CLI::App &app, const ctl_t &ctl)
{
    auto *command = app.add_subcommand("debug", "Hands a debug command to the daemon");
    command->footer("The daemon answers on the board's console; without WORDS it lists its commands there.\n"
                    "Example:\n"
                    "  lvt_rstpctl debug show rstp_port_status 3");

    auto words = std::make_shared<std::vector<std::string>>();
    command->add_option("WORDS", *words, "The command without its first word, \"debug\"")->type_name("");
    command->callback([words, &ctl] {
        const std::string text = fmt::format("debug{}{}\n", words->empty() ? "" : " ", fmt::join(*words, " "));
        refuse_fatal_report(text);
        send_debug_text(ctl, text);
    });
}
