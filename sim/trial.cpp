#include "sim/trial.h"

#include <algorithm>

#include <fmt/format.h>

#include "sim/invariants.h"
#include "sim/judge.h"
#include "sim/stage.h"
#include "tools/bpdu_frame.h"
#include "tools/words.h"

namespace sim {

namespace {

constexpr uint64_t LOOKS = 16;          ///< of so many events, one is followed by a look at the records
constexpr moment_t MURMUR = 2 * SECOND; ///< a host is heard that often
constexpr size_t FRAMES_ANYWAY = 200;   ///< sent in a second, and some for each cable: more is a storm
constexpr size_t FRAMES_OF_A_CABLE = 40;

std::string seconds(moment_t at) { return fmt::format("{}.{:06}", at / SECOND, at % SECOND); }

template <typename visit_t>
void for_each_bridge(const story_t &story, const visit_t &visit)
{
    for (const story_node_t &node : story.nodes)
        visit(node.bridge);
    for (const story_event_t &event : story.events)
        if (event.deed == deed_t::SET_BRIDGE)
            visit(event.bridge);
}

moment_t slowest(const story_t &story)
{
    moment_t most = 0;
    for (const story_cable_t &cable : story.cables)
        for (const way_t &way : cable.ways)
            most = std::max(most, way.delay + way.jitter);
    return most;
}

/// Whether some port tells a topology change for max age and forward delay, and not for two hellos: on a shared
/// segment, or to an STP bridge.
bool tells_changes_long(const story_t &story)
{
    bool is_long = false;
    for (const story_node_t &node : story.nodes)
        is_long = is_long || node.manner == manner_t::STP || node.manner == manner_t::RANDOM;
    for (const story_cable_t &cable : story.cables)
        is_long = is_long || !cable.full_duplex;
    for_each_bridge(story, [&](const auto &bridge) { is_long = is_long || bridge.force_version < 2; });
    return is_long;
}

/// That a frame takes at most from host to host.
moment_t crossing_time(const story_t &story)
{
    return std::min<moment_t>((slowest(story) + 1) * (story.nodes.size() + 2), 5 * SECOND);
}

constexpr int ROUNDS_OF_HOSTS = 3;

moment_t hello(const story_t &story)
{
    moment_t longest = 0;
    for_each_bridge(story, [&](const auto &bridge) { longest = std::max<moment_t>(longest, bridge.hello_time); });
    return longest * SECOND;
}

moment_t longest_told(const story_t &story)
{
    moment_t most = 0;
    for_each_bridge(
        story, [&](const auto &bridge) { most = std::max<moment_t>(most, bridge.max_age + bridge.forward_delay); });
    return most * SECOND;
}

class trial_t : public watcher_t {
public:
    trial_t(const story_t &story, const listener_t &listener)
        : story_(story), listener_(listener), stage_(story), world_(stage_.world()), loops_(world_),
          seen_(story.nodes.size()), said_(2 * story.cables.size())
    {
        outcome_.faults = story.faults;
        world_.watch(&loops_);
        world_.watch(this);
        for (node_id_t id = 0; id < world_.nodes(); id++)
            if (world_.node(id).kind == node_kind_t::HOST)
                hosts_.push_back(id);
    }

    outcome_t run();

private:
    struct seen_t {
        std::array<uint8_t, FRONT_PORTS> states;
        std::array<uint8_t, RSTP_PORTS> roles;
    };

    void sent(cable_id_t cable, unsigned from, const frame_t &frame) override;
    void chip_changed(node_id_t node) override;
    void chip_written(node_id_t node, const mdio_multi_t &batch) override;
    void event_done(node_id_t node) override;

    void say(const std::string &words)
    {
        if (listener_)
            listener_(fmt::format("{:>12} {}", seconds(world_.now()), words));
    }
    std::string name(node_id_t node) const { return world_.node(node).name; }
    void find(property_t property, std::string words);
    /// False when more frames are sent than there may be.
    bool run_until(moment_t until);
    right_tree_t tree();
    void rest(moment_t from, moment_t at);
    void judge_hellos(const right_tree_t &right, moment_t from, bool may_tell);
    void judge_hosts();
    void send_data(node_id_t host, const std::array<uint8_t, 6> &to);
    void murmur();

    const story_t &story_;
    const listener_t &listener_;
    outcome_t outcome_ = {};
    stage_t stage_;
    world_t &world_;
    loop_watcher_t loops_;
    std::vector<seen_t> seen_;
    std::vector<uint32_t> said_; ///< BPDUs by cable and end
    std::vector<node_id_t> hosts_;
    moment_t changed_ = 0; ///< last change of a role or a state
    moment_t flushed_ = 0; ///< last time that a switch forgot its addresses
    uint64_t bpdus_ = 0, flushes_ = 0;
    uint64_t second_ = 0, sent_ = 0; ///< frames of this second
    uint64_t looks_ = 0;
    bool watched_ = false; ///< the murmuring host is silent, too
};

// ---- watching -----------------------------------------------------------------------------

void trial_t::sent(cable_id_t cable, unsigned from, const frame_t &frame)
{
    if (const uint64_t second = world_.now() / SECOND; second != second_) {
        second_ = second;
        sent_ = 0;
    }
    sent_++;
    if (!is_bpdu({frame.octets.data(), frame.length}))
        return;
    said_[2 * cable + from]++;
    bpdus_++;
}

void trial_t::chip_changed(node_id_t node)
{
    for (unsigned port = 1; port <= FRONT_PORTS; port++) {
        const auto state = static_cast<uint8_t>(switch_port_state(world_.device(node), port));
        if (uint8_t &seen = seen_[node].states[port - 1]; seen != state) {
            seen = state;
            changed_ = world_.now();
            if (listener_)
                say(fmt::format("{}:{} {}", name(node), port, chip_state_name(state)));
        }
    }
    if (!loops_.ring().empty())
        find(NO_LOOP, "data can go round: " + loops_.ring());
}

void trial_t::chip_written(node_id_t node, const mdio_multi_t &batch)
{
    for (const mdio_op_t &op : std::span(batch.operations, batch.count))
        if (empties_addresses(op)) {
            flushes_++;
            flushed_ = world_.now();
            if (listener_)
                say(fmt::format("{} forgets all addresses", name(node)));
        }
}

void trial_t::event_done(node_id_t node)
{
    if (!world_.device(node).daemon_runs)
        return;
    const lvt_rstp_vars_t &vars = switch_vars(world_.device(node));
    for (unsigned port = 0; port < RSTP_PORTS; port++)
        if (uint8_t &seen = seen_[node].roles[port]; seen != vars.ports[port].role) {
            seen = vars.ports[port].role;
            changed_ = world_.now();
            if (listener_)
                say(fmt::format("{}:{} is {}", name(node), port + 1, role_word(seen)));
        }
    if (++looks_ % LOOKS)
        return;
    chip_states_t states = {};
    for (unsigned port = 1; port <= FRONT_PORTS; port++)
        states[port] = static_cast<uint8_t>(switch_port_state(world_.device(node), port));
    if (const std::string wrong = record_faults(states); !wrong.empty())
        find(RECORDS, fmt::format("{}: {}", name(node), wrong.substr(0, wrong.find('\n'))));
}

void trial_t::find(property_t property, std::string words)
{
    for (const finding_t &finding : outcome_.findings)
        if (finding.property == property)
            return;
    outcome_.findings.push_back({property, true, world_.now(), std::move(words)});
    say(fmt::format("NOT {}: {}", property_name(property), outcome_.findings.back().words));
}

// ---- hosts --------------------------------------------------------------------------------

void trial_t::send_data(node_id_t host, const std::array<uint8_t, 6> &to)
{
    std::array<uint8_t, 60> frame = {};
    std::copy(to.begin(), to.end(), frame.begin());
    const std::array<uint8_t, 6> from = world_.host_address(host);
    std::copy(from.begin(), from.end(), frame.begin() + 6);
    frame[12] = 0x88;
    frame[13] = 0xB5; // for local experiments
    world_.send(host, frame);
}

constexpr std::array<uint8_t, 6> EVERYBODY = {0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF};

/// The first host is heard all the time; the others are silent, so that what is known of them may be stale.
void trial_t::murmur()
{
    if (!watched_)
        send_data(hosts_[0], EVERYBODY);
    world_.at(world_.now() + MURMUR, [this] { murmur(); });
}

/// Every host to its neighbour in the list, as it was known before; then to all; then to its neighbour again.
void trial_t::judge_hosts()
{
    parts_t parts(world_);
    const moment_t crossing = crossing_time(story_);
    for (int round = 0; round < ROUNDS_OF_HOSTS; round++)
        for (size_t i = 0; i < hosts_.size(); i++) {
            const node_id_t from = hosts_[i], to = hosts_[(i + 1) % hosts_.size()];
            std::vector<uint64_t> before;
            for (const node_id_t host : hosts_)
                before.push_back(world_.host_received(host));
            const bool to_all = round == 1;
            send_data(from, to_all ? EVERYBODY : world_.host_address(to));
            if (!run_until(world_.now() + crossing))
                return;
            for (size_t j = 0; j < hosts_.size(); j++) {
                const node_id_t host = hosts_[j];
                const bool expected = host != from && (to_all || host == to) && parts.are_joined(from, host);
                const uint64_t times = world_.host_received(host) - before[j];
                const bool may_double = expected && outcome_.faults & bit(DOUBLING);
                if (times != (expected ? 1 : 0) && !(may_double && times > 1))
                    find(NO_BLACKHOLE, fmt::format("{} gets a frame of {} {} times instead of {}, {}", name(host),
                                                   name(from), times, expected ? 1 : 0,
                                                   to_all       ? "sent to all"
                                                   : round == 0 ? "by what was learned before"
                                                                : "by what was learned now"));
            }
        }
}

// ---- rests --------------------------------------------------------------------------------

/// Since `from`, every designated port has said one BPDU a hello, root ports no more than an answer to each, and
/// where a topology change may still be told as much again; nobody else any.
void trial_t::judge_hellos(const right_tree_t &right, moment_t from, bool may_tell)
{
    for (const verdict_t &verdict : right.verdicts) {
        const cable_id_t id = world_.cable_at({verdict.node, verdict.port});
        if (verdict.port > FRONT_PORTS || id == NO_CABLE)
            continue;
        const cable_t &cable = world_.cable(id);
        const unsigned end = cable.ends[0].node == verdict.node && cable.ends[0].port == verdict.port ? 0 : 1;
        const way_t &way = cable.ways[end];
        if (way.lost || way.doubled || way.dead)
            continue;
        const uint64_t hello = switch_vars(world_.device(verdict.node)).bridge.rootTimes.HelloTime;
        const uint64_t hellos = (world_.now() - from) / (hello * SECOND);
        const uint64_t least = verdict.role == ROLE_DESIGNATED ? hellos - 1 : 0;
        const uint64_t heard = said_[2 * id + 1 - end];
        const uint64_t most = verdict.role == ROLE_DESIGNATED ? hellos + 1
                              : verdict.role == ROLE_ROOT     ? (std::max(hellos, heard) + 1) * (may_tell ? 2 : 1)
                                                              : 0;
        if (const uint64_t said = said_[2 * id + end]; said < least || said > most)
            find(REST, fmt::format("{}:{} said {} BPDUs in {} s, not {} to {}", name(verdict.node), verdict.port, said,
                                   (world_.now() - from) / SECOND, least, most));
    }
}

/// What the tree should be now.
right_tree_t trial_t::tree()
{
    std::vector<outsider_t> outsiders;
    for (node_id_t id = 0; id < world_.nodes(); id++)
        if (const story_node_t &node = story_.nodes[id];
            node.kind == node_kind_t::SPEAKER && world_.now() < node.hush &&
            (node.manner == manner_t::STP || node.manner == manner_t::BETTER))
            outsiders.push_back({id, stage_.identifier_of(id), node.bridge.max_age, node.bridge.hello_time});
    right_tree_t right = right_tree(world_, outsiders);
    if (right.wide)
        outcome_.faults |= bit(WIDE);
    return right;
}

void trial_t::rest(moment_t from, moment_t at)
{
    const moment_t quiet_from = at - watched_at_rest(story_);
    if (!run_until(quiet_from))
        return;
    const settling_t settling = {from, changed_, flushed_, bpdus_, flushes_, 0};
    std::fill(said_.begin(), said_.end(), 0);
    watched_ = true;
    if (!run_until(at))
        return;
    const right_tree_t right = tree();
    outcome_.settlings.push_back(settling);
    outcome_.settlings.back().depth = right.depth;
    if (changed_ > quiet_from)
        find(REST, "still changing at " + seconds(changed_));
    // A change is told by each bridge in turn, up and down the tree, for two hellos or as long as some tell it.
    const moment_t each = tells_changes_long(story_) ? longest_told(story_) : 2 * hello(story_);
    const moment_t told = 2 * (right.depth + 1) * each;
    const bool may_tell = std::max(from, settling.at_rest) + told >= quiet_from;
    if (flushed_ > quiet_from && !may_tell)
        find(REST, "addresses are still forgotten at " + seconds(flushed_));
    if (const std::string wrong = wrong_ports(world_, right); !wrong.empty())
        find(RIGHT_TREE, wrong.substr(0, wrong.find('\n')));
    else
        judge_hellos(right, quiet_from, may_tell);
    if (hosts_.size() > 1)
        judge_hosts();
    watched_ = false;
    say("judged at rest");
}

bool trial_t::run_until(moment_t until)
{
    const uint64_t most = FRAMES_ANYWAY + FRAMES_OF_A_CABLE * story_.cables.size();
    while (world_.step(until))
        if (sent_ > most) {
            tree(); // who is to blame
            find(NO_STORM, fmt::format("{} frames in a second", sent_));
            return false;
        }
    return true;
}

outcome_t trial_t::run()
{
    if (!hosts_.empty())
        world_.at(MURMUR, [this] { murmur(); });
    if (listener_)
        for (const story_event_t &event : story_.events)
            world_.at(event.at, [this, &event] { say("* " + event_words(story_, event)); });
    size_t next = 0;
    moment_t last = 0;
    for (const story_node_t &node : story_.nodes)
        last = std::max(last, node.boot);
    for (const moment_t at : story_.rests) {
        for (; next < story_.events.size() && story_.events[next].at < at; next++)
            last = story_.events[next].at;
        bpdus_ = flushes_ = 0;
        rest(last, at);
        if (std::any_of(outcome_.findings.begin(), outcome_.findings.end(),
                        [](const finding_t &finding) { return finding.property == NO_STORM; }))
            break; // which leaves no time to go on
    }
    const unsigned kept = promised(outcome_.faults);
    for (finding_t &finding : outcome_.findings)
        finding.promised = kept & bit(finding.property);
    uint64_t switches = 0;
    for (node_id_t id = 0; id < world_.nodes(); id++)
        switches += world_.node(id).kind == node_kind_t::SWITCH;
    outcome_.switch_seconds = switches * world_.now() / SECOND;
    outcome_.events = world_.events();
    return std::move(outcome_);
}

} // namespace

outcome_t try_story(const story_t &story, const listener_t &listener) { return trial_t(story, listener).run(); }

moment_t settling_bound(const story_t &story)
{
    moment_t max_age = 0, hello = 0, forward_delay = 0;
    for_each_bridge(story, [&](const lvt_rstp_system_config_t &bridge) {
        max_age = std::max<moment_t>(max_age, bridge.max_age);
        hello = std::max<moment_t>(hello, bridge.hello_time);
        forward_delay = std::max<moment_t>(forward_delay, bridge.forward_delay);
    });
    // Old news die: three hellos, and then as long as they are passed on. Each port waits twice, and once more
    // where it was cut when another root was heard of; the rest is for passes that wait for the next tick.
    return (3 * hello + 2 * max_age + 3 * forward_delay + 5) * SECOND + 20 * slowest(story);
}

moment_t judging_time(const story_t &story)
{
    const auto hosts = std::count_if(story.nodes.begin(), story.nodes.end(),
                                     [](const story_node_t &node) { return node.kind == node_kind_t::HOST; });
    return static_cast<moment_t>(ROUNDS_OF_HOSTS * hosts) * crossing_time(story) + SECOND;
}

moment_t watched_at_rest(const story_t &story) { return 4 * hello(story); }

} // namespace sim
