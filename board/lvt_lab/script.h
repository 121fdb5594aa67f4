/// Scripts: commands of the program, a line each, with waits and expectations between them.
///
///     up ring 4 --rapid
///     expect rest within 60s
///     pull 1-2
///     expect h1 reaches h2 within 5s
///     expect outage under 200ms
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "board/lvt_lab/view.h"
#include "tools/topology/network.h"

namespace lvt_lab {

struct step_t {
    enum class kind_t { COMMAND, WAIT, EXPECT } kind;
    unsigned line;
    std::vector<std::string> words; ///< of a command or an expectation
    topology::span_t span{0};       ///< of a wait; within which an expectation has to hold
    std::string text;               ///< the line
};

/// Throws faults_t with a line "FILE:LINE: ..." for each fault.
std::vector<step_t> parse_script(const std::string &text, const std::string &path);

/// Words that are parted by blanks; what is in quotes is one. Nothing when a quote is not closed.
std::optional<std::vector<std::string>> split_words(const std::string &line);

/// What is otherwise than the words of an expectation have it; nothing when it is so. For those that a view tells:
/// "rest", "root is sw1", "sw3:2 is alternate", "sw3:2 discards", "1-2 carries", "1-2 is cut", "1-2 is pulled",
/// "sw2 has no daemon", "sw2 has no power". Throws refused_t when there is no such node or cable.
std::optional<std::string> what_is_wrong(const std::vector<std::string> &words, const lab_view_t &view);

/// Returns the exit status: 0 when all commands were done and all that was expected held.
int run_script(const std::string &path, const std::string &lab, bool keep);

} // namespace lvt_lab
