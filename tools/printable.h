/// Text from elsewhere on its way to a terminal.
#pragma once

#include <string>
#include <string_view>

/// `text` with every octet that is not printable ASCII, apart from line ends, as \xNN: what stands in
/// a file, its name or on a command line cannot steer the terminal of who reads about it.
std::string printable(std::string_view text);
