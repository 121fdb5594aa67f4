#include "tools/ctl/show.h"

#include <cstdio>

#include <fmt/format.h>
#include <unistd.h>

#include "tools/ctl/changes.h"
#include "tools/ctl/status.h"
#include "tools/ctl/status_json.h"

namespace {

using steady_t = std::chrono::steady_clock;

constexpr char CLEAR_SCREEN[] = "\033[H\033[2J";

steady_t::time_point deadline_after(const std::optional<std::chrono::nanoseconds> &length)
{
    return length ? steady_t::now() + *length : steady_t::time_point::max();
}

/// Those that a document or a list of lines tells of: all, or the one that was asked for.
std::vector<int> ports_of(const subject_t &subject)
{
    std::vector<int> ports;
    if (subject.port)
        return {subject.port};
    if (subject.ports || subject.statistics)
        for (int port = 1; port <= static_cast<int>(RSTP_PORTS); port++)
            ports.push_back(port);
    return ports;
}

std::string tables_text(const ctl_t &ctl, const show_args_t &args, const reading_t &reading, const reading_t *before)
{
    std::vector<table_t> tables = report_of(reading.status, args.subject);
    if (before) {
        const std::vector<table_t> old = report_of(before->status, args.subject);
        for (size_t i = 0; i < tables.size(); i++)
            mark_changes(tables[i], old[i]);
    }

    std::string text;
    for (const table_t &table : tables)
        text += fmt::format("{}{}", text.empty() ? "" : "\n", table_text(table, ctl.colour, args.watch));
    return text;
}

std::string report_text(const ctl_t &ctl, const show_args_t &args, const reading_t &reading, const reading_t *before)
{
    const std::vector<int> ports = ports_of(args.subject);
    switch (args.format) {
    case format_t::json: return status_json(reading, ports, json_layout_t::compact) + "\n";
    case format_t::pretty_json: return status_json(reading, ports, json_layout_t::indented) + "\n";
    case format_t::lines: return status_lines(reading, args.subject.bridge && !args.subject.port, ports);
    case format_t::table: break;
    }
    return tables_text(ctl, args, reading, before);
}

void print_redraw(const show_args_t &args, const reading_t &reading, const std::string &text)
{
    if (args.format == format_t::table)
        fmt::print("{}{}\n{}{}", isatty(STDOUT_FILENO) ? CLEAR_SCREEN : "", time_text(reading.written), text,
                   isatty(STDOUT_FILENO) ? "" : "\n");
    else
        fmt::print("{}", text);
    std::fflush(stdout);
}

} // namespace

void show(const ctl_t &ctl, const show_args_t &args)
{
    reading_t reading = read_status(ctl);
    if (!args.watch) {
        fmt::print("{}", report_text(ctl, args, reading, nullptr));
        return;
    }

    const auto deadline = deadline_after(args.length);
    print_redraw(args, reading, report_text(ctl, args, reading, &reading));
    while (const auto next = next_status(ctl, reading, deadline)) {
        print_redraw(args, *next, report_text(ctl, args, *next, &reading));
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
        std::fflush(stdout);
        reading = *next;
    }
}
