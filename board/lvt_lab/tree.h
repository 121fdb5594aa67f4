/// The spanning tree of a lab in a terminal.
#pragma once

#include <string>

#include "board/lvt_lab/view.h"

namespace lvt_lab {

/// The root on top, below each node those that hang from it, with the role, and the state where it is not the usual
/// one, at either end of the cable. Cables that carry no data are dashed.
std::string tree_text(const lab_view_t &view);

/// Nodes and ports in a table.
std::string show_text(const lab_view_t &view, bool colour, size_t width_max);

/// "root", "alternate, discards"; the state is told where it is not what the role wants.
std::string end_words(const lab_view_t &view, const end_view_t &end);

} // namespace lvt_lab
