#include "tools/ctl/send.h"

#include <cerrno>
#include <cstdlib>
#include <iterator>
#include <span>
#include <sstream>

#include <fmt/format.h>

#include "tools/ctl/arguments.h"
#include "tools/explain.h"
#include "tools/messages.h"
#include "tools/pipe.h"

namespace {

void send(const ctl_t &ctl, const char *pipe, std::span<const uint8_t> octets, const std::string &words)
{
    const std::string path = ctl.root + pipe;
    if (ctl.dry_run) {
        fmt::print("to {}, {} octets:\n{}{}", path, octets.size(), words, hex_lines(octets));
        return;
    }

    const pipe_result_t result = write_to_pipe(path, octets);
    if (result.error == ENOENT)
        throw refused_t(result.message + root_hint(ctl));
    if (!result.ok())
        throw refused_t(result.message);
}

/// The daemon ends itself on a port status report of a port that does not exist.
void refuse_fatal_report(const std::string &text)
{
    std::istringstream stream(text);
    const std::vector<std::string> words{std::istream_iterator<std::string>(stream), {}};
    if (words.size() == 4 && words[1].starts_with("show") && words[2].starts_with("rstp_port_status"))
        demand(LOGICAL_PORT, std::atol(words[3].c_str()));
}

} // namespace

std::string root_hint(const ctl_t &ctl)
{
    return ctl.root.empty() ? " One in a namespace of its own is reached with --root /proc/PID/root." : "";
}

void send_message(const ctl_t &ctl, const std::vector<uint8_t> &frame)
{
    send(ctl, RSTP_IF_PIPE, frame, explain_message(frame));
}

void send_debug_text(const ctl_t &ctl, const std::string &text)
{
    if (text.size() > RSTP_DBG_MAX)
        throw refused_t(fmt::format("a debug command has at most {} characters, this one has {}", RSTP_DBG_MAX,
                                    text.size()));
    send(ctl, RSTP_DBG_IF_PIPE, {reinterpret_cast<const uint8_t *>(text.data()), text.size()},
         "debug command\n  " + text);
}

void send_debug_words(const ctl_t &ctl, const std::vector<std::string> &words)
{
    const std::string text = fmt::format("debug{}{}\n", words.empty() ? "" : " ", fmt::join(words, " "));
    refuse_fatal_report(text);
    send_debug_text(ctl, text);
}
