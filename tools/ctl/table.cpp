#include "tools/ctl/table.h"

#include <algorithm>
#include <numeric>

#include <fmt/color.h>
#include <fmt/format.h>
#include <fmt/ranges.h>

namespace {

fmt::text_style style_of(const cell_t &cell)
{
    fmt::text_style style;
    switch (cell.tone) {
    case tone_t::plain:
        break;
    case tone_t::title:
        style = fmt::emphasis::bold;
        break;
    case tone_t::good:
        style = fg(fmt::terminal_color::green);
        break;
    case tone_t::passing:
        style = fg(fmt::terminal_color::yellow);
        break;
    case tone_t::bad:
        style = fg(fmt::terminal_color::red);
        break;
    case tone_t::faint:
        style = fmt::emphasis::faint;
        break;
    }
    return cell.changed ? style | fmt::emphasis::reverse : style;
}

std::vector<size_t> widths_of(const table_t &table)
{
    std::vector<size_t> widths;
    for (const row_t &row : table) {
        widths.resize(std::max(widths.size(), row.size()));
        for (size_t i = 0; i < row.size(); i++)
            widths[i] = std::max(widths[i], row[i].text.size());
    }
    return widths;
}

size_t width_of(const table_t &table, bool marks)
{
    constexpr size_t gap = 2;
    const std::vector<size_t> widths = widths_of(table);
    return std::accumulate(widths.begin(), widths.end(), widths.size() * (gap + marks)) - gap;
}

/// Leaves out one column after the other until the table fits. Returns their names.
std::vector<std::string> narrow(table_t &table, bool marks, size_t width_max)
{
    std::vector<std::string> names;
    while (width_of(table, marks) > width_max) {
        const auto heading = std::ranges::max_element(table.front(), {}, &cell_t::spare);
        if (heading->spare == 0)
            break;
        names.push_back(heading->text);
        const auto column = heading - table.front().begin();
        for (row_t &row : table)
            if (column < std::ssize(row))
                row.erase(row.begin() + column);
    }
    return names;
}

std::string cell_text(const cell_t &cell, size_t width, bool colour, bool marks)
{
    const std::string padding(width - cell.text.size(), ' ');
    const std::string mark = marks ? cell.changed ? "*" : " " : "";
    const std::string text = colour ? fmt::format(style_of(cell), "{}", cell.text) : cell.text;
    return cell.right ? padding + text + mark : text + mark + padding;
}

} // namespace

static const std::string &identity_of(const cell_t &cell) { return cell.identity.empty() ? cell.text : cell.identity; }

void mark_changes(table_t &now, const table_t &before)
{
    for (row_t &row : now) {
        const auto old =
            std::ranges::find_if(before, [&](const row_t &other) { return other.front().text == row.front().text; });
        if (old == before.end()) {
            row.front().changed = true;
            continue;
        }
        for (size_t i = 0; i < row.size(); i++)
            row[i].changed = i >= old->size() || identity_of((*old)[i]) != identity_of(row[i]);
    }
}

std::string table_text(table_t table, bool colour, bool marks, size_t width_max)
{
    std::vector<std::string> missing;
    if (width_max)
        missing = narrow(table, marks, width_max);
    const std::vector<size_t> widths = widths_of(table);
    std::string text;
    for (const row_t &row : table) {
        std::string line;
        for (size_t i = 0; i < row.size(); i++)
            line += fmt::format("{}{}", i ? "  " : "", cell_text(row[i], widths[i], colour, marks));
        line.erase(line.find_last_not_of(' ') + 1);
        text += line + "\n";
    }
    if (!missing.empty())
        text += fmt::format("no room for: {}\n", fmt::join(missing, ", "));
    return text;
}
