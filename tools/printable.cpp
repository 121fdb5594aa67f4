#include "tools/printable.h"

#include <fmt/format.h>

std::string printable(std::string_view text)
{
    std::string safe;
    for (const char octet : text) {
        if (octet == '\n' || (octet >= ' ' && octet <= '~'))
            safe += octet;
        else
            safe += fmt::format("\\x{:02x}", static_cast<unsigned char>(octet));
    }
    return safe;
}
