/// Reading files of text.
#pragma once

#include <optional>
#include <string>

/// A file's whole text; nothing when it cannot be read, and then errno says why.
std::optional<std::string> read_text_file(const std::string &path);
