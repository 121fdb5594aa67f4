// Stands for capture.cpp where there is no libpcap.
#include "tools/ctl/capture.h"

#include <fmt/format.h>

#include "tools/ctl/ctl.h"

size_t for_each_captured(const std::string &path, const std::function<void(const captured_t &frame)> &)
{
    throw refused_t(
        fmt::format("{} cannot be read: this lvt_rstpctl was built without libpcap. Use one that was "
                    "built with it, or give the octets in hex.",
                    path));
}
