/// The daemon, and what has to be said to it.
#pragma once

#include <ctime>
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
/// the message before, so an empty one is put into their pipe: once it was taken, all messages are. Unless the daemon
/// is rapid, what they change begins with the next tick and ends by the one after; behind each it writes its status
/// file.
class settling_t {
public:
    explicit settling_t(bool is_rapid) : writings_(is_rapid ? 0 : 2) {}

    /// To be called until it is true, with pauses shorter than a tick.
    bool done();

private:
    bool asked_ = false, taken_ = false;
    int writings_; ///< of the status file, to be waited for
    timespec written_ = {};
};

/// Tells the service manager, if there is one, "READY=1" or another line.
void notify_manager(const std::string &line);
