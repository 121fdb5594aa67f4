#include "board/lvt_lab/lab_member.h"

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <future>

#include <fcntl.h>
#include <fmt/format.h>
#include <fmt/ranges.h>
#include <nlohmann/json.hpp>
#include <sys/eventfd.h>
#include <unistd.h>

#include "board/lab/within.h"
#include "board/lab/world.h"
#include "lvt_board/links.h"
#include "tools/ctl/ctl.h"
#include "tools/topology/story.h"
#include "tools/topology/values.h"

namespace lvt_lab {

namespace {

using lab::checked;
using topology::kind_t;
using topology::verb_t;

constexpr size_t STARTS_AT_ONCE = 8;

/// Calls it for all members, several at a time; throws what the first throws.
template <typename members_t, typename action_t>
void for_all(members_t &members, action_t action)
{
    std::atomic<size_t> next = 0;
    std::vector<std::future<void>> workers;
    for (size_t i = 0; i < std::min(members.size(), STARTS_AT_ONCE); i++)
        workers.push_back(std::async(std::launch::async, [&] {
            for (size_t mine; (mine = next++) < members.size();)
                action(*members[mine]);
        }));
    std::exception_ptr thrown;
    for (std::future<void> &worker : workers)
        try {
            worker.get();
        } catch (...) {
            next = members.size();
            thrown = std::current_exception();
        }
    if (thrown)
        std::rethrow_exception(thrown);
}

} // namespace

std::string config_text(const settings_t &settings)
{
    std::string text, section;
    for (const std::string &change : topology::changed_settings({}, settings)) {
        const size_t sign = change.find('='), dot = change.rfind('.', sign);
        if (change.substr(0, dot) != section) {
            section = change.substr(0, dot);
            text += fmt::format("{}[{}]\n", text.empty() ? "" : "\n", section);
        }
        text += fmt::format("{} = {}\n", change.substr(dot + 1, sign - dot - 1),
                            topology::toml_value(change.substr(sign + 1)));
    }
    return text;
}

void lab_t::build(member_t &member)
{
    const topology::node_t &told = member.told;
    switch (told.kind) {
    case kind_t::SWITCH: {
        int ends[2];
        checked(pipe2(ends, O_CLOEXEC), "pipe");
        member.log = fd_t(ends[0]);
        member.log_end = fd_t(ends[1]);
        fcntl(member.log.number(), F_SETFL, O_NONBLOCK);
        member.device = std::make_unique<lab::switch_t>(lab::switch_settings_t{.name = told.name,
                                                                               .number = member.number(),
                                                                               .rapid = told.rapid,
                                                                               .daemon_options = told.options,
                                                                               .board_log = member.log_end.number()});
        break;
    }
    case kind_t::LVT_BRIDGE:
        member.bridge = std::make_unique<lab::kernel_bridge_t>(told.name, member.number(), lab::bridge_settings_t{});
        break;
    case kind_t::LINUX_BRIDGE: {
        const lvt_rstp_system_config_t &bridge = told.settings.bridge;
        member.bridge = std::make_unique<lab::kernel_bridge_t>(
            told.name, member.number(),
            lab::bridge_settings_t{bridge.bridge_priority, bridge.max_age, bridge.hello_time, bridge.forward_delay});
        break;
    }
    default:
        member.host = std::make_unique<lab::host_t>(told.name, member.number(), told.address);
    }

    std::string commands;
    for (const auto &[port, place] : member.places) {
        const std::string interface = member.interface(port);
        commands += fmt::format(
            "link add name {0} address {1} type veth peer name {2} netns /proc/self/fd/{3}\n"
            "link set {0} addrgenmode none\n",
            interface, member.mac(port), wires_t::interface(place.cable, place.end), net_.number());
        if (member.bridge)
            commands += fmt::format("link set {} master br0\n", interface);
        commands += fmt::format("link set {} up\n", interface);
        if (member.host)
            commands += fmt::format("address add {} dev {}\n", told.address, interface);
    }
    if (told.kind == kind_t::LVT_BRIDGE) {
        commands += "link set br0 type bridge stp_state 0\n"; // that is for lvt_bridge
        member.node().run({.argv = {"mount", "-t", "tmpfs", "tmpfs", "/run"}});
    }
    if (!commands.empty())
        member.node().ip(commands, {net_.number()});
    if (member.bridge)
        member.node().in_net([&] { member.link_events = link_events_open(); });
    std::ofstream(member.node().path(SHELL_FILE)) << fmt::format(
        "[ ! -r \"{0}\" ] || . \"{0}\"\nPS1='{1}:\\w\\$ '\nHISTFILE={2}.history\n",
        (lab::own_program().parent_path().parent_path() / "share/bash-completion/completions/lvt_rstpctl").string(),
        told.name, SHELL_FILE);
    if (member.has_daemon() && told.configured)
        std::ofstream(member.node().path(CONFIG)) << config_text(told.settings);
    const std::lock_guard lock(mutex_);
    if (!member.host)
        member.identifier = fmt::format("{}/{}", told.settings.bridge.bridge_priority, member.node().mac());
}

void lab_t::start(member_t &member)
{
    if (!member.has_daemon()) {
        member.runs = !member.host;
        return;
    }
    const std::lock_guard lock(member.mutex);
    if (member.device) {
        member.device->start();
        member.status_path = member.node().path(lab::STATUS_FILE);
        board_client_t board = member.device->client();
        for (const auto &[port, place] : member.places)
            if (const topology::link_t &link = network_.links[place.cable]; link.mbit != 1000 || !link.full_duplex)
                board.set_speed(port, link.mbit, link.full_duplex);
        configure(member);
    } else
        start_ruler(member);
    member.runs = true;
}

void lab_t::start_ruler(member_t &member)
{
    constexpr char SAID[] = "/tmp/lvt_bridge.out", REPORT[] = "/run/lvt_bridge/br0.json";
    std::vector<std::string> ports;
    for (unsigned port = 1; port <= member.places.rbegin()->first; port++)
        ports.push_back(member.interface(port));
    std::vector<std::string> argv = {lab::program("LVT_BRIDGE", "lvt_bridge")};
    if (member.told.configured)
        argv.insert(argv.end(), {"--config", CONFIG});
    argv.insert(argv.end(), {"--ports", fmt::format("{}", fmt::join(ports, ","))});
    if (member.told.rapid)
        argv.emplace_back("--rapid");
    argv.insert(argv.end(), member.told.options.begin(), member.told.options.end());
    argv.emplace_back("br0");
    const fd_t said(
        checked(open(member.node().path(SAID).c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0644), SAID));
    std::filesystem::remove(member.node().path(REPORT)); // of one that was killed
    member.ruler = member.node().start({.argv = argv, .out = said.number(), .err = said.number()});
    const bool ready = lab::within(std::chrono::seconds(10), [&] {
        const auto report = nlohmann::json::parse(member.node().read(REPORT), nullptr, false);
        if (report.is_object() && report.contains("pid"))
            member.status_path = fmt::format("/proc/{}/root{}", report.at("pid").get<int>(), lab::STATUS_FILE);
        return !member.ruler.running() || access(member.status_path.c_str(), R_OK) == 0;
    });
    if (!ready || !member.ruler.running())
        throw std::runtime_error(
            fmt::format("{}: lvt_bridge does not get ready\n{}", member.name(), member.node().read(SAID)));
}

void lab_t::configure(member_t &member)
{
    if (!member.told.configured)
        return;
    const settings_t settings = load_config({.root = "", .path = member.node().path(CONFIG)});
    lab::switch_t &device = *member.device;
    device.send(system_config_message(settings.bridge));
    device.send(aggr_config_message(settings.ports[0]));
    if (settings.lacp != lacp_enables_t{})
        device.send(lacp_enable_message(settings.lacp));
    if (settings.groups != AGGR_STATUS_ALONE)
        device.group(settings.groups);
    device.send(port_config_message(settings.ports));
    const bool taken = lab::within(std::chrono::seconds(10), [&] {
        for (const board_port_t &port : device.client().ports())
            if (settings.ports[port.port].adminEnable && port.state == HW_NO_STP)
                return false;
        return true;
    });
    if (!taken)
        throw std::runtime_error(
            fmt::format("{}: the daemon does not take its settings\n{}", member.name(), device.story()));
}

void lab_t::up(bool with_story)
{
    net_ = fd_t(checked(open("/proc/self/ns/net", O_RDONLY | O_CLOEXEC), "network namespace"));
    for (const char *which : {"all", "default"})
        std::ofstream(fmt::format("/proc/sys/net/ipv6/conf/{}/disable_ipv6", which)) << "1";
    wires_ = std::make_unique<wires_t>(network_.links.size(), network_.seed,
                                       observer_t{[this](size_t cable, unsigned from, std::span<const uint8_t> frame) {
                                                      note_frame(cable, from, frame);
                                                  },
                                                  [this](size_t cable, unsigned to, std::span<const uint8_t> frame) {
                                                      return prober_->arrived(cable, to, frame);
                                                  }});
    for (size_t i = 0; i < network_.links.size(); i++)
        for (const unsigned end : {0u, 1u})
            wires_->set_quality(i, end, network_.links[i].qualities[end]);
    for_all(members_, [&](member_t &member) { build(member); });
    std::string commands;
    for (size_t i = 0; i < network_.links.size(); i++)
        for (const unsigned end : {0u, 1u})
            commands += fmt::format("link set {} addrgenmode none\n", wires_t::interface(i, end));
    if (!commands.empty())
        lab::run({.argv = {"ip", "-batch", "-"}}, commands);

    std::vector<host_end_t> hosts;
    for (const auto &member : members_)
        if (member->host && !member->places.empty()) {
            const member_t::place_t &place = member->places.begin()->second;
            hosts.push_back({member->name(), member->node().mac(), place.cable, place.end});
        }
    prober_ = std::make_unique<prober_t>(
        std::move(hosts),
        [this](size_t cable, unsigned from, std::span<const uint8_t> frame) { wires_->put_in(cable, from, frame); },
        [this](const prober_t::result_t &pair, double ms) {
            tell("ping", nullptr, 0, fmt::format("{:.0f}", ms),
                 fmt::format("first ping through from {} to {} after {:.0f} ms without{}", pair.from, pair.to, ms,
                             pair.before ? "" : ": they were apart before"));
        });
    wires_->begin();

    wake_ = fd_t(checked(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK), "eventfd"));
    watcher_ = std::thread([this] { watch(); });
    for_all(members_, [&](member_t &member) {
        if (member.told.boot.count() == 0)
            start(member);
        else
            member.powered = false;
    });
    for (const auto &member : members_)
        if (member->told.boot.count() != 0) {
            for (const auto &[port, place] : member->places)
                wires_->power(place.cable, place.end, false);
            later(member->told.boot, [this, &member = *member] { act(fmt::format("power {} on", member.name())); });
        }
    tell("command", nullptr, 0, "up", "all cables are plugged in");
    for (size_t i = 0; i < network_.links.size(); i++)
        if (const auto &plugged = network_.links[i].plugged; plugged && plugged->count() == 0)
            wires_->plug(i, true);
        else if (plugged)
            later(*plugged, [this, i] { act("plug " + cable_name(i)); });
    if (with_story)
        for (const topology::event_t &event : story_)
            later(event.at, [this, event] {
                std::unique_lock lock(acting_);
                const settings_t before =
                    event.verb == verb_t::SET ? topology::settings_now(network_, event.subject) : settings_t();
                const std::string command = topology::command_text(network_, event, before);
                lock.unlock();
                act(command);
            });
}

void lab_t::later(topology::span_t when, std::function<void()> action)
{
    later_.emplace_back([this, when, action = std::move(action)] {
        std::unique_lock lock(ending_);
        if (end_.wait_for(lock, when, [this] { return ends_.load(); }))
            return;
        lock.unlock();
        try {
            action();
        } catch (const std::exception &problem) {
            tell("command", nullptr, 0, "", problem.what());
        }
    });
}

} // namespace lvt_lab
