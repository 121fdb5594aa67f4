/// Tables for people.
#pragma once

#include <string>
#include <vector>

/// What a cell tells, as a terminal shows it in colour.
enum class tone_t { plain, title, good, passing, bad, faint };

struct cell_t {
    std::string text;
    tone_t tone = tone_t::plain;
    bool right = false;        ///< flush right, for numbers
    bool changed = false;      ///< marked with a star
    std::string identity = {}; ///< a change is one of this; empty: one of the text
    int spare = 0;             ///< of a heading: the higher, the sooner its column gives way; 0: never
};

using row_t = std::vector<cell_t>;

/// Rows of cells. Every row's first cell is its name.
using table_t = std::vector<row_t>;

/// Marks the cells of `now` that differ from the cell of the same row and column in `before`.
void mark_changes(table_t &now, const table_t &before);

/// The table's lines, its columns two spaces apart. A star follows what changed; with `marks` there
/// is room for one behind every cell, so that columns do not move. Where lines may have only
/// `width_max` letters (0: any number), columns give way, and a last line names them.
std::string table_text(table_t table, bool colour, bool marks = false, size_t width_max = 0);
