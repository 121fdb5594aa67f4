/// What the browser gets; each is a file of this folder.
#pragma once

#include <string>

namespace lvt_lab {

extern const std::string PAGE_HTML, PAGE_CSS, VIEW_JS, PICTURE_JS, PAGE_JS, ICON_SVG;

} // namespace lvt_lab
