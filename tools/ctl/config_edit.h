/// Changing single settings of a configuration file, with its comments and its order kept.
#pragma once

#include <string>

/// One setting as the file writes it, say {"port.3", "edge", "false"}.
struct edit_t {
    std::string section;
    std::string key;
    std::string value;
};

/// Returns `text` with the setting: its value replaced, or a line added to its section, or a section
/// added to the end. `text` must be a sound file. Throws refused_t when it has no place for a line.
std::string with_setting(const std::string &text, const edit_t &edit);

/// Puts `text` in the file's place, whole or not at all, with the file's permissions.
/// Throws refused_t.
void save_config(const std::string &path, const std::string &text);
