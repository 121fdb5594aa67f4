/// Opening files that a person names, and reading those of text.
#pragma once

#include <cstdio>
#include <memory>
#include <optional>
#include <string>

/// More than any file that a person writes for the daemon.
constexpr size_t TEXT_FILE_OCTETS_MAX = 1 << 20;

using file_t = std::unique_ptr<std::FILE, int (*)(std::FILE *)>;

/// Opens a file to read it; nothing when that fails, and then errno says why. Never waits, as for the
/// writer of a named pipe. Throws refused_t for what is not a regular file.
file_t open_regular_file(const std::string &path);

/// A file's whole text; nothing when it cannot be read, and then errno says why. Never waits. Throws
/// refused_t for what is not a regular file, or larger than `octets_max`.
std::optional<std::string> read_text_file(const std::string &path, size_t octets_max = TEXT_FILE_OCTETS_MAX);
