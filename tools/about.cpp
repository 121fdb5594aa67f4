#include "tools/about.h"

#include <cstdio>
#include <string_view>

const char *const PROGRAM_VERSION = LVT_VERSION;

bool told_about(int argc, char **argv, const std::string &help)
{
    const std::string_view word = argc == 2 ? argv[1] : "";
    if (word != "--help" && word != "-h" && word != "--version")
        return false;
    std::puts(word == "--version" ? PROGRAM_VERSION : help.c_str());
    return true;
}
