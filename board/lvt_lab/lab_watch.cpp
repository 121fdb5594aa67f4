#include "board/lvt_lab/lab_member.h"

#include <algorithm>
#include <fstream>

#include <fmt/format.h>
#include <sys/epoll.h>
#include <sys/stat.h>
#include <unistd.h>

#include "lvt_board/links.h"
#include "tools/words.h"

namespace lvt_lab {

namespace {

using lab::checked;

constexpr auto LOOK = std::chrono::milliseconds(250); ///< from one look at status files to the next
constexpr double CALM_AFTER = 2500;                   ///< milliseconds without change: two status files and more

/// The kernel's words as ours.
std::string kernel_state(bool link, const std::string &state)
{
    if (!link)
        return "down";
    return state == "learning" || state == "forwarding" ? state : "discarding";
}

} // namespace

uint64_t lab_t::tell(const std::string &what, const member_t *member, unsigned port, const std::string &value,
                     const std::string &text, const std::string &cable)
{
    event_t event;
    event.what = what;
    event.value = value;
    event.text = text;
    event.port = port;
    event.cable = cable;
    if (member) {
        event.node = member->name();
        if (const auto place = member->places.find(port); place != member->places.end())
            event.cable = cable_name(place->second.cable);
    }
    return journal_.add(std::move(event));
}

// mutex_ is held in the next three.
void lab_t::set_seen(member_t &member, unsigned port, bool link, const std::string &state)
{
    const auto place = member.places.find(port);
    if (place == member.places.end())
        return;
    side_t &side = sides_[place->second.cable][place->second.end];
    const std::string end = fmt::format("{}:{}", member.name(), port);
    if (side.link != link) {
        side.link = link;
        tell("link", &member, port, link ? "up" : "down",
             fmt::format("{} has {}", end, link ? "link" : "lost its link"));
        last_change_ = journal_.now();
        calm_ = false;
    }
    if (side.state != state) {
        side.state = state;
        if (link)
            tell("state", &member, port, state,
                 fmt::format("{} {}", end,
                             state == "discarding"   ? "discards"
                             : state == "learning"   ? "learns"
                             : state == "forwarding" ? "forwards"
                                                     : "is off"));
        last_change_ = journal_.now();
        calm_ = false;
    }
}

void lab_t::set_role(member_t &member, unsigned port, const std::string &role)
{
    const auto place = member.places.find(port);
    if (place == member.places.end())
        return;
    side_t &side = sides_[place->second.cable][place->second.end];
    if (side.role == role)
        return;
    side.role = role;
    tell("role", &member, port, role, fmt::format("{}:{} is {}", member.name(), port, role));
    last_change_ = journal_.now();
    calm_ = false;
}

void lab_t::set_root(member_t &member, const std::string &root, unsigned root_port)
{
    if (member.root != root) {
        tell("root", &member, 0, root,
             fmt::format("{} takes {} for the root", member.name(),
                         root == member.identifier ? "itself" : bridge_name(root)));
        last_change_ = journal_.now();
        calm_ = false;
    }
    member.root = root;
    member.root_port = root_port;
}

std::string lab_t::bridge_name(const std::string &identifier) const
{
    for (const auto &member : members_)
        if (identifier.ends_with("/" + member->node().mac()))
            return member->name();
    return identifier;
}

void lab_t::watch()
{
    const fd_t epoll(checked(epoll_create1(EPOLL_CLOEXEC), "epoll"));
    constexpr uint64_t WAKE = UINT64_MAX;
    const auto add = [&](const fd_t &fd, uint64_t data) {
        epoll_event event = {.events = EPOLLIN, .data = {.u64 = data}};
        checked(epoll_ctl(epoll.number(), EPOLL_CTL_ADD, fd.number(), &event), "epoll");
    };
    add(wake_, WAKE);
    for (const auto &member : members_)
        if (member->device)
            add(member->log, member->index);
        else if (member->bridge) {
            add(member->link_events, member->index);
            member->looks = 2;
        }

    auto next_look = std::chrono::steady_clock::now();
    while (!ends_) {
        epoll_event events[64];
        const auto left = std::chrono::ceil<std::chrono::milliseconds>(next_look - std::chrono::steady_clock::now());
        const int count =
            epoll_wait(epoll.number(), events, std::size(events), std::max<int>(0, static_cast<int>(left.count())));
        for (int i = 0; i < count; i++) {
            if (events[i].data.u64 == WAKE)
                continue;
            member_t &member = *members_[events[i].data.u64];
            if (member.device) {
                char text[16384];
                bool ports = false;
                for (ssize_t got; (got = read(member.log.number(), text, sizeof text)) > 0;) {
                    const std::string_view lines(text, static_cast<size_t>(got));
                    ports = ports || lines.find(" mdio ") != std::string_view::npos ||
                            lines.find(" link port=") != std::string_view::npos;
                }
                if (ports)
                    watch_ports(member);
            } else {
                link_events_read(member.link_events, [](const link_news_t &) {});
                watch_bridge(member);
            }
        }
        if (std::chrono::steady_clock::now() < next_look)
            continue;
        next_look = std::chrono::steady_clock::now() + LOOK;
        for (const auto &member : members_) {
            if (member->has_daemon())
                watch_daemon(*member);
            if (member->bridge && member->looks > 0) {
                member->looks--;
                watch_bridge(*member);
            }
        }
        look_for_calm();
    }
}

void lab_t::watch_ports(member_t &member)
{
    if (member.powered)
        try {
            if (!member.client)
                member.client.emplace(member.device->client());
            const std::vector<board_port_t> seen = member.client->ports();
            const std::lock_guard lock(mutex_);
            for (const board_port_t &port : seen)
                set_seen(member, port.port, port.link,
                         port.link ? state_word(static_cast<int>(port.state)) : state_word(HW_DISABLED));
        } catch (const board_error_t &) {
            member.client.reset(); // it is gone, or not there yet
        }
}

void lab_t::watch_daemon(member_t &member)
{
    std::string path;
    if (member.runs) {
        // Who dies by itself is noticed here.
        const std::unique_lock lock(member.mutex, std::try_to_lock);
        if (!lock)
            return;
        path = member.status_path;
        if (member.runs && member.device && !member.device->board().running()) {
            tell("daemon", &member, 0, "dead",
                 fmt::format("the board of {} has ended: it has no power", member.name()));
            take_power(member);
        } else if (member.runs && !member.daemon().running()) {
            member.runs = false;
            tell("daemon", &member, 0, "dead", fmt::format("the daemon of {} has ended", member.name()));
        }
    }
    struct stat file = {};
    if (!member.runs || stat(path.c_str(), &file) != 0 ||
        (file.st_mtim.tv_sec == member.status_time.tv_sec && file.st_mtim.tv_nsec == member.status_time.tv_nsec))
        return;
    std::ifstream stream(path);
    const auto status = lab::parse_status({std::istreambuf_iterator<char>(stream), {}});
    if (!status)
        return;
    member.status_time = file.st_mtim;
    const std::lock_guard lock(mutex_);
    if (!member.runs)
        return;
    member.identifier = bridge_id_text(status->bridge);
    set_root(member, bridge_id_text(status->root), static_cast<unsigned>(status->root_port));
    for (const auto &[port, place] : member.places) {
        const port_status_t &own = status->port(static_cast<int>(port));
        const port_status_t &its = own.group ? status->port(own.group) : own;
        set_role(member, port, role_word(its.role));
        sides_[place.cable][place.end].cost = its.path_cost;
    }
}

void lab_t::watch_bridge(member_t &member)
{
    lab::kernel_view_t seen;
    try {
        seen = member.bridge->view();
    } catch (const std::exception &problem) { // ip was not to be had, say
        tell("daemon", &member, 0, "", fmt::format("{}: {}", member.name(), problem.what()));
        return;
    }
    std::map<size_t, bool> links;
    for (const auto &[port, place] : member.places)
        links[place.cable] = wires_->has_link(place.cable);

    const std::lock_guard lock(mutex_);
    if (!member.has_daemon()) {
        member.identifier = bridge_id_text(seen.bridge);
        set_root(member, bridge_id_text(seen.root), static_cast<unsigned>(seen.root_port));
    }
    for (const auto &[port, place] : member.places) {
        const auto found = seen.ports.find(member.interface(port));
        if (found == seen.ports.end())
            continue;
        const auto &[number, state, root] = found->second;
        const bool link = links[place.cable];
        set_seen(member, port, link, kernel_state(link, state));
        if (!member.has_daemon())
            set_role(member, port,
                     !link                      ? "disabled"
                     : number == seen.root_port ? "root"
                     : state == "blocking"      ? "alternate"
                                                : "designated");
    }
}

void lab_t::look_for_calm()
{
    {
        const std::lock_guard lock(mutex_);
        if (calm_ || journal_.now() - last_change_ < CALM_AFTER)
            return;
    }
    if (!rests(view()) || prober_->is_in_doubt())
        return;
    for (const prober_t::result_t &pair : prober_->end()) {
        const std::string names = fmt::format("{} and {}", pair.from, pair.to);
        if (!pair.reached)
            tell("ping", nullptr, 0, "never", names + " do not reach each other, nor did they before");
        else if (pair.apart)
            tell("ping", nullptr, 0, "apart", names + " reach each other no more");
        else if (pair.longest_ms == 0)
            tell("ping", nullptr, 0, "0", fmt::format("no ping between {} was lost", names));
    }
    double since;
    {
        const std::lock_guard lock(mutex_);
        calm_ = true;
        since = last_change_;
    }
    tell("calm", nullptr, 0, fmt::format("{:.0f}", since), "at rest");
}

} // namespace lvt_lab
