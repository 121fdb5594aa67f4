/// Changing single settings of a configuration file, with its comments and its order kept.
#pragma once

#include <string>

#include "tools/ctl/place.h"

/// One setting as the file writes it, say {"port.3", "edge", "false"}.
struct edit_t {
    std::string section;
    std::string key;
    std::string value;
};

/// Returns `text` with the setting: its value replaced, or a line added to its section, or a section
/// added to the end. `text` must be a sound file. Throws refused_t when it has no place for a line, or
/// when what came out would not say what was asked for.
std::string with_setting(const std::string &text, const edit_t &edit);

/// Keeps others that hold such a lock on a file of the same folder waiting, and leaves nothing behind.
class config_lock_t {
public:
    /// Throws refused_t, also when another holds it for longer than any change takes.
    explicit config_lock_t(const place_t &place);
    config_lock_t(const config_lock_t &) = delete;
    config_lock_t &operator=(const config_lock_t &) = delete;

private:
    folder_t folder_;
};

/// Puts `text` in the file's place, whole or not at all, with the file's owner and permissions.
/// Throws refused_t.
void save_config(const place_t &place, const std::string &text);

/// Takes the file away. Throws refused_t.
void remove_config(const place_t &place);
