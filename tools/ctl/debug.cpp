#include "tools/ctl/debug.h"

#include <chrono>
#include <cstdio>
#include <filesystem>
#include <optional>
#include <thread>

#include <fmt/format.h>
#include <fmt/ranges.h>

#include "tools/ctl/send.h"
#include "tools/ctl/text_file.h"
#include "tools/printable.h"

namespace {

using namespace std::chrono_literals;
using steady_t = std::chrono::steady_clock;

constexpr auto ANSWER_PATIENCE = 2s; ///< for the first of it
constexpr auto ANSWER_PAUSE = 150ms; ///< within it: the daemon writes a report in one go
constexpr auto LOOK_PAUSE = 10ms;

std::optional<uintmax_t> size_of(const std::string &path)
{
    std::error_code none;
    if (!std::filesystem::is_regular_file(path, none))
        return {};
    const uintmax_t size = std::filesystem::file_size(path, none);
    return none ? std::nullopt : std::optional(size);
}

/// Waits until the file has grown beyond `size` and then no more for a moment; no longer than an answer takes.
void wait_for_answer(const std::string &path, uintmax_t size)
{
    const uintmax_t before = size;
    auto deadline = steady_t::now() + ANSWER_PATIENCE;
    while (steady_t::now() < deadline) {
        if (const uintmax_t now = size_of(path).value_or(before); now != size) {
            size = now;
            deadline = steady_t::now() + ANSWER_PAUSE;
        }
        std::this_thread::sleep_for(LOOK_PAUSE);
    }
}

void print_from(const std::string &path, uintmax_t offset)
{
    const file_t file = open_regular_file(path);
    if (!file || std::fseek(file.get(), static_cast<long>(offset), SEEK_SET) != 0)
        return;
    char buffer[4096];
    for (size_t count; (count = std::fread(buffer, 1, sizeof buffer, file.get())) > 0;)
        fmt::print("{}", printable(std::string(buffer, count)));
}

} // namespace

void debug(const ctl_t &ctl, const std::vector<std::string> &words)
{
    const std::string console = ctl.root + SIMULATED_CONSOLE;
    const auto before = size_of(console);
    send_debug_words(ctl, words);
    if (!before)
        tell_sent(ctl, fmt::format("debug{}{}; the answer comes on the board's console", words.empty() ? "" : " ",
                                   fmt::join(words, " ")));
    if (!before || ctl.dry_run)
        return;
    wait_for_answer(console, *before);
    print_from(console, *before);
}
