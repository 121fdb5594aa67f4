/// What every program says of itself, and by its exit status.
#pragma once

#include <string>

// EXIT_SUCCESS, 0, says that something is done or so; EXIT_FAILURE, 1, that it is refused or not so.
constexpr int EXIT_NOT_UNDERSTOOD = 2; ///< the command line
constexpr int EXIT_UNTOLD = 3;         ///< nobody can tell: no daemon or no board, or this machine cannot run it

/// "1.2.3"
extern const char *const PROGRAM_VERSION;

/// For programs that take words, but no options beside these: prints `help` where the only argument is --help or
/// -h, and the version where it is --version. Returns whether it was.
bool told_about(int argc, char **argv, const std::string &help);
