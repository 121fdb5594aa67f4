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

/// The same for the file `name` of an open folder, which is no link; `path` is for people.
file_t open_regular_file(int folder, const std::string &name, const std::string &path);

/// A file's whole text, or that of standard input for "-"; nothing when it cannot be read, and then errno says why.
/// Never waits. Throws refused_t for what is not a regular file, or larger than `octets_max`.
std::optional<std::string> read_text_file(const std::string &path, size_t octets_max = TEXT_FILE_OCTETS_MAX);

/// The same for a file that is open already, or that could not be opened, and then errno says why.
std::optional<std::string> read_text_file(const file_t &file, const std::string &path,
                                          size_t octets_max = TEXT_FILE_OCTETS_MAX);
