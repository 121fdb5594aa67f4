/// What the firewall's tables of lvt_bridge are called.
#pragma once

#include <cctype>
#include <string>

#include <fmt/format.h>

/// The name of the table for a bridge: letters that are none in such a name stand there in hex. Bridges whose names
/// begin alike have tables whose names do.
inline std::string gate_table(const std::string &bridge)
{
    std::string name = "lvt_bridge_";
    for (const char letter : bridge)
        if (std::isalnum(static_cast<unsigned char>(letter)) != 0)
            name += letter;
        else
            name += fmt::format("_{:02x}", static_cast<unsigned char>(letter));
    return name;
}
