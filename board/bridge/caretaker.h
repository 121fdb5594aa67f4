/// The daemon, and what has to be said to it.
#pragma once

#include <optional>
#include <string>

#include "board/lab/process.h"

/// Starts the daemon where only its CPU interface is, below the caller's /tmp. It ends with the thread that started it.
/// Throws std::system_error.
lab::process_t start_daemon(int net, bool rapid);

/// Whether the daemon takes messages by now.
bool daemon_is_ready();

/// Starts lvt_rstpctl, which brings settings into force.
lab::process_t start_apply(const std::string &name, const std::string &settings);

/// Finds out whether the daemon has acted on all that it was told. It reads debug commands only when it has handled
/// the message before, so an empty one is put into their pipe: once it was taken, all is done.
class settling_t {
public:
    /// To be called until it is true, with pauses.
    bool done();

private:
    bool asked_ = false;
};

/// Tells the service manager, if there is one, "READY=1" or another line.
void notify_manager(const std::string &line);
