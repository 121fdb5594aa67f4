#include "board/lvt_lab/page/page.h"
#include "tools/ctl/ctl.h"

namespace lvt_lab {

void page(const std::string &, uint16_t) { throw refused_t("this lvt_lab was built without the page (LVT_LAB_PAGE)"); }

} // namespace lvt_lab
