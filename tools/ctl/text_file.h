/// Reading files of text.
#pragma once

#include <optional>
#include <string>

/// More than any file that a person writes for the daemon.
constexpr size_t TEXT_FILE_OCTETS_MAX = 1 << 20;

/// A file's whole text; nothing when it cannot be read, and then errno says why. Never waits. Throws
/// refused_t for what is not a regular file, or larger than `octets_max`.
std::optional<std::string> read_text_file(const std::string &path, size_t octets_max = TEXT_FILE_OCTETS_MAX);
