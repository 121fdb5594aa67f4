#include "board/lvt_lab/lab.h"

#include <algorithm>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <future>

#include <fcntl.h>
#include <fmt/format.h>
#include <fmt/ranges.h>
#include <nlohmann/json.hpp>
#include <sys/epoll.h>
#include <sys/eventfd.h>
#include <sys/stat.h>
#include <unistd.h>

#include "board/lab/within.h"
#include "board/lab/world.h"
#include "lvt_board/links.h"
#include "tools/bpdu_frame.h"
#include "tools/ctl/config_file.h"
#include "tools/ctl/ctl.h"
#include "tools/hex.h"
#include "tools/pcapng.h"
#include "tools/topology/story.h"
#include "tools/topology/values.h"
#include "tools/words.h"

namespace lvt_lab {

namespace {

using lab::checked;
using topology::kind_t;
using topology::verb_t;

constexpr char CONFIG[] = "/etc/lvt_rstp.toml";
constexpr auto LOOK = std::chrono::milliseconds(250); ///< from one look at status files to the next
constexpr double CALM_AFTER = 2500;                   ///< milliseconds without change: two status files and more
constexpr size_t CAPTURE_OCTETS_MAX = 64 << 20;       ///< of what nobody has read yet
constexpr size_t STARTS_AT_ONCE = 8;

const char *word_of(kind_t kind) { return topology::KIND_WORDS[static_cast<size_t>(kind)]; }

/// The settings as a file of the switch's own.
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

std::string quality_text(const topology::quality_t &quality)
{
    const topology::quality_t usual;
    std::string text;
    const auto add = [&](const std::string &words) { text += (text.empty() ? "" : " ") + words; };
    if (quality.dead)
        return "nothing arrives";
    if (quality.delay != usual.delay)
        add("delay " + topology::span_text(quality.delay));
    if (quality.jitter != usual.jitter)
        add("jitter " + topology::span_text(quality.jitter));
    if (quality.lost)
        add("loss " + topology::share_text(quality.lost));
    if (quality.doubled)
        add("duplicate " + topology::share_text(quality.doubled));
    return text;
}

claim_t claim_of(const bpdu_t &bpdu)
{
    claim_t claim;
    claim.type = bpdu.type == BPDU_TYPE_RST ? "RST" : bpdu.type == BPDU_TYPE_TCN ? "TCN" : "config";
    claim.root = bpdu_bridge_text(bpdu.root_priority, bpdu.root_address);
    claim.cost = bpdu_get32(bpdu.root_path_cost);
    claim.bridge = bpdu_bridge_text(bpdu.bridge_priority, bpdu.bridge_address);
    claim.port = bpdu_get16(bpdu.port_id);
    claim.flags = bpdu_flags_words(bpdu.type, bpdu.flags);
    return claim;
}

/// The kernel's words as ours.
std::string kernel_state(bool link, const std::string &state)
{
    if (!link)
        return "down";
    return state == "learning" || state == "forwarding" ? state : "discarding";
}

} // namespace

void demand_playable(const topology::network_t &network)
{
    const auto refuse = [](const topology::node_t &node, const std::string &reason) {
        const std::string text = fmt::format("{}{} {}", node.place, node.name, reason);
        if (node.place.empty())
            throw refused_t(text);
        throw faults_t(text);
    };
    for (const topology::node_t &node : network.nodes) {
        if (node.kind == kind_t::HUB || node.kind == kind_t::SPEAKER)
            refuse(node, fmt::format("is a {}, which only the simulator plays (lvt_sim play)", word_of(node.kind)));
        if (node.kind == kind_t::LVT_BRIDGE && access(lab::program("LVT_BRIDGE", "lvt_bridge").c_str(), X_OK) != 0)
            refuse(node,
                   "is an lvt-bridge, and the program lvt_bridge is not there: build it, or make it a switch or a "
                   "linux-bridge");
    }
}

struct lab_t::member_t {
    size_t index;
    const topology::node_t &told;

    // One of these.
    std::unique_ptr<lab::switch_t> device;
    std::unique_ptr<lab::kernel_bridge_t> bridge;
    std::unique_ptr<lab::host_t> host;
    lab::process_t ruler;    ///< lvt_bridge, of a bridge that is ruled by the daemon
    std::string status_path; ///< of the daemon's status file, once that runs

    std::mutex mutex; ///< of its processes
    std::atomic<bool> powered = true;
    std::atomic<bool> runs = false; ///< its daemon does

    struct place_t {
        size_t cable;
        unsigned end;
    };
    std::map<unsigned, place_t> places; ///< by port

    // Of the watching thread alone.
    fd_t log, log_end; ///< a pipe: what the board sees
    fd_t link_events;
    std::optional<board_client_t> client;
    timespec status_time = {};
    std::atomic<int> looks = 0; ///< at a kernel's bridge, that are due: one may come before it has taken the news in

    // Of what was seen.
    std::string identifier, root;
    unsigned root_port = 0;
    std::pair<std::string, uint32_t> claimed; ///< root and cost, as it told last

    member_t(size_t number, const topology::node_t &node) : index(number), told(node) {}

    const std::string &name() const { return told.name; }

    const lab::node_t &node() const { return device ? device->node() : bridge ? bridge->node() : host->node(); }

    int number() const { return static_cast<int>(index) + 1; }

    bool has_daemon() const { return device || told.kind == kind_t::LVT_BRIDGE; }

    lab::process_t &daemon() { return device ? device->daemon() : ruler; }

    std::string interface(unsigned port) const { return host ? "eth0" : fmt::format("port{}", port); }

    std::string mac(unsigned port) const { return node().mac(host ? 0 : static_cast<int>(port)); }
};

lab_t::lab_t(std::string name, topology::network_t network)
    : name_(std::move(name)), network_(std::move(network)), sides_(network_.links.size())
{
    story_.swap(network_.story);
    for (size_t i = 0; i < network_.nodes.size(); i++)
        members_.push_back(std::make_unique<member_t>(i, network_.nodes[i]));
    for (size_t i = 0; i < network_.links.size(); i++)
        for (const unsigned end : {0u, 1u}) {
            const topology::end_t &place = network_.links[i].ends[end];
            members_[place.node]->places[place.port] = {i, end};
        }
}

lab_t::~lab_t()
{
    {
        const std::lock_guard lock(ending_);
        ends_ = true;
    }
    end_.notify_all();
    for (std::thread &thread : later_)
        thread.join();
    if (watcher_.joinable()) {
        const uint64_t one = 1;
        [[maybe_unused]] const ssize_t told = write(wake_.number(), &one, sizeof one);
        watcher_.join();
    }
    prober_.reset(); // they use the wires, which use this
    wires_.reset();
}

// ---- becoming ---------------------------------------------------------------------------

namespace {

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

// ---- being told ----------------------------------------------------------------------------

void lab_t::act(const std::string &command)
{
    topology::event_t event;
    {
        const std::lock_guard lock(acting_);
        event = topology::parse_command(network_, topology::span_t(0), command);
        if (event.verb == verb_t::SET)
            network_.story.push_back(event);
    }
    do_event(event, command);
}

void lab_t::do_event(const topology::event_t &event, const std::string &command)
{
    member_t *member = event.verb >= verb_t::KILL ? members_[event.subject].get() : nullptr;
    bool announced = false;
    const auto announce = [&](const std::string &text) {
        const std::lock_guard lock(mutex_);
        const uint64_t number = tell("command", member, 0, command, text, member ? "" : cable_name(event.subject));
        if (!std::exchange(announced, true))
            last_command_ = number;
        last_change_ = journal_.now();
        calm_ = false;
    };
    const auto demand_power = [&] {
        if (!member->powered)
            throw refused_t(fmt::format("{} has no power", member->name()));
    };
    const auto demand_board = [&] {
        if (!member->device)
            throw refused_t(fmt::format("{} has no simulated board", member->name()));
    };
    const auto plug = [&](bool plugged) {
        if (wires_->plugged(event.subject) == plugged)
            throw refused_t(fmt::format("the cable {} is {} already", cable_name(event.subject),
                                        plugged ? "plugged in" : "pulled out"));
        prober_->begin();
        announce(fmt::format("the cable {} is {}", cable_name(event.subject), plugged ? "plugged in" : "pulled out"));
        wires_->plug(event.subject, plugged);
    };
    const auto pause = [&] {
        std::unique_lock lock(ending_);
        end_.wait_for(lock, event.pause, [this] { return ends_.load(); });
    };
    switch (event.verb) {
    case verb_t::PULL:
        return plug(false);
    case verb_t::PLUG:
        return plug(true);
    case verb_t::FLAP:
        prober_->begin();
        for (unsigned i = 0; i < event.times; i++) {
            announce(fmt::format("the cable {} is pulled out", cable_name(event.subject)));
            wires_->plug(event.subject, false);
            pause();
            announce(fmt::format("the cable {} is plugged in", cable_name(event.subject)));
            wires_->plug(event.subject, true);
            pause();
        }
        return;
    case verb_t::DEGRADE:
        announce(command);
        for (const unsigned end : {0u, 1u})
            wires_->set_quality(event.subject, end, event.qualities[end]);
        return;
    case verb_t::DEAFEN:
    case verb_t::HEAL: {
        announce(command);
        topology::quality_t quality = wires_->quality(event.subject, event.way);
        quality.dead = event.verb == verb_t::DEAFEN;
        return wires_->set_quality(event.subject, event.way, quality);
    }
    case verb_t::KILL: {
        demand_power();
        const std::lock_guard lock(member->mutex);
        if (!member->daemon().running())
            throw refused_t(fmt::format("the daemon of {} does not run", member->name()));
        prober_->begin();
        announce(fmt::format("the daemon of {} is killed", member->name()));
        member->daemon().signal(SIGKILL);
        member->daemon().wait();
        member->runs = false;
        break;
    }
    case verb_t::RESTART: {
        demand_power();
        const std::lock_guard lock(member->mutex);
        member->daemon().stop();
        prober_->begin();
        announce(fmt::format("the daemon of {} is started", member->name()));
        if (!member->device)
            start_ruler(*member);
        else {
            member->device->start_daemon();
            configure(*member);
        }
        member->runs = true;
        break;
    }
    case verb_t::POWER_OFF: {
        demand_power();
        prober_->begin();
        announce(fmt::format("{} loses power", member->name()));
        for (const auto &[port, place] : member->places)
            wires_->power(place.cable, place.end, false);
        const std::lock_guard lock(member->mutex);
        member->powered = false;
        member->runs = false;
        member->daemon().signal(SIGKILL);
        member->daemon().wait();
        if (member->device) {
            member->device->board().signal(SIGKILL);
            member->device->board().wait();
        }
        break;
    }
    case verb_t::POWER_ON:
        if (member->powered)
            throw refused_t(fmt::format("{} has power already", member->name()));
        announce(fmt::format("{} gets power", member->name()));
        start(*member);
        member->powered = true;
        for (const auto &[port, place] : member->places)
            wires_->power(place.cable, place.end, true);
        break;
    case verb_t::SET: {
        demand_power();
        const std::lock_guard lock(member->mutex);
        announce(command);
        std::ofstream(member->node().path(CONFIG)) << config_text(*event.settings);
        if (member->device)
            return configure(*member);
        const lab::outcome_t applied =
            member->node().run({.argv = {lab::program("LVT_RSTPCTL", "lvt_rstpctl"), "apply"}});
        if (applied.exit_code != 0)
            throw refused_t(applied.output);
        return;
    }
    case verb_t::REFUSE:
        demand_power();
        demand_board();
        announce(command);
        return member->device->client().set_mdio_failures(event.times);
    case verb_t::MESSAGE:
        demand_power();
        demand_board();
        announce(command);
        return member->device->send(event.octets);
    case verb_t::HOLD:
        throw refused_t("a lab cannot hold a clock: that is for the simulator");
    }
    if (!member->runs) {
        const std::lock_guard lock(mutex_);
        member->root.clear();
        member->root_port = 0;
        member->claimed = {};
        for (const auto &[port, place] : member->places) {
            side_t &side = sides_[place.cable][place.end];
            side.role.clear();
            side.claim.reset();
            if (!member->powered)
                side = {};
        }
    }
}

const lab::node_t &lab_t::node(const std::string &name)
{
    const auto found = topology::find_node(network_, name);
    if (!found) {
        std::vector<std::string> names;
        for (const topology::node_t &known : network_.nodes)
            names.push_back(known.name);
        throw refused_t(fmt::format("there is no node \"{}\"{}", name, topology::suggestion(name, names)));
    }
    return members_[*found]->node();
}

std::string lab_t::address(const std::string &host)
{
    const lab::node_t &found = node(host);
    for (const auto &member : members_)
        if (member->host && &member->node() == &found)
            return member->told.address.substr(0, member->told.address.find('/'));
    throw refused_t(fmt::format("{} is no host", host));
}

std::string lab_t::cable_name(size_t cable) const { return topology::link_text(network_, network_.links[cable]); }

std::vector<size_t> lab_t::cables(const std::string &word)
{
    std::vector<size_t> all;
    if (word == "all")
        for (size_t i = 0; i < network_.links.size(); i++)
            all.push_back(i);
    else
        for (const topology::found_link_t &found : topology::find_links(network_, word))
            all.push_back(found.link);
    if (all.empty())
        throw refused_t(fmt::format("there is no link \"{}\": write the names of two nodes, as in sw1-sw2", word));
    return all;
}

// ---- being seen ------------------------------------------------------------------------------

lab_view_t lab_t::view()
{
    lab_view_t view = {
        .lab = name_, .network = network_.name, .ms = journal_.now(), .at_rest = false, .nodes = {}, .cables = {}};
    for (size_t i = 0; i < network_.links.size(); i++) {
        cable_view_t cable;
        cable.name = cable_name(i);
        cable.plugged = wires_->plugged(i);
        for (const unsigned end : {0u, 1u}) {
            const topology::end_t &place = network_.links[i].ends[end];
            const traffic_t traffic = wires_->traffic(i, end);
            end_view_t &it = cable.ends[end];
            it.name = topology::end_text(network_, place);
            it.node = network_.nodes[place.node].name;
            it.port = place.port;
            it.frames = traffic.frames;
            it.octets = traffic.octets;
            it.bpdus = traffic.bpdus;
            it.lost = traffic.lost;
            it.quality = quality_text(wires_->quality(i, end));
        }
        view.cables.push_back(std::move(cable));
    }
    const std::lock_guard lock(mutex_);
    view.at_rest = calm_;
    for (const auto &member : members_) {
        node_view_t node;
        node.name = member->name();
        node.kind = word_of(member->told.kind);
        node.power = member->powered;
        node.daemon = member->runs;
        node.rapid = member->told.rapid;
        node.bridge =
            member->host ? member->told.address.substr(0, member->told.address.find('/')) : member->identifier;
        node.root = member->root;
        node.root_port = member->root_port;
        node.is_root = node.daemon && !node.root.empty() && node.root == node.bridge;
        node.mac = member->node().mac();
        view.nodes.push_back(std::move(node));
    }
    for (size_t i = 0; i < view.cables.size(); i++) {
        cable_view_t &cable = view.cables[i];
        bool through = cable.plugged;
        for (const unsigned end : {0u, 1u}) {
            end_view_t &it = cable.ends[end];
            const side_t &side = sides_[i][end];
            const member_t &member = *members_[network_.links[i].ends[end].node];
            const member_t &other = *members_[network_.links[i].ends[1 - end].node];
            it.link = member.host ? cable.plugged && other.powered : side.link;
            it.role = side.role;
            it.cost = side.cost;
            it.state = side.state;
            it.claim = side.claim;
            through = through && it.link && (member.host || it.state == "forwarding" || it.state == "off");
        }
        cable.carries = through;
    }
    return view;
}

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

void lab_t::note_frame(size_t cable, unsigned from, std::span<const uint8_t> frame)
{
    const bool bpdu = is_bpdu(frame);
    const std::lock_guard lock(mutex_);
    for (capture_t *capture : captures_)
        if (const auto found = capture->interfaces_.find(cable);
            found != capture->interfaces_.end() && capture->octets_.size() < CAPTURE_OCTETS_MAX) {
            const auto now = std::chrono::system_clock::now().time_since_epoch();
            const std::vector<uint8_t> packet = pcapng_packet(
                found->second,
                static_cast<uint64_t>(std::chrono::duration_cast<std::chrono::microseconds>(now).count()), frame);
            capture->octets_.insert(capture->octets_.end(), packet.begin(), packet.end());
        }
    if (bpdu)
        note_claim(cable, from, frame);
}

void lab_t::note_claim(size_t cable, unsigned from, std::span<const uint8_t> frame)
{
    const bpdu_t bpdu = read_bpdu(frame);
    if (bpdu.type == BPDU_TYPE_TCN)
        return;
    // What other ports send agrees to something or tells a topology change; it claims nothing.
    if (bpdu.type == BPDU_TYPE_RST && bpdu_role(bpdu.flags) != BPDU_ROLE_DESIGNATED)
        return;
    claim_t claim = claim_of(bpdu);
    claim.at = journal_.now();
    side_t &side = sides_[cable][from];
    member_t &member = *members_[network_.links[cable].ends[from].node];
    // What a kernel's bridge thinks of it is asked for: it tells its states by itself, and no root.
    if (!side.claim || side.claim->root != claim.root || side.claim->cost != claim.cost ||
        side.claim->type != claim.type)
        members_[network_.links[cable].ends[1 - from].node]->looks = 2;
    side.claim = claim;
    std::pair<std::string, uint32_t> claimed(claim.root, claim.cost);
    if (member.claimed == claimed)
        return;
    member.claimed = std::move(claimed);
    tell("claim", &member, network_.links[cable].ends[from].port, claim.root,
         claim.root == claim.bridge ? fmt::format("{} says that it is the root", member.name())
                                    : fmt::format("{} says that the root is {}, at cost {}", member.name(),
                                                  bridge_name(claim.root), claim.cost));
    last_change_ = journal_.now();
    calm_ = false;
    member.looks = 2;
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
                link_events_read(member.link_events, [](int, bool) {});
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
        if (member.runs && !member.daemon().running()) {
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
    if (!rests(view()))
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

// ---- captures ----------------------------------------------------------------------------------

lab_t::capture_t::capture_t(lab_t &lab, const std::vector<size_t> &cables) : lab_(lab)
{
    std::vector<std::string> names;
    for (const size_t cable : cables) {
        interfaces_[cable] = static_cast<uint32_t>(names.size());
        names.push_back(lab.cable_name(cable));
    }
    octets_ = pcapng_opening(names);
    const std::lock_guard lock(lab_.mutex_);
    lab_.captures_.push_back(this);
}

lab_t::capture_t::~capture_t()
{
    const std::lock_guard lock(lab_.mutex_);
    std::erase(lab_.captures_, this);
}

std::vector<uint8_t> lab_t::capture_t::take()
{
    const std::lock_guard lock(lab_.mutex_);
    return std::exchange(octets_, {});
}

std::unique_ptr<lab_t::capture_t> lab_t::capture(const std::vector<size_t> &cables)
{
    return std::unique_ptr<capture_t>(new capture_t(*this, cables));
}

} // namespace lvt_lab
