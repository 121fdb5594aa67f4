#include "tools/hex.h"

#include "tools/number.h"

std::optional<std::array<uint8_t, 6>> read_address(std::string_view text)
{
    constexpr size_t each = 3; // two digits and a colon, which the last has not
    std::array<uint8_t, 6> address;
    if (text.size() != each * address.size() - 1)
        return {};
    for (size_t i = 0; i < address.size(); i++) {
        const std::string_view octet = text.substr(each * i, 2);
        const bool parted = i == 0 || text[each * i - 1] == ':';
        if (!parted || read_number(octet, address[i], 16) != std::errc())
            return {};
    }
    return address;
}
