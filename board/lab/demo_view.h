/// What the demo puts on the screen: acts, one row a second, checks and the summary. All of it fits the
/// terminal, from 60 columns on; the rows tell less where there is less room.
#pragma once

#include <map>
#include <string>
#include <vector>

#include "board/lab/demo_stage.h"

namespace lab {

struct layout_t;

class demo_view_t {
public:
    /// Says what is to be seen.
    demo_view_t(const std::string &title, const std::string &drawing, const std::string &legend);

    /// Begins an act: its name, and what will happen and why.
    ///
    /// has_rows  it shows a table
    void act(const std::string &name, const std::string &story, bool has_rows = true);

    /// A command that is typed, and a line of what it says.
    void typed(const std::string &command) const;
    void said(const std::string &line) const;

    /// One table row, after a line about what changed on the kernel bridge's side.
    void row(const frame_t &frame);

    /// Something that happens, or that the demo does, and where.
    void event(int second, const std::string &place, const std::string &text) const;

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
    void show_header();
    void show_result(bool good, const std::string &statement) const;

    struct result_t {
        bool good;
        std::string statement;
    };

    bool colourful_;
    int act_ = 0;
    const layout_t *layout_ = nullptr;                 ///< of the table's last header
    std::map<std::string, std::string> kernel_states_; ///< as last shown, by interface
    std::string kernel_root_;                          ///< as last shown
    std::vector<result_t> results_;
};

} // namespace lab
