/// Asking and telling a lab that is up.
#pragma once

#include <functional>
#include <string>
#include <vector>

#include "board/lvt_lab/channel.h"
#include "board/lvt_lab/view.h"

namespace lvt_lab {

/// The lab that is meant: `given`, or what the environment says in LVT_LAB, or the only one that is up. Throws
/// untold_t when there is none, refused_t when there are several.
std::string which_lab(const std::string &given);

class client_t {
public:
    /// Throws untold_t when there is no such lab.
    explicit client_t(const std::string &lab);

    /// Throws refused_t with what the lab says, untold_t when it is gone.
    nlohmann::json ask(const nlohmann::json &request);

    lab_view_t view();

    /// Calls `take` with every event after number `after`, until it returns false. Throws untold_t when the lab ends.
    void follow(uint64_t after, const std::function<bool(const event_t &)> &take);

    channel_t &channel() { return channel_; }

private:
    std::string lab_;
    channel_t channel_;
};

/// Runs a program in a node, at this terminal, and waits for its end. Returns its exit status.
int run_in_node(const std::string &lab, const std::string &node, const std::vector<std::string> &argv);

/// Waits until a lab that was told to end is gone. Returns whether it is.
bool wait_until_gone(const std::string &lab);

} // namespace lvt_lab
