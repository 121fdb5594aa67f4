/// lvt_rstpctl, the operator's tool: what its commands share. The command line is described in the
/// cli_*.cpp files, one for each group of commands; the rest does not know of it.
#pragma once

#include <stdexcept>
#include <string>

#include "tools/bridge_notes.h"

/// Options that every command knows.
struct ctl_t {
    std::string root;   ///< put in front of every path of the daemon; empty for this machine
    std::string bridge; ///< the Linux bridge that the daemon rules; empty: it rules a switch
    std::string bridges = BRIDGE_NOTES_FOLDER;
    std::string config; ///< where the settings are kept, if not in the usual place below `root`
    bool dry_run = false;
    bool colour = false;
};

/// Ends the tool with status 1: understood, but not allowed, not possible or not so.
struct refused_t : std::runtime_error {
    using std::runtime_error::runtime_error;
};

/// The same, with lines "FILE:LINE:COLUMN: ..." that are told as they are, as compilers do.
struct faults_t : refused_t {
    using refused_t::refused_t;
};

/// Ends the tool with status 3: the daemon does not tell, so that nobody can say whether something is so.
struct untold_t : refused_t {
    using refused_t::refused_t;
};

/// Ends the tool with status 2: the command line was not understood.
struct usage_t : std::runtime_error {
    using std::runtime_error::runtime_error;
};

/// Refuses in other words, with the same status. Of `refusal` only the kind counts.
[[noreturn]] void refuse_as(const refused_t &refusal, const std::string &text);

/// A hint for messages about what was not found in this machine's own /tmp.
std::string root_hint(const ctl_t &ctl);
