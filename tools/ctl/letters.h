/// The letters that people know from ip and bridge of iproute2.
#pragma once

#include <string>
#include <vector>

/// A command line, without the program's name, in the form that the commands understand: letters before the
/// command go behind it, and those that mean something else here, or nothing, are put into this tool's words.
/// Throws usage_t, with the word to use, for those that have no such meaning.
std::vector<std::string> with_known_letters(std::vector<std::string> words);
