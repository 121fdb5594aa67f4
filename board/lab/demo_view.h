/// What the demo puts on the screen: acts, one row a second, checks and the summary.
#pragma once

#include <map>
#include <string>
#include <vector>

#include "board/lab/demo_stage.h"

namespace lab {

class demo_view_t {
public:
    explicit demo_view_t(const std::string &introduction);

    /// Begins an act: its name, and what will happen and why.
    void act(const std::string &name, const std::string &story);

    /// One table row, after a line about what changed on the kernel bridge's side.
    void row(const frame_t &frame);

    /// Something that the demo does.
    void event(const std::string &text) const;

    /// Notes a result for the summary and shows it.
    void check(bool good, const std::string &statement);

    /// Ends the acts; what is checked from here on is about all of them.
    void epilogue() const;

    /// Shows all results. Returns whether all are good.
    bool summary(int seconds) const;

private:
    std::string paint(const char *colour, const std::string &text) const;
    std::string port_cell(const port_status_t &port) const;
    std::string state_cell(int state) const;
    void show_result(bool good, const std::string &statement) const;

    struct result_t {
        bool good;
        std::string statement;
    };

    bool colourful_;
    int act_ = 0;
    std::map<std::string, std::string> kernel_states_; ///< as last shown, by interface
    std::string kernel_root_;                          ///< as last shown
    std::vector<result_t> results_;
};

} // namespace lab
