/// What the programs with commands of their own share: help and complaints.
#pragma once

#include <algorithm>
#include <cstdio>
#include <sstream>
#include <string>
#include <string_view>

#include <CLI/CLI.hpp>

#include "tools/printable.h"

/// Says it on standard error. What was said until then comes first, also where both streams lead to the same place.
inline void complain(const std::string &text)
{
    std::fflush(stdout);
    std::fputs(printable(text + "\n").c_str(), stderr);
}

/// Help, a version or a fault of the command line, as the parser words them. Returns whether it was no fault.
inline bool tell(const CLI::App &app, const CLI::ParseError &error)
{
    std::ostringstream out, fault;
    const bool done = app.exit(error, out, fault) == 0;
    std::fputs(out.str().c_str(), stdout);
    std::fputs(printable(fault.str()).c_str(), stderr);
    return done;
}

/// "help show port" is "show port --help": changes the order in `argv`.
inline void understand_help(int argc, char **argv)
{
    static char option[] = "--help";
    if (argc < 2 || std::string_view(argv[1]) != "help")
        return;
    std::rotate(argv + 1, argv + 2, argv + argc);
    argv[argc - 1] = option;
}
