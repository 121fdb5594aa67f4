#include "tools/ctl/send.h"

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <iterator>
#include <span>
#include <sstream>
#include <thread>

#include <fmt/format.h>
#include <fmt/ranges.h>

#include "platform/messages.h"
#include "tools/ctl/arguments.h"
#include "tools/ctl/status.h"
#include "tools/explain.h"
#include "tools/messages.h"
#include "tools/pipe.h"
#include "tools/printable.h"

using namespace std::chrono_literals;

namespace {

/// A running daemon writes its status file every second.
constexpr auto REPORT_PATIENCE = 1500ms;

/// Hands `octets` to one of the daemon's pipes by `write`, or only shows them.
template <typename write_t>
void send(const ctl_t &ctl, const char *pipe, std::span<const uint8_t> octets, const std::string &words, write_t write)
{
    const std::string path = ctl.root + pipe;
    if (ctl.dry_run) {
        fmt::print("to {}, {} octets:\n{}{}", printable(path), octets.size(), printable(words), hex_lines(octets));
        return;
    }

    const pipe_result_t result = write(path);
    constexpr int nobody[] = {ENOENT, ENOTDIR, ENXIO, EPIPE, EAGAIN, EBUSY}; // there, or obeys
    if (std::ranges::find(nobody, result.error) != std::end(nobody))
        throw untold_t(result.message + (result.error == ENOENT ? root_hint(ctl) : ""));
    if (!result.ok())
        throw refused_t(result.message);
}

/// The daemon cuts at blanks only, so that a control character would end up within a word.
void refuse_control_characters(const std::vector<std::string> &words)
{
    for (const std::string &word : words)
        if (std::ranges::any_of(word, [](unsigned char letter) { return std::iscntrl(letter); }))
            throw refused_t("a debug command is one line without control characters");
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

void refuse_as(const refused_t &refusal, const std::string &text)
{
    if (dynamic_cast<const untold_t *>(&refusal))
        throw untold_t(text);
    throw refused_t(text);
}

std::string root_hint(const ctl_t &ctl)
{
    return ctl.root.empty() ? " One in a namespace of its own is reached with --root /proc/PID/root." : "";
}

void send_one_of_several(const ctl_t &ctl, const std::vector<uint8_t> &frame, std::chrono::milliseconds patience)
{
    send(ctl, RSTP_IF_PIPE, frame, explain_message(frame),
         [&](const std::string &path) { return write_to_pipe(path, frame, patience); });
}

void within_a_report(const std::function<void()> &attempt)
{
    for (const auto deadline = std::chrono::steady_clock::now() + REPORT_PATIENCE;;) {
        try {
            return attempt();
        } catch (const refused_t &) {
            if (std::chrono::steady_clock::now() >= deadline)
                throw;
        }
        std::this_thread::sleep_for(STATUS_POLL_PAUSE);
    }
}

void demand_heard(const ctl_t &ctl)
{
    std::error_code none;
    if (ctl.dry_run || !std::filesystem::exists(ctl.root + RSTP_MONITOR_FILE, none))
        return;
    try {
        within_a_report([&ctl] { read_status(ctl); });
    } catch (const refused_t &refusal) {
        throw untold_t(fmt::format("sent, but {}", refusal.what()));
    }
}

void send_message(const ctl_t &ctl, const std::vector<uint8_t> &frame, const std::string &words)
{
    send_one_of_several(ctl, frame);
    demand_heard(ctl);
    tell_sent(ctl, words);
}

void tell_sent(const ctl_t &ctl, const std::string &words)
{
    if (!ctl.dry_run)
        fmt::print("sent: {}\n", printable(words));
}

void send_debug_words(const ctl_t &ctl, const std::vector<std::string> &words)
{
    refuse_control_characters(words);
    const std::string text = fmt::format("debug{}{}\n", words.empty() ? "" : " ", fmt::join(words, " "));
    refuse_fatal_report(text);
    if (text.size() > RSTP_DBG_MAX)
        throw refused_t(
            fmt::format("a debug command has at most {} characters, this one has {}", RSTP_DBG_MAX, text.size()));
    // Two commands that lie in the pipe together are one to the daemon, and the second is lost.
    const std::span octets(reinterpret_cast<const uint8_t *>(text.data()), text.size());
    send(ctl, RSTP_DBG_IF_PIPE, octets, "debug command\n  " + text,
         [&](const std::string &path) { return write_to_empty_pipe(path, octets, REPORT_PATIENCE); });
    demand_heard(ctl);
}
