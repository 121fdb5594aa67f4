/// The way to the daemon: control messages and debug commands.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "tools/ctl/ctl.h"

/// Sends a control message, or shows it in words and hex on a dry run. Throws refused_t.
void send_message(const ctl_t &ctl, const std::vector<uint8_t> &frame);

/// Sends a debug command, or shows it on a dry run. Throws refused_t.
void send_debug_text(const ctl_t &ctl, const std::string &text);

/// Hands `debug WORDS` to the daemon. Throws refused_t, also for the one command that would end it.
void send_debug_words(const ctl_t &ctl, const std::vector<std::string> &words);
