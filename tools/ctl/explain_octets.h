/// The command that explains octets: decode.
#pragma once

#include <string>
#include <vector>

struct decode_args_t {
    std::vector<std::string> hex; ///< words, or "-" alone for standard input
    std::string capture;          ///< a file instead
    std::string kind = "any";
    bool brief = false;
    bool json = false;
    bool only_bpdus = false; ///< of a capture
};

/// Prints what the octets mean. Throws usage_t when they are none, refused_t when something is wrong
/// with what they say.
void decode_octets(const decode_args_t &args);
