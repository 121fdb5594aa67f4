/// What the tool remembers of the settings that it sent: the daemon reports only some of them.
#pragma once

#include <functional>
#include <optional>
#include <string>

#include "tools/ctl/config_edit.h"
#include "tools/ctl/config_file.h"
#include "tools/ctl/ctl.h"
#include "tools/status_file.h"

/// A file that lives as long as the board runs, in a folder beside the daemon's pipes.
place_t runtime_file(const ctl_t &ctl, const std::string &name);

/// Makes that folder unless it is there. Throws refused_t, also when others may write in it.
void make_runtime_folder(const ctl_t &ctl);

/// The text of such a file; nothing when there is none, or when others may write in the folder.
std::optional<std::string> find_runtime_text(const ctl_t &ctl, const std::string &name);

/// Remembers a change of what was sent. What cannot be remembered is not.
void remember(const ctl_t &ctl, const std::function<void(settings_t &settings)> &change);

/// The settings in force: what the daemon reports, and what it does not report as it was last sent; where
/// nothing is remembered, as the stored file has it.
settings_t settings_in_force(const ctl_t &ctl, const bridge_status_t &now);

/// What has to change in a file that says `from` so that it says `to`.
std::vector<edit_t> edits_between(const settings_t &from, const settings_t &to);

/// `text` with all the edits. Throws refused_t.
std::string with_settings(std::string text, const std::vector<edit_t> &edits);
