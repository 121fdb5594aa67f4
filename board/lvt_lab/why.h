/// Why a cable is cut, or is not, by what was heard on it and elsewhere.
#pragma once

#include <string>

#include "board/lvt_lab/view.h"

namespace lvt_lab {

/// Which end cuts the cable, and against what better path; lines for people.
std::string why_text(const lab_view_t &view, const cable_view_t &cable);

} // namespace lvt_lab
