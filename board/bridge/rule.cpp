#include "board/bridge/rule.h"

#include <algorithm>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <map>
#include <system_error>
#include <tuple>
#include <utility>

#include <fmt/format.h>
#include <fmt/ranges.h>
#include <nlohmann/json.hpp>
#include <sched.h>
#include <unistd.h>

#include "board/bridge/caretaker.h"
#include "board/bridge/linux_board.h"
#include "board/lab/mounts.h"
#include "board/lab/namespaces.h"
#include "board_socket.h"
#include "lvt_board/turn.h"
#include "tools/ctl/config_file.h"

namespace {

using namespace std::chrono_literals;

constexpr char STP_HELPER[] = "/sbin/bridge-stp"; ///< whom the kernel asks
constexpr auto START_PATIENCE = 10s;              ///< for the daemon
constexpr auto APPLY_PATIENCE = 10s;
constexpr int LOOK_MS = 500; ///< the kernel announces what happens, and links up to a second late
constexpr int IMPATIENT_TURN_MS = 10;

void tell(const std::string &bridge, const std::string &text)
{
    std::fputs(fmt::format("lvt_bridge: {}: {}\n", bridge, text).c_str(), stderr);
}

// ---- before anything is changed ----------------------------------------------------------

struct wishes_t {
    std::string settings; ///< text of a settings file
    numbering_t numbering;
};

std::string spanning_tree_everywhere()
{
    std::string text;
    for (unsigned front = 1; front <= BOARD_PORTS; front++)
        text += fmt::format("[port.{}]\nspanning_tree = true\n", front);
    return text;
}

wishes_t wishes_of(const rule_options_t &options)
{
    if (options.config.empty())
        return {spanning_tree_everywhere(), {options.ports}};
    const std::string text = read_config_text({"", options.config});
    const config_t config = config_in(text, options.config);
    return {text, {options.ports.empty() ? config.linux_ports : options.ports}};
}

interface_t bridge_to_rule(netlink_t &netlink, const std::string &name)
{
    const auto bridge = netlink.find(name);
    if (!bridge)
        throw refusal_t(fmt::format("there is no interface {}", name));
    if (bridge->kind != "bridge")
        throw refusal_t(fmt::format("{} is no bridge", name));
    if (bridge->stp == stp_t::kernel)
        throw refusal_t(
            fmt::format("the kernel's own STP is on at {0}; switch it off:\n"
                        "  ip link set {0} type bridge stp_state 0",
                        name));
    return *bridge;
}

void refuse_without(const char *variable, const char *name)
{
    const std::string path = lab::program(variable, name);
    if (access(path.c_str(), X_OK) != 0)
        throw refusal_t(fmt::format("{} cannot be started: {}", path, std::strerror(errno)));
}

void refuse_crowd(const std::string &bridge, const std::vector<interface_t> &ports, const numbering_t &numbering)
{
    if (!numbering.listed.empty() || ports.size() <= BOARD_PORTS)
        return;
    std::vector<std::string> names;
    for (const interface_t &port : ports)
        names.push_back(port.name);
    std::ranges::sort(names, before_by_nature);
    throw refusal_t(
        fmt::format("{} has {} ports, and no more than {} can be ruled: {}. Say which, with --ports or in "
                    "the settings file",
                    bridge, names.size(), BOARD_PORTS, fmt::join(names, ", ")));
}

// ---- the kernel's part -------------------------------------------------------------------

/// Lets the kernel ask for the states of the ports instead of deciding itself. Returns whether it does.
bool hand_over_stp(netlink_t &netlink, const interface_t &bridge, const state_dir_t &state_dir)
{
    if (bridge.stp == stp_t::user_space)
        return true;
    if (access(STP_HELPER, X_OK) != 0)
        return false;
    state_dir.claim();
    const int error = netlink.set_stp(bridge.index, true);
    const auto after = netlink.find(bridge.index);
    if (error == 0 && after && after->stp == stp_t::user_space)
        return true;
    if (after && after->stp == stp_t::kernel)
        if (const int refusal = netlink.set_stp(bridge.index, false); refusal != 0)
            throw std::system_error(refusal, std::generic_category(), "the kernel's STP cannot be switched off again");
    state_dir.unclaim();
    return false;
}

/// A table that lets nothing pass these ports; null, and why, where the kernel has no firewall.
std::unique_ptr<gate_t> closed_gate(const std::string &bridge, const std::vector<interface_t> &ports,
                                    std::string &fault)
{
    gate_state_t closed;
    for (const interface_t &port : ports)
        closed.ports.insert(port.index);
    closed.deaf = closed.ports;
    try {
        auto gate = std::make_unique<gate_t>(bridge);
        gate->set(closed);
        return gate;
    } catch (const std::runtime_error &problem) {
        fault = problem.what();
        return nullptr;
    }
}

void look_after(gate_t &gate, const std::function<void(const std::string &)> &say)
{
    try {
        if (gate.look_after())
            say(fmt::format("something took away from the firewall's table {}; it is whole again", gate.table()));
    } catch (const std::exception &problem) {
        say(problem.what());
    }
}

/// The bridge forwards as it did before anybody ruled it.
void release(netlink_t &netlink, const linux_board_t &board, int bridge, guard_t guard, gate_t *gate,
             const state_dir_t &state_dir)
{
    if (guard == guard_t::user_stp && netlink.set_stp(bridge, false) == 0)
        state_dir.unclaim();
    for (const auto &[index, member] : board.members())
        if (member.now.up)
            (void)netlink.set_port_state(index, port_state_t::forwarding);
    if (gate != nullptr)
        gate->remove();
}

// ---- life --------------------------------------------------------------------------------

std::string report(const rule_options_t &options, const linux_board_t &board, guard_t guard)
{
    std::map<unsigned, const member_t *> members;
    for (const auto &[index, member] : board.members())
        if (member.front != 0)
            members[member.front] = &member;
    nlohmann::json ports = nlohmann::json::array();
    for (const auto &[front, member] : members)
        ports.push_back({{"port", front},
                         {"interface", member->now.name},
                         {"kernel", member->now.port_state ? port_state_name(*member->now.port_state) : ""},
                         {"differs", board.differs(*member)}});
    return nlohmann::json{{"bridge", options.bridge},
                          {"pid", getpid()},
                          {"mode", guard == guard_t::user_stp ? "user-space STP" : "firewall"},
                          {"config", options.config},
                          {"ports", ports}}
               .dump() +
           "\n";
}

/// The daemon from its start until it rules: first it gets ready, then its settings, and only when it has acted on
/// these the ports are its own.
class beginning_t {
public:
    beginning_t(std::string name, std::string settings) : name_(std::move(name)), settings_(std::move(settings)) {}

    /// To be called until it is true. Throws std::runtime_error.
    bool done()
    {
        switch (stage_) {
        case stage_t::starts:
            if (daemon_is_ready()) {
                apply_ = start_apply(name_, settings_);
                enter(stage_t::is_set_up, APPLY_PATIENCE);
            }
            break;
        case stage_t::is_set_up:
            if (const auto status = apply_.exit_code(); status && *status != 0)
                throw std::runtime_error("the settings could not be applied");
            else if (status)
                enter(stage_t::takes_in, APPLY_PATIENCE);
            break;
        case stage_t::takes_in:
            if (settling_.done())
                return true;
            break;
        }
        if (std::chrono::steady_clock::now() > deadline_)
            throw std::runtime_error("the daemon was not ready in time");
        return false;
    }

private:
    enum class stage_t { starts, is_set_up, takes_in };

    void enter(stage_t stage, std::chrono::seconds patience)
    {
        stage_ = stage;
        deadline_ = std::chrono::steady_clock::now() + patience;
    }

    std::string name_, settings_;
    stage_t stage_ = stage_t::starts;
    std::chrono::steady_clock::time_point deadline_ = std::chrono::steady_clock::now() + START_PATIENCE;
    lab::process_t apply_;
    settling_t settling_ = settling_t(false);
};

} // namespace

void rule(const rule_options_t &options)
{
    const auto say = [&](const std::string &text) { tell(options.bridge, text); };
    const wishes_t wishes = wishes_of(options);
    netlink_t netlink;
    const interface_t bridge = bridge_to_rule(netlink, options.bridge);
    std::vector<interface_t> ports = netlink.ports_of(bridge.index);
    refuse_crowd(options.bridge, ports, wishes.numbering);
    refuse_without("LVT_RSTPD", "lvt_rstpd");
    refuse_without("LVT_RSTPCTL", "lvt_rstpctl");
    state_dir_t state_dir(options.state_dir, options.bridge);
    if (bridge.stp == stp_t::user_space && !state_dir.claimed())
        throw refusal_t(
            fmt::format("the STP of {0} is in the hands of another program; when that has ended, switch "
                        "it off:\n  ip link set {0} type bridge stp_state 0",
                        options.bridge));

    const std::string settings_file = options.config.empty() ? "" : std::filesystem::absolute(options.config).string();
    std::signal(SIGPIPE, SIG_IGN);
    const fd_t signals = signals_open({SIGINT, SIGTERM});
    lab::checked(unshare(CLONE_NEWNS), "mount namespace");
    lab::make_mounts_private();
    lab::make_tmp({lab::program("LVT_RSTPD", "lvt_rstpd"), lab::program("LVT_RSTPCTL", "lvt_rstpctl")});
    const fd_t daemon_net = lab::make_net();
    lab::in_net(daemon_net.number(), [&] { netlink_t().make_cable("eth0", CPU_INTERFACE, bridge.mac); });

    std::string gate_fault;
    std::unique_ptr<gate_t> gate = closed_gate(options.bridge, ports, gate_fault);
    const guard_t guard = hand_over_stp(netlink, bridge, state_dir) ? guard_t::user_stp : guard_t::gate;
    if (guard == guard_t::gate && !gate)
        throw std::runtime_error(
            fmt::format("nothing keeps the kernel from forwarding on its own: user-space STP "
                        "cannot be had, and {}",
                        gate_fault));

    const board_clock_t clock;
    event_log_t log(clock);
    numbering_t numbering = wishes.numbering;
    numbering.remembered = parse_numbers(state_dir.ports());
    linux_board_t board(clock, log, {bridge, guard, numbering, daemon_net.number()}, netlink,
                        guard == guard_t::gate ? gate.get() : nullptr, say);
    if (guard == guard_t::user_stp && gate) {
        gate->remove(); // all ports block by themselves now
        gate.reset();
    }
    say(guard == guard_t::user_stp
            ? "the kernel leaves the states of the ports to this program (user-space STP)"
            : fmt::format("the firewall's table {} keeps the kernel from forwarding on its own", gate->table()));

    for (const std::string &name : numbering.listed)
        if (std::ranges::none_of(ports, [&](const interface_t &port) { return port.name == name; }))
            say(fmt::format("{} is listed, but no port of the bridge yet", name));

    listener_t listener(BOARD_SOCKET);
    lab::process_t daemon = start_daemon(daemon_net.number(), options.rapid);
    beginning_t beginning(options.bridge, wishes.settings);
    std::optional<settling_t> settling;
    unsigned link_changes = 0;
    bool begun = false, ended = false, unwritten = false;
    auto next_look = clock.now();
    std::map<int, member_t> members;
    decltype(board.chip.states) states{};
    rule_options_t reported = options;
    reported.config = settings_file;
    while (!ended) {
        if (clock.now() >= next_look) {
            board.look_at_links();
            next_look = clock.now() + std::chrono::milliseconds(LOOK_MS);
        }
        waiting_t others;
        others.add(signals.number(), [&] { ended = true; });
        if (gate)
            others.add(gate->number(), [&] { look_after(*gate, say); });
        board_turn(board, listener, std::move(others), begun && !settling ? LOOK_MS : IMPATIENT_TURN_MS);

        if (!board.trouble().empty())
            throw std::runtime_error(board.trouble());
        if (const auto status = daemon.exit_code())
            throw std::runtime_error(fmt::format("the daemon ended with status {}", *status));
        if (!begun && beginning.done()) {
            begun = true;
            board.open_up();
            say("the daemon rules");
            notify_manager("READY=1");
        }
        if (begun && std::exchange(link_changes, board.link_changes()) != board.link_changes())
            settling.emplace(options.rapid);
        if (settling && board.links_told() && settling->done()) {
            settling.reset();
            board.settled();
        }
        if (std::tie(members, states) == std::tie(board.members(), board.chip.states))
            continue;
        members = board.members();
        states = board.chip.states;
        try {
            state_dir.write_ports(numbers_text(board.numbers()));
            state_dir.write_report(report(reported, board, guard));
        } catch (const std::system_error &problem) { // no reason to end
            if (!std::exchange(unwritten, true))
                say(fmt::format("what it rules cannot be noted: {}", problem.what()));
        }
    }

    notify_manager("STOPPING=1");
    daemon.stop();
    if (options.at_end == at_end_t::block)
        board.block_all();
    if (options.at_end == at_end_t::forward)
        release(netlink, board, bridge.index, guard, gate.get(), state_dir);
    constexpr const char *ends[] = {"keep their states", "block", "forward"};
    say(fmt::format("ended; the ports {}", ends[static_cast<int>(options.at_end)]));
}
