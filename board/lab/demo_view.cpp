#include "board/lab/demo_view.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <utility>

#include <fmt/format.h>
#include <fmt/ranges.h>
#include <unistd.h>

#include "tools/words.h"

namespace lab {

namespace {

constexpr char BOLD[] = "1";
constexpr char RED[] = "31";
constexpr char GREEN[] = "32";
constexpr char YELLOW[] = "33";
constexpr char CYAN[] = "36";

constexpr int PORTS_SHOWN = 3;
constexpr char HEADER[] =
    R"(               port 1: cable 1             port 2: cable 2             port 3: host A              A to
 time  root    role       state    out/in  role       state    out/in  role       state    out/in  B
)";

const char *kernel_word(const std::string &state)
{
    static const std::map<std::string, const char *> words = {{"disabled", "is down"},
                                                              {"blocking", "blocks"},
                                                              {"listening", "listens"},
                                                              {"learning", "learns"},
                                                              {"forwarding", "forwards"}};
    const auto word = words.find(state);
    return word != words.end() ? word->second : "?";
}

} // namespace

demo_view_t::demo_view_t(const std::string &introduction)
    : colourful_(isatty(STDOUT_FILENO) == 1 && getenv("NO_COLOR") == nullptr)
{
    fmt::print("{}\n", introduction);
    std::fflush(stdout);
}

std::string demo_view_t::paint(const char *colour, const std::string &text) const
{
    return colourful_ ? fmt::format("\033[{}m{}\033[0m", colour, text) : text;
}

void demo_view_t::act(const std::string &name, const std::string &story)
{
    fmt::print("\n{}\n{}\n\n{}", paint(BOLD, fmt::format("{}. {}", ++act_, name)), story, HEADER);
    std::fflush(stdout);
}

std::string demo_view_t::state_cell(int state) const
{
    const std::string word = fmt::format("{:<8}", state_verb(state));
    switch (state) {
    case HW_DISCARDING:
        return paint(RED, word);
    case HW_LEARNING:
        return paint(YELLOW, word);
    case HW_FORWARDING:
        return paint(GREEN, word);
    default:
        return word;
    }
}

std::string demo_view_t::port_cell(const port_status_t &port) const
{
    const std::string counts = fmt::format("{}/{}", port.sent.all(), port.received.all());
    return fmt::format("{:<10} {} {:<6}", role_word(port.role), state_cell(port.state), counts);
}

void demo_view_t::row(const frame_t &frame)
{
    std::vector<std::string> changes;
    for (const auto &[interface, port] : frame.kernel.ports) {
        if (kernel_states_[interface] != port.state)
            changes.push_back(fmt::format("{} {}", interface, kernel_word(port.state)));
        kernel_states_[interface] = port.state;
    }
    if (std::exchange(kernel_root_, bridge_id_text(frame.kernel.root)) != bridge_id_text(frame.kernel.root))
        changes.push_back(fmt::format("its root is {}", bridge_id_text(frame.kernel.root)));
    if (!changes.empty())
        event(fmt::format("kernel bridge: {}", fmt::join(changes, ", ")));

    std::string line = fmt::format("{:>3} s  {:<6}", frame.second, frame.ours.is_root() ? "ours" : "kernel");
    for (int port = 1; port <= PORTS_SHOWN; port++)
        line += "  " + port_cell(frame.ours.port(port));
    fmt::print("{}  {}\n", line, frame.replies > 0 ? paint(GREEN, "ok") : paint(RED, "--"));
    std::fflush(stdout);
}

void demo_view_t::event(const std::string &text) const
{
    fmt::print("       {}\n", paint(CYAN, "* " + text));
    std::fflush(stdout);
}

void demo_view_t::show_result(bool good, const std::string &statement) const
{
    fmt::print("  {}  {}\n", good ? paint(GREEN, "ok    ") : paint(RED, "FAILED"), statement);
}

void demo_view_t::epilogue() const { fmt::print("\n"); }

void demo_view_t::check(bool good, const std::string &statement)
{
    results_.push_back({good, statement});
    show_result(good, statement);
    std::fflush(stdout);
}

bool demo_view_t::summary(int seconds) const
{
    fmt::print("\n{}\n", paint(BOLD, "What was checked"));
    for (const result_t &result : results_)
        show_result(result.good, result.statement);
    const auto good = std::count_if(results_.begin(), results_.end(), [](const result_t &r) { return r.good; });
    const bool all = static_cast<size_t>(good) == results_.size();
    const std::string verdict = fmt::format("{} of {} ok after {} seconds", good, results_.size(), seconds);
    fmt::print("\n{}\n", paint(all ? GREEN : RED, verdict));
    std::fflush(stdout);
    return all;
}

} // namespace lab
