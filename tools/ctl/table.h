/// Tables for people.
#pragma once

#include <string>
#include <vector>

/// What a cell tells, as a terminal shows it in colour.
enum class tone_t { plain, title, good, passing, bad, faint };

struct cell_t {
    std::string text;
    tone_t tone = tone_t::plain;
    bool right = false;   ///< flush right, for numbers
    bool changed = false; ///< marked with a star
};

using row_t = std::vector<cell_t>;

/// Rows of cells. Every row's first cell is its name.
using table_t = std::vector<row_t>;

/// Marks the cells of `now` that differ from the cell of the same row and column in `before`.
void mark_changes(table_t &now, const table_t &before);

/// The table's lines, its columns two spaces apart. A star follows what changed; with `marks` there
/// is room for one behind every cell, so that columns do not move.
std::string table_text(const table_t &table, bool colour, bool marks = false);
