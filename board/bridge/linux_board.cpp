#include "board/bridge/linux_board.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <set>
#include <utility>

#include <fmt/format.h>

#include "board/lab/namespaces.h"
#include "chip/registers.h"

namespace {

constexpr int CPU_INDEX = 1; ///< of a plug that is there for ever; any number

bool learns(unsigned code) { return code >= CHIP_LEARNING && code <= CHIP_NO_STP; }
bool forwards(unsigned code) { return code == CHIP_FORWARDING || code == CHIP_NO_STP; }

/// What the kernel says of an interface that is no port of a bridge, or no more.
bool is_gone(int error) { return error == ENODEV || error == EINVAL || error == EOPNOTSUPP; }

template <typename predicate_t>
std::set<int> filtered(const std::set<int> &numbers, predicate_t wanted)
{
    std::set<int> result;
    std::ranges::copy_if(numbers, std::inserter(result, result.end()), wanted);
    return result;
}

/// What both let pass, of the ports that `after` is about.
gate_state_t stricter(const gate_state_t &before, const gate_state_t &after)
{
    gate_state_t both = after;
    both.open = filtered(after.open, [&](int port) { return before.open.contains(port); });
    for (const int port : after.ports)
        if (before.deaf.contains(port) || !before.ports.contains(port))
            both.deaf.insert(port);
    return both;
}

constexpr unsigned ALL_FRONTS = (1U << (BOARD_PORTS + 1)) - 1; ///< bit n: front port n; bit 0: those without number

/// The front ports at which a step makes the chip forget learned addresses; nothing of another step.
std::optional<unsigned> flush_in(const chip_step_t &step)
{
    const mdio_op_t &op = step.op;
    if (!step.done || op.op != MDIO_OP_WRITE || op.reg != REG_ADDRESS_COMMAND || (op.value & REG_BUSY) == 0)
        return {};
    const unsigned port = address_command_port(op.value);
    if (address_command(op.value) == address_command_t::delete_all)
        return ALL_FRONTS;
    if (address_command(op.value) == address_command_t::flush_port && port != CHIP_CPU_PORT && port < CHIP_PORTS)
        return 1U << front_port_of_chip(port);
    return {};
}

} // namespace

linux_board_t::linux_board_t(const board_clock_t &clock, event_log_t &log, linux_board_settings_t settings,
                             netlink_t &netlink, gate_t *gate, std::function<void(const std::string &)> tell)
    : board_t(clock, log, later_t()), settings_(std::move(settings)), netlink_(netlink), gate_(gate),
      tell_(std::move(tell))
{
    if (settings_.numbering.listed.empty())
        numbers_ = settings_.numbering.remembered;
    linux_board_t::look_at_links();
}

// ---- who is there ------------------------------------------------------------------------

void linux_board_t::refresh_bridge()
{
    const auto bridge = netlink_.find(settings_.bridge.index);
    if (!bridge || bridge->kind != "bridge") {
        trouble_ = fmt::format("the bridge {} is gone", settings_.bridge.name);
        return;
    }
    if (bridge->running != settings_.bridge.running)
        for (auto &[index, member] : members_)
            member.settled.reset(); // the kernel starts all ports anew
    settings_.bridge.name = bridge->name;
    settings_.bridge.running = bridge->running;
    const stp_t wanted = settings_.guard == guard_t::user_stp ? stp_t::user_space : stp_t::off;
    if (bridge->stp == wanted)
        return;
    tell_(fmt::format("{}: STP was switched {}; it is switched back", bridge->name,
                      bridge->stp == stp_t::off ? "off" : "on"));
    const int error = netlink_.set_stp(bridge->index, wanted != stp_t::off);
    const auto after = netlink_.find(settings_.bridge.index);
    if (error == 0 && after && after->stp == wanted)
        return;
    trouble_ = fmt::format("{}: STP cannot be switched back: {}", bridge->name,
                           error != 0 ? std::strerror(error) : "/sbin/bridge-stp did not answer as it should");
}

/// Gives numbers to newcomers, and takes those that left out of their plugs.
void linux_board_t::admit(const std::vector<interface_t> &ports)
{
    std::erase_if(members_, [&](const auto &entry) {
        const auto &[index, member] = entry;
        const bool left = std::ranges::find(ports, index, &interface_t::index) == ports.end();
        if (left)
            tell_(member.front ? fmt::format("{} left: port {} is free", member.now.name, member.front)
                               : fmt::format("{} left", member.now.name));
        return left;
    });

    numbers_t taken;
    for (auto &[index, member] : members_)
        if (member.front != 0)
            taken[member.front] = member.now.name;

    const numbering_t numbering = {settings_.numbering.listed, numbers_};
    std::vector<const interface_t *> fresh;
    for (const interface_t &port : ports)
        if (!members_.contains(port.index))
            fresh.push_back(&port);
    std::ranges::sort(fresh, [](const auto *a, const auto *b) { return before_by_nature(a->name, b->name); });
    std::ranges::stable_partition(fresh, [&](const interface_t *port) {
        return std::ranges::any_of(numbering.remembered, [&](const auto &entry) { return entry.second == port->name; });
    });
    for (const interface_t *port : fresh) {
        const unsigned front = number_for(numbering, taken, port->name);
        members_[port->index] = {.now = *port, .front = front};
        if (front != 0) {
            taken[front] = numbers_[front] = port->name;
            tell_(fmt::format("{} is port {}", port->name, front));
        } else if (numbering.listed.empty()) {
            tell_(fmt::format("{} is one port too many, and stays blocked: only {} can be ruled", port->name,
                              BOARD_PORTS));
        } else {
            tell_(fmt::format("{} is not listed: it forwards, without spanning tree", port->name));
        }
    }
}

/// Takes in what the kernel says now of a port that was there before.
void linux_board_t::judge(member_t &member, const interface_t &now)
{
    if (member.now.name != now.name) {
        tell_(fmt::format("{} is called {} now", member.now.name, now.name));
        if (member.front != 0)
            numbers_[member.front] = now.name;
    }
    // A link that came or went changes the state by itself.
    const bool same_link = member.now.up == now.up && now.up;
    // So does the kernel's timer that ends learning, where it thinks that there is no spanning tree.
    const bool by_timer = settings_.guard == guard_t::gate && member.settled == port_state_t::learning &&
                          now.port_state == port_state_t::forwarding;
    if (same_link && !by_timer && member.settled && now.port_state && *member.settled != *now.port_state &&
        *member.settled == kernel_state(code_for(member)))
        tell_(fmt::format("{} was found {}: it is set back to {}", now.name, port_state_name(*now.port_state),
                          port_state_name(*member.settled)));
    if (!same_link)
        member.settled.reset();
    member.now = now;
}

void linux_board_t::refresh()
{
    refresh_bridge();
    if (!trouble_.empty())
        return;
    const std::vector<interface_t> ports = netlink_.ports_of(settings_.bridge.index);
    for (const interface_t &port : ports)
        if (const auto known = members_.find(port.index); known != members_.end())
            judge(known->second, port);
    admit(ports);

    std::array<const member_t *, BOARD_PORTS + 1> by_front{};
    for (const auto &[index, member] : members_)
        by_front[member.front] = &member;
    for (unsigned front = 1; front <= BOARD_PORTS; front++)
        plugs[front].interface = by_front[front] != nullptr ? by_front[front]->now.name : "";
}

// ---- links -------------------------------------------------------------------------------

link_t linux_board_t::sample_link(unsigned plug, int &index)
{
    if (plug == 0) {
        index = CPU_INDEX;
        return {true, PHY_SPEEDS.back(), true};
    }
    const auto member = std::ranges::find_if(members_, [&](const auto &entry) { return entry.second.front == plug; });
    index = member != members_.end() ? member->first : 0;
    if (index == 0 || !member->second.now.up || lost_[plug])
        return {};
    int named = 0;
    const link_t link = link_sample(plugs[plug].interface, named);
    if (named == index)
        return link;
    return index == plugs[plug].index ? plugs[plug].link : link_t{}; // it was renamed a moment ago
}

fd_t linux_board_t::open_wire(unsigned plug, int index)
{
    if (plug != 0)
        return wire_open(index, settings_.guard == guard_t::user_stp ? ear_t::passed_bpdus : ear_t::bpdus);
    fd_t wire;
    lab::in_net(settings_.daemon_net, [&] {
        int number = 0;
        link_sample(CPU_INTERFACE, number);
        wire = wire_open(number);
    });
    return wire;
}

/// Elsewhere on the machine a lot may happen.
bool linux_board_t::concerns(const link_news_t &news) const
{
    const int bridge = settings_.bridge.index;
    return news.index == 0 || news.index == bridge || news.master == bridge || members_.contains(news.index);
}

void linux_board_t::link_changed(unsigned front)
{
    if (!plugs[front].link.up)
        lost_[front] = true;
    link_changes_++;
}

void linux_board_t::look_at_links()
{
    refresh();
    if (!trouble_.empty())
        return;
    if (gate_ != nullptr && opened_)
        enforce_or_tell(); // newcomers are shut out before anything else
    board_t::look_at_links();
    enforce_or_tell();
}

void linux_board_t::settled()
{
    for (unsigned front = 1; front <= BOARD_PORTS; front++)
        if (std::exchange(lost_[front], false))
            awaited_[front] = true; // the daemon writes no state for a loss, but for the link that comes back
        else if (plugs[front].link.up)
            awaited_[front] = false;
    look_at_links();
}

void linux_board_t::open_up()
{
    opened_ = true;
    enforce_or_tell();
}

void linux_board_t::block_all()
{
    opened_ = false;
    enforce_or_tell();
}

bool linux_board_t::differs(const member_t &member) const
{
    const unsigned code = chip_port_state(chip, chip_port_of_front(member.front));
    return member.now.up && member.now.port_state &&
           (forwards(code) != (member.now.port_state == port_state_t::forwarding) ||
            learns(code) !=
                (member.now.port_state >= port_state_t::learning && member.now.port_state <= port_state_t::forwarding));
}

// ---- states ------------------------------------------------------------------------------

/// The state that a port should have, as the chip's registers have it.
unsigned linux_board_t::code_for(const member_t &member) const
{
    if (!opened_ || (member.front == 0 && settings_.numbering.listed.empty()))
        return CHIP_DISCARDING;
    if (member.front == 0)
        return CHIP_NO_STP;
    const unsigned code = chip_port_state(chip, chip_port_of_front(member.front));
    return lost_[member.front] || (awaited_[member.front] && code != CHIP_NO_STP) ? CHIP_DISCARDING : code;
}

/// What the kernel calls it. Without STP it lets a blocking port forward at once, but leaves a disabled one alone.
port_state_t linux_board_t::kernel_state(unsigned code) const
{
    if (forwards(code))
        return port_state_t::forwarding;
    if (learns(code))
        return port_state_t::learning;
    return code == CHIP_DISABLED || settings_.guard == guard_t::gate ? port_state_t::disabled : port_state_t::blocking;
}

gate_state_t linux_board_t::gate_wanted() const
{
    gate_state_t state;
    for (const auto &[index, member] : members_) {
        const unsigned code = code_for(member);
        const bool is_free = member.front == 0 && forwards(code);
        if (!is_free)
            state.ports.insert(index);
        if (!learns(code))
            state.deaf.insert(index);
        if (forwards(code))
            state.open.insert(index);
    }
    return state;
}

/// Gives a port its state. Returns 0, or the kernel's refusal.
int linux_board_t::put(member_t &member)
{
    const port_state_t state = kernel_state(code_for(member));
    if (member.now.port_state == state) {
        member.settled = state;
        member.refused = false;
        return 0;
    }
    if (!member.now.up)
        return 0; // the kernel has disabled it, and takes nothing else
    const int error = netlink_.set_port_state(member.now.index, state);
    if (error == 0) {
        member.now.port_state = member.settled = state;
        member.refused = false;
        return 0;
    }
    member.settled.reset();
    if (error == ENETDOWN || is_gone(error)) {
        // Its link went, or it left: neither is a refusal, if it is so.
        const auto ports = netlink_.ports_of(settings_.bridge.index);
        const auto now = std::ranges::find(ports, member.now.index, &interface_t::index);
        if (now == ports.end() || !now->up)
            return 0;
    }
    if (!member.refused)
        tell_(fmt::format("{} cannot be set to {}: {}", member.now.name, port_state_name(state), std::strerror(error)));
    member.refused = true;
    return error;
}

/// Puts all states into force: what closes comes first at the gate, what opens last.
int linux_board_t::enforce()
{
    const gate_state_t wanted = gate_wanted();
    if (gate_ != nullptr) {
        passing_ = stricter(passing_, wanted);
        gate_->set(passing_);
    }
    int refusal = 0;
    for (auto &[index, member] : members_)
        if (const int error = put(member); error != 0)
            refusal = error;
    if (gate_ != nullptr) {
        gate_->set(wanted);
        passing_ = wanted;
    }
    return refusal;
}

void linux_board_t::enforce_or_tell()
{
    std::string complaint;
    try {
        enforce();
    } catch (const std::exception &problem) {
        complaint = problem.what();
    }
    if (!complaint.empty() && complaint != told_)
        tell_(complaint);
    told_ = complaint;
}

int linux_board_t::flush(unsigned fronts)
{
    int refusal = 0;
    for (const auto &[index, member] : members_)
        if ((fronts >> member.front & 1) != 0)
            if (const int error = netlink_.flush_port(index); error != 0 && !is_gone(error))
                refusal = error;
    return refusal;
}

int linux_board_t::mdio(const mdio_multi_t &batch)
{
    const auto before = chip.states;
    const int result = board_t::mdio(batch);
    if (result != 0)
        return result;

    for (unsigned front = 1; front <= BOARD_PORTS; front++)
        if (!forwards(chip_port_state(chip, chip_port_of_front(front))))
            awaited_[front] = false;
    int refusal = 0;
    try {
        refusal = chip.states == before ? 0 : enforce();
        for (const chip_step_t &step : steps_)
            if (const auto fronts = flush_in(step); fronts && refusal == 0)
                refusal = flush(*fronts);
    } catch (const std::exception &problem) {
        tell_(problem.what());
        refusal = EIO;
    }
    if (refusal == 0)
        return 0;
    counters.batches_failed++; // the states stay in the registers, and are tried again: the daemon takes them for true
    return -1;
}
