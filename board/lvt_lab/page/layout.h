/// Where the page draws a lab's nodes and cables.
#pragma once

#include <string>

#include <nlohmann/json_fwd.hpp>

#include "board/lvt_lab/view.h"

namespace lvt_lab {

/// All nodes and cables, whatever their state, so that the picture stays as it is while these change: node `top` above
/// all others, and each other one as far below as it is away. Node names are keys of "nodes", cable names of "cables";
/// y grows downwards, and lengths are in pixels. Throws std::runtime_error.
nlohmann::json layout_of(const lab_view_t &view, const std::string &top);

} // namespace lvt_lab
