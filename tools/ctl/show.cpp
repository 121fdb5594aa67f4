#include "tools/ctl/show.h"

#include <algorithm>
#include <sstream>

#include <fmt/color.h>
#include <fmt/format.h>

#include "tools/ctl/changes.h"
#include "tools/ctl/history.h"
#include "tools/ctl/output.h"
#include "tools/ctl/status.h"
#include "tools/ctl/status_json.h"

namespace {

using steady_t = std::chrono::steady_clock;

constexpr char TOP_WITHOUT_WRAPPING[] = "\033[?7l\033[H";
constexpr char END_OF_LINE[] = "\033[K\n"; ///< behind it the old line goes
constexpr char REST_WITH_WRAPPING[] = "\033[J\033[?7h";

steady_t::time_point deadline_after(const std::optional<std::chrono::nanoseconds> &length)
{
    return length ? steady_t::now() + *length : steady_t::time_point::max();
}

/// Those that a document or a list of lines tells of: all, or those that were asked for.
std::vector<int> ports_of(const subject_t &subject)
{
    std::vector<int> ports;
    if (!subject.one_by_one.empty())
        return subject.one_by_one;
    if (subject.ports || subject.statistics)
        for (int port = 1; port <= static_cast<int>(RSTP_PORTS); port++)
            ports.push_back(port);
    return ports;
}

/// One report, and what those before it tell beyond it.
struct told_t {
    const reading_t &reading;
    const history_t &history;
    const reading_t *before; ///< the report before, of which changes are marked; null: none
    linux_ports_t interfaces;
};

std::string notes_text(const ctl_t &ctl, const show_args_t &args, const told_t &told)
{
    std::string text;
    if (args.subject.ports || !args.subject.one_by_one.empty())
        for (const note_t &note : silence_notes(told.reading, told.history)) {
            const auto style = fg(note.trouble ? fmt::terminal_color::red : fmt::terminal_color::yellow);
            text += "\n" + (ctl.colour ? fmt::format(style, "{}", note.text) : note.text) + "\n";
        }
    return text;
}

std::string tables_text(const ctl_t &ctl, const show_args_t &args, const told_t &told)
{
    std::vector<table_t> tables = report_of(told.reading.status, args.subject, told.interfaces);
    if (told.before) {
        const std::vector<table_t> old = report_of(told.before->status, args.subject, told.interfaces);
        for (size_t i = 0; i < tables.size(); i++)
            mark_changes(tables[i], old[i]);
    }

    const size_t width_max = screen().value_or(screen_t{}).columns;
    std::string text;
    for (table_t &table : tables)
        text += fmt::format("{}{}", text.empty() ? "" : "\n",
                            table_text(std::move(table), ctl.colour, args.watch, width_max));
    return text + notes_text(ctl, args, told);
}

std::string report_text(const ctl_t &ctl, const show_args_t &args, const told_t &told)
{
    const reading_t &reading = told.reading;
    const std::vector<int> ports = ports_of(args.subject);
    switch (args.format) {
    case format_t::json:
        return status_json(reading, told.history, ports, json_layout_t::compact, told.interfaces) + "\n";
    case format_t::pretty_json:
        return status_json(reading, told.history, ports, json_layout_t::indented, told.interfaces) + "\n";
    case format_t::lines:
        return status_lines(reading, told.history, args.subject.bridge && args.subject.one_by_one.empty(), ports,
                            told.interfaces);
    case format_t::table:
        break;
    }
    return tables_text(ctl, args, told);
}

/// The text over what the screen shows, line by line, so that it does not flicker. The last row stays
/// empty: a line end there would scroll.
std::string drawn(const std::string &text, const screen_t &screen)
{
    size_t rest = static_cast<size_t>(std::ranges::count(text, '\n'));
    size_t room = screen.rows ? std::max<size_t>(screen.rows, 3) - 1 : rest;
    const bool all = rest <= room;

    std::string frame = TOP_WITHOUT_WRAPPING;
    std::istringstream lines(text);
    for (std::string line; room > !all && std::getline(lines, line); room--, rest--)
        frame += line + END_OF_LINE;
    if (!all)
        frame += fmt::format("... and {} lines for which there is no room", rest) + END_OF_LINE;
    return frame + REST_WITH_WRAPPING;
}

void print_redraw(const show_args_t &args, const reading_t &reading, const std::string &text)
{
    if (args.format != format_t::table)
        fmt::print("{}", text);
    else if (const auto here = screen())
        fmt::print("{}", drawn(time_text(reading.written) + "\n" + text, *here));
    else
        fmt::print("{}\n{}\n", time_text(reading.written), text);
    flush_for_reader();
}

} // namespace

void show(const ctl_t &ctl, const show_args_t &args)
{
    reading_t reading = read_status(ctl);
    history_t history(ctl, reading);
    history.keep(ctl);
    if (!args.watch) {
        fmt::print("{}", report_text(ctl, args, {reading, history, nullptr, linux_ports(ctl)}));
        return;
    }

    const auto deadline = deadline_after(args.length);
    print_redraw(args, reading, report_text(ctl, args, {reading, history, &reading, linux_ports(ctl)}));
    while (auto next = next_status(ctl, reading, deadline)) {
        history.take(*next);
        history.keep(ctl);
        print_redraw(args, *next, report_text(ctl, args, {*next, history, &reading, linux_ports(ctl)}));
        reading = *next;
    }
}

void monitor(const ctl_t &ctl, const monitor_args_t &args)
{
    const auto deadline = deadline_after(args.length);
    reading_t reading = read_status(ctl);
    while (const auto next = next_status(ctl, reading, deadline)) {
        for (const change_t &change : changes_between(reading.status, next->status))
            fmt::print("{}\n", args.json ? change_json(change, next->written)
                                         : time_text(next->written) + " " + change_text(change));
        flush_for_reader();
        reading = *next;
    }
}
