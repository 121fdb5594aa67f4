/// A lab: nodes and cables in a world of its own, what can be done to them, and what they are at a moment.
#pragma once

#include <array>
#include <atomic>
#include <condition_variable>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "board/lab/neighbours.h"
#include "board/lab/switch_node.h"
#include "board/lvt_lab/journal.h"
#include "board/lvt_lab/prober.h"
#include "board/lvt_lab/view.h"
#include "board/lvt_lab/wires.h"
#include "tools/topology/network.h"

namespace lvt_lab {

/// What an interactive bash in a node reads first.
constexpr char SHELL_FILE[] = "/tmp/node.bashrc";

/// Throws refused_t when a lab cannot have these nodes.
void demand_playable(const topology::network_t &network);

class lab_t {
public:
    /// Call it in a world of the program's own (board/lab/world.h).
    lab_t(std::string name, topology::network_t network);
    ~lab_t();
    lab_t(const lab_t &) = delete;
    lab_t &operator=(const lab_t &) = delete;

    /// Makes the nodes, starts them, and then plugs in all cables at once, or when the file says so. Throws what
    /// they throw.
    ///
    /// with_story  what the file says that happens does
    void up(bool with_story);

    journal_t &journal() { return journal_; }
    lab_view_t view();

    /// Does what a command of a story says, as in "pull 1-2"; returns when it is done. Throws
    /// topology::command_fault_t, refused_t and what the nodes throw.
    void act(const std::string &command);

    /// The number of the event that told of the latest command; 0 before the first.
    uint64_t last_command() const { return last_command_; }

    /// The place of a node. Throws refused_t when there is none of that name.
    const lab::node_t &node(const std::string &name);

    /// The address of a host. Throws refused_t.
    std::string address(const std::string &host);

    /// The cables that a word means, "all" included, by number; their names. Throws refused_t.
    std::vector<size_t> cables(const std::string &word);
    std::string cable_name(size_t cable) const;

    /// What the capture of some cables has gathered since the last call, as octets of a file; the first ones are its
    /// beginning. One that is not read for long loses frames.
    class capture_t {
    public:
        ~capture_t();
        capture_t(const capture_t &) = delete;
        capture_t &operator=(const capture_t &) = delete;

        std::vector<uint8_t> take();

    private:
        friend lab_t;
        capture_t(lab_t &lab, const std::vector<size_t> &cables);

        lab_t &lab_;
        std::map<size_t, uint32_t> interfaces_; ///< by cable
        std::vector<uint8_t> octets_;
    };
    std::unique_ptr<capture_t> capture(const std::vector<size_t> &cables);

private:
    struct member_t;

    /// What is known of a cable's end.
    struct side_t {
        bool link = false;
        std::string role, state;
        uint32_t cost = 0;
        std::optional<claim_t> claim;
    };

    void build(member_t &member);
    void start(member_t &member);
    void start_ruler(member_t &member);
    void configure(member_t &member);
    void do_event(const topology::event_t &event, const std::string &command);
    void take_power(member_t &member); ///< whose mutex is held
    void forget(member_t &member);     ///< what was seen of one that runs no more
    uint64_t tell(const std::string &what, const member_t *member, unsigned port, const std::string &value,
                  const std::string &text, const std::string &cable = {});
    void note_frame(size_t cable, unsigned from, std::span<const uint8_t> frame);
    void note_claim(size_t cable, unsigned from, std::span<const uint8_t> frame);
    void set_seen(member_t &member, unsigned port, bool link, const std::string &state);
    void set_role(member_t &member, unsigned port, const std::string &role);
    void set_root(member_t &member, const std::string &root, unsigned root_port);
    void later(topology::span_t when, std::function<void()> action);
    void watch();
    void watch_ports(member_t &member);
    void watch_daemon(member_t &member);
    void watch_bridge(member_t &member);
    void look_for_calm();
    std::string bridge_name(const std::string &identifier) const;

    const std::string name_;
    topology::network_t network_;
    journal_t journal_;
    std::vector<topology::event_t> story_; ///< of the file; what was done is in the network's
    std::vector<std::unique_ptr<member_t>> members_;
    fd_t net_; ///< the network namespace of the cables' peers

    mutable std::mutex mutex_; ///< of what was seen
    std::vector<std::array<side_t, 2>> sides_;
    std::vector<capture_t *> captures_;
    double last_change_ = 0; ///< milliseconds of the lab
    bool calm_ = false;

    std::mutex acting_; ///< of the network's story
    std::unique_ptr<prober_t> prober_;
    std::unique_ptr<wires_t> wires_;
    fd_t wake_; ///< of the watching thread
    std::atomic<uint64_t> last_command_ = 0;
    std::atomic<bool> ends_ = false;
    std::thread watcher_;
    std::mutex ending_;
    std::condition_variable end_;
    std::vector<std::thread> later_;
};

/// Whether a lab is at rest by what its ports show: wherever cables lead, all know the same root, which is among
/// them; what is to forward does, and nothing else.
bool rests(const lab_view_t &view);

} // namespace lvt_lab
