#include "sim/shrink.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <utility>

#include <fmt/format.h>
#include <sys/wait.h>
#include <unistd.h>

#include "sim/could_not.h"

namespace sim {

namespace {

constexpr unsigned LONGEST_TRIAL = 60; ///< seconds; then it does not come back
// How the process of a trial ends; otherwise than so it has crashed.
constexpr int HELD = 100;
constexpr int BROKEN = HELD + 1; ///< and the property

bool is_about_cable(deed_t deed)
{
    return deed == deed_t::CUT || deed == deed_t::MEND || deed == deed_t::DEAFEN || deed == deed_t::HEAL;
}

story_t without_cables(story_t story, const std::vector<bool> &gone)
{
    std::vector<uint32_t> moved(gone.size());
    std::vector<story_cable_t> left;
    for (size_t i = 0; i < gone.size(); i++)
        if (!gone[i]) {
            moved[i] = static_cast<uint32_t>(left.size());
            left.push_back(story.cables[i]);
        }
    std::erase_if(story.events,
                  [&](const story_event_t &event) { return is_about_cable(event.deed) && gone[event.subject]; });
    for (story_event_t &event : story.events)
        if (is_about_cable(event.deed))
            event.subject = moved[event.subject];
    story.cables = std::move(left);
    return story;
}

story_t without_nodes(story_t story, const std::vector<bool> &gone)
{
    // Names stay, so that a smaller story reads like the larger one.
    for (uint32_t i = 0; i < story.nodes.size(); i++)
        story.nodes[i].name = node_name(story, i);
    std::vector<bool> loose;
    for (const story_cable_t &cable : story.cables)
        loose.push_back(gone[cable.ends[0].node] || gone[cable.ends[1].node]);
    story = without_cables(std::move(story), loose);
    std::vector<uint32_t> moved(gone.size());
    std::vector<story_node_t> left;
    for (size_t i = 0; i < gone.size(); i++)
        if (!gone[i]) {
            moved[i] = static_cast<uint32_t>(left.size());
            left.push_back(story.nodes[i]);
        }
    for (story_cable_t &cable : story.cables)
        for (end_t &end : cable.ends)
            end.node = moved[end.node];
    std::erase_if(story.events,
                  [&](const story_event_t &event) { return !is_about_cable(event.deed) && gone[event.subject]; });
    for (story_event_t &event : story.events)
        if (!is_about_cable(event.deed))
            event.subject = moved[event.subject];
    story.nodes = std::move(left);
    return story;
}

story_t without_events(story_t story, const std::vector<bool> &gone)
{
    size_t i = 0;
    std::erase_if(story.events, [&](const story_event_t &) { return gone[i++]; });
    return story;
}

class shrinking_t {
public:
    shrinking_t(story_t story, const verdict_of_t &verdict_of, const std::function<void(const story_t &)> &progress)
        : story_(std::move(story)), verdict_of_(verdict_of), progress_(progress), wanted_(verdict_of(story_))
    {
    }

    story_t run();

private:
    bool take(story_t smaller);
    /// Leaves parts out, half of them at a time, then a quarter, down to each by itself.
    template <typename count_t, typename without_t>
    bool leave_out(const count_t &count, const without_t &without);
    bool simplify();

    story_t story_;
    const verdict_of_t &verdict_of_;
    const std::function<void(const story_t &)> &progress_;
    const std::string wanted_;
};

bool shrinking_t::take(story_t smaller)
{
    if (verdict_of_(smaller) != wanted_)
        return false;
    story_ = std::move(smaller);
    if (progress_)
        progress_(story_);
    return true;
}

template <typename count_t, typename without_t>
bool shrinking_t::leave_out(const count_t &count, const without_t &without)
{
    bool moved = false;
    for (size_t size = std::max<size_t>(count() / 2, 1);; size /= 2) {
        for (size_t from = 0; from < count();) {
            std::vector<bool> gone(count());
            for (size_t i = from; i < std::min(from + size, count()); i++)
                gone[i] = true;
            if (take(without(story_, gone)))
                moved = true;
            else
                from += size;
        }
        if (size <= 1)
            return moved;
    }
}

/// Makes single things what they are without any wish.
bool shrinking_t::simplify()
{
    bool moved = false;
    const auto attempt = [&](auto change) {
        story_t simpler = story_;
        if (change(simpler) && take(std::move(simpler)))
            moved = true;
    };
    const auto set = [](auto &value, const auto &simple) {
        if (value == simple)
            return false;
        value = simple;
        return true;
    };
    attempt([&](story_t &story) { return story.rests.size() > 1 && (story.rests.pop_back(), true); });
    attempt([&](story_t &story) { return story.rests.size() > 1 && (story.rests.erase(story.rests.begin()), true); });
    for (size_t i = 0; i < story_.nodes.size(); i++) {
        attempt([&](story_t &story) { return set(story.nodes[i].groups, AGGR_STATUS_ALONE); });
        attempt([&](story_t &story) { return set(story.nodes[i].boot, moment_t{0}); });
        attempt([&](story_t &story) { return set(story.nodes[i].second, SECOND); });
        attempt([&](story_t &story) { return set(story.nodes[i].phase, SECOND); });
        attempt([&](story_t &story) { return set(story.nodes[i].bridge.force_version, uint8_t{2}); });
        attempt([&](story_t &story) {
            return set(story.nodes[i].bridge.bridge_priority, LVT_RSTP_SYSTEM_DEFAULTS.bridge_priority);
        });
        for (size_t port = 0; port <= FRONT_PORTS; port++) {
            attempt([&](story_t &story) { return set(story.nodes[i].ports[port].port_priority, uint16_t{128}); });
            attempt([&](story_t &story) { return set(story.nodes[i].ports[port].adminPathCost, uint32_t{0}); });
        }
    }
    for (size_t i = 0; i < story_.cables.size(); i++) {
        attempt([&](story_t &story) { return set(story.cables[i].mbit, 1000u); });
        attempt([&](story_t &story) { return set(story.cables[i].full_duplex, true); });
        for (size_t side = 0; side < 2; side++) {
            attempt([&](story_t &story) { return set(story.cables[i].ways[side].delay, MILLISECOND); });
            attempt([&](story_t &story) { return set(story.cables[i].ways[side].jitter, moment_t{0}); });
            attempt([&](story_t &story) { return set(story.cables[i].ways[side].lost, 0u); });
            attempt([&](story_t &story) { return set(story.cables[i].ways[side].doubled, 0u); });
        }
    }
    return moved;
}

story_t shrinking_t::run()
{
    if (wanted_.empty())
        return std::move(story_);
    for (bool moved = true; moved;) {
        moved = leave_out([&] { return story_.events.size(); }, without_events);
        moved |= leave_out([&] { return story_.nodes.size(); }, without_nodes);
        moved |= leave_out([&] { return story_.cables.size(); }, without_cables);
        moved |= simplify();
    }
    return std::move(story_);
}

} // namespace

std::string broken_property(const story_t &story)
{
    std::fflush(nullptr);
    const pid_t pid = fork();
    if (pid < 0)
        throw could_not_t(fmt::format("cannot start a process: {}", std::strerror(errno)));
    if (pid == 0) {
        alarm(LONGEST_TRIAL);
        if (!std::freopen("/dev/null", "w", stdout) || !std::freopen("/dev/null", "w", stderr))
            _exit(HELD);
        for (const finding_t &finding : try_story(story).findings)
            if (finding.promised)
                _exit(BROKEN + finding.property);
        _exit(HELD);
    }
    int status = 0;
    while (waitpid(pid, &status, 0) < 0)
        if (errno != EINTR)
            throw could_not_t(fmt::format("cannot wait for a process: {}", std::strerror(errno)));
    const int end = WIFEXITED(status) ? WEXITSTATUS(status) : 0;
    if (end == HELD)
        return "";
    const int property = end - BROKEN;
    return property >= 0 && property < PROPERTIES ? property_name(static_cast<property_t>(property)) : "no-crash";
}

story_t shrink(story_t story, const verdict_of_t &verdict_of, const std::function<void(const story_t &)> &progress)
{
    return shrinking_t(std::move(story), verdict_of, progress).run();
}

} // namespace sim
