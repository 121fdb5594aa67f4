/// The program's commands, for its command line and for scripts.
#pragma once

#include <string>
#include <vector>

namespace lvt_lab {

/// Does what the words say. Returns the exit status; throws as client.h tells, usage_t for words that make no sense.
///
/// lab  the one that is meant where the words name none; empty: as which_lab finds it
int run_command(const std::vector<std::string> &words, const std::string &lab = {});

/// What main does with its words. Says what goes wrong; returns the exit status.
int run_program(int argc, char **argv);

} // namespace lvt_lab
