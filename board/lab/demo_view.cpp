#include "board/lab/demo_view.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <sstream>
#include <utility>

#include <fmt/format.h>
#include <fmt/ranges.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include "tools/number.h"
#include "tools/words.h"

namespace lab {

namespace {

constexpr char BOLD[] = "1";
constexpr char RED[] = "31";
constexpr char GREEN[] = "32";
constexpr char YELLOW[] = "33";
constexpr char CYAN[] = "36";

constexpr int PORTS_SHOWN = 3;

} // namespace

/// How wide the columns of the table are.
struct layout_t {
    int columns; ///< what the terminal has to have
    int role;
    int counts; ///< 0: they are left out
};

namespace {

constexpr layout_t LAYOUTS[] = {{99, 10, 6}, {78, 10, 0}, {0, 4, 0}}; // the last fits 60 columns
constexpr int STATE = 8;
constexpr int COLUMNS_READ_WITH_EASE = 100;

/// The terminal's, or what COLUMNS says; where nobody says it, there is room enough.
int columns()
{
    winsize size = {};
    if (ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) == 0 && size.ws_col > 0)
        return size.ws_col;
    const char *text = getenv("COLUMNS");
    int number = 0;
    return text != nullptr && read_number(text, number) == std::errc() && number > 0 ? number : LAYOUTS[0].columns;
}

const layout_t &layout_of_terminal()
{
    return *std::ranges::find_if(LAYOUTS,
                                 [room = columns()](const layout_t &layout) { return layout.columns <= room; });
}

/// `text` in lines that fit the terminal, those after the first behind `indent` blanks; the first goes behind
/// something as wide.
std::string wrapped(const std::string &text, size_t indent = 0)
{
    const size_t room = static_cast<size_t>(std::clamp(columns(), 60, COLUMNS_READ_WITH_EASE));
    std::string result, word;
    size_t at = indent;
    for (std::istringstream words(text); words >> word; at += word.size()) {
        if (at > indent && at + 1 + word.size() > room) {
            result += "\n" + std::string(indent, ' ');
            at = indent;
        } else if (at > indent) {
            result += ' ';
            at++;
        }
        result += word;
    }
    return result;
}

std::string role_cell(int role, const layout_t &layout)
{
    static const std::map<std::string, const char *> short_words = {
        {"designated", "desg"}, {"alternate", "altn"}, {"disabled", "down"}};
    std::string word = role_word(role);
    if (static_cast<int>(word.size()) > layout.role) {
        const auto found = short_words.find(word);
        word = found != short_words.end() ? found->second : word.substr(0, layout.role);
    }
    return fmt::format("{:<{}}", word, layout.role);
}

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

demo_view_t::demo_view_t(const std::string &title, const std::string &drawing, const std::string &legend)
    : colourful_(isatty(STDOUT_FILENO) == 1 && getenv("NO_COLOR") == nullptr)
{
    fmt::print("{}\n{}\n{}\n", wrapped(title), drawing, wrapped(legend));
    std::fflush(stdout);
}

std::string demo_view_t::paint(const char *colour, const std::string &text) const
{
    return colourful_ ? fmt::format("\033[{}m{}\033[0m", colour, text) : text;
}

void demo_view_t::act(const std::string &name, const std::string &story, bool has_rows)
{
    fmt::print("\n{}\n{}\n\n", paint(BOLD, fmt::format("{}. {}", ++act_, name)), wrapped(story));
    if (has_rows)
        show_header();
    std::fflush(stdout);
}

void demo_view_t::typed(const std::string &command) const
{
    fmt::print("{}\n", paint(CYAN, "$ " + wrapped(command, 2)));
    std::fflush(stdout);
}

void demo_view_t::said(const std::string &line) const
{
    // Its columns stay where they are as far as there is room.
    constexpr size_t INDENT = 14;
    const size_t room = std::max<size_t>(static_cast<size_t>(columns()), 2 * INDENT);
    std::string rest = line;
    for (size_t cut; rest.size() > room; rest = std::string(INDENT, ' ') + rest.substr(cut + 1)) {
        cut = rest.rfind(' ', room);
        if (cut == std::string::npos || cut <= INDENT)
            break;
        fmt::print("{}\n", rest.substr(0, cut));
    }
    fmt::print("{}\n", rest);
    std::fflush(stdout);
}

void demo_view_t::show_header()
{
    layout_ = &layout_of_terminal();
    const bool counted = layout_->counts > 0;
    std::string above = fmt::format("{:11}", ""), below = "time root  ";
    for (const char *port : {"port 1: cable 1", "port 2: cable 2", "port 3: host A"}) {
        std::string title = port, words = fmt::format("{:<{}} {:<{}}", "role", layout_->role, "state", STATE);
        if (counted)
            words += fmt::format(" {:<{}}", "out/in", layout_->counts);
        else if (title.size() > words.size())
            title.resize(title.find(':'));
        above += fmt::format("  {:<{}}", title, words.size());
        below += "  " + words;
    }
    fmt::print("{}A to\n{} B\n", above, below);
    std::fflush(stdout);
}

std::string demo_view_t::state_cell(int state) const
{
    const std::string word = fmt::format("{:<{}}", state_verb(state), STATE);
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
    const std::string cell = role_cell(port.role, *layout_) + ' ' + state_cell(port.state);
    if (layout_->counts == 0)
        return cell;
    const std::string counts = fmt::format("{}/{}", port.sent.all(), port.received.all());
    return fmt::format("{} {:<{}}", cell, counts, layout_->counts);
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
        event(frame.second, "kernel bridge", fmt::format("{}", fmt::join(changes, ", ")));

    if (layout_ != &layout_of_terminal()) // somebody has changed its size
        show_header();
    std::string line = fmt::format("{:>3}s {:<6}", frame.second, frame.ours.is_root() ? "ours" : "kernel");
    for (int port = 1; port <= PORTS_SHOWN; port++)
        line += "  " + port_cell(frame.ours.port(port));
    fmt::print("{} {}\n", line, frame.replies > 0 ? paint(GREEN, "ok") : paint(RED, "--"));
    std::fflush(stdout);
}

void demo_view_t::event(int second, const std::string &place, const std::string &text) const
{
    fmt::print("{:>3}s {}\n", second, paint(CYAN, "* " + wrapped(fmt::format("{}: {}", place, text), 7)));
    std::fflush(stdout);
}

void demo_view_t::show_result(bool good, const std::string &statement) const
{
    fmt::print("  {}  {}\n", good ? paint(GREEN, "ok    ") : paint(RED, "FAILED"), wrapped(statement, 10));
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
