#include "tools/ctl.h"

#include <algorithm>
#include <cerrno>
#include <charconv>

#include <fmt/format.h>

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
    if (result.error == ENOENT && ctl.root.empty())
        throw refused_t(result.message + " One in a namespace of its own is reached with --root /proc/PID/root.");
    if (!result.ok())
        throw refused_t(result.message);
}

} // namespace

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

void demand(const setting_rule_t &rule, long value)
{
    const std::string fault = fault_of(rule, value);
    if (!fault.empty())
        throw refused_t(fault);
}

std::vector<unsigned> parse_ports(const std::string &option, const std::string &text)
{
    if (text == "all")
        return {1, 2, 3, 4, 5, 6};

    std::vector<unsigned> ports;
    for (size_t start = 0, comma = 0; comma != std::string::npos; start = comma + 1) {
        comma = text.find(',', start);
        const long port = parse_number(option, text.substr(start, comma - start));
        demand(FRONT_PORT, port);
        ports.push_back(static_cast<unsigned>(port));
    }
    return ports;
}

assignment_t parse_assignment(const std::string &option, const std::string &text, const std::string &form)
{
    const size_t sign = text.find('=');
    if (sign == std::string::npos || sign == 0 || sign + 1 == text.size())
        throw CLI::ValidationError(option, fmt::format("\"{}\" should read {}", text, form));
    return {text.substr(0, sign), text.substr(sign + 1)};
}

long parse_number(const std::string &option, const std::string &text)
{
    long value = 0;
    const char *end = text.data() + text.size();
    const auto [stop, error] = std::from_chars(text.data(), end, value);
    if (error != std::errc{} || stop != end)
        throw CLI::ValidationError(option, fmt::format("\"{}\" is not a number", text));
    return value;
}

size_t parse_word(const std::string &option, const std::string &text, const std::vector<std::string> &words)
{
    const auto found = std::ranges::find(words, text);
    if (found == words.end())
        throw CLI::ValidationError(option, fmt::format("\"{}\" is none of {}", text, fmt::join(words, ", ")));
    return static_cast<size_t>(found - words.begin());
}
