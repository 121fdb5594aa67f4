#include "sim_net.h"

#include <algorithm>
#include <cstring>

#include <fmt/format.h>
#include <fmt/ranges.h>

#include "board/chip/registers.h"
#include "tools/status_file.h"
#include "tools/words.h"

namespace sim {

namespace {

constexpr address_t EVERYBODY = {0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF};

struct data_frame_t {
    address_t to, from;
    std::array<uint8_t, 2> type;
    std::array<uint8_t, 4> number;
    std::array<uint8_t, 42> padding;
};
static_assert(sizeof(data_frame_t) == 60);

constexpr std::array<uint8_t, 2> DATA_TYPE = {0x88, 0xB5}; // for local experiments

template <typename record_t>
std::span<const uint8_t> octets_of_record(const record_t &record)
{
    return {reinterpret_cast<const uint8_t *>(&record), sizeof record};
}

std::string flag_words(const bpdu_t &bpdu)
{
    std::string words = bpdu_flags_words(bpdu.type, bpdu.flags);
    std::erase(words, ',');
    return words;
}

} // namespace

std::string seconds(moment_t span)
{
    return fmt::format("{}", static_cast<double>(span) / static_cast<double>(SECOND));
}

// ---- a neighbour ------------------------------------------------------------------------------

neighbour_t::neighbour_t(world_t &world)
    : world_(world), node_(world.add_speaker([this](const frame_t &frame) { hear(frame); })),
      address_{0x02, 0, 0, 0xFF, static_cast<uint8_t>(node_), 0}
{
}

void neighbour_t::say_once(const bpdu_t &bpdu)
{
    bpdu_t said = bpdu;
    std::copy(address_.begin(), address_.end(), said.source);
    world_.send(node_, octets_of_record(said));
}

void neighbour_t::say(std::vector<bpdu_t> bpdus, moment_t pause)
{
    bpdus_ = std::move(bpdus);
    pause_ = pause;
    talk(++topic_, 0);
}

void neighbour_t::talk(unsigned topic, size_t next)
{
    if (topic != topic_)
        return;
    say_once(bpdus_[next % bpdus_.size()]);
    world_.at(world_.now() + pause_, [=, this] { talk(topic, next + 1); });
}

void neighbour_t::send_data()
{
    data_frame_t frame = {EVERYBODY, address_, DATA_TYPE, {}, {}};
    memcpy(frame.number.data(), &data_sent_, sizeof data_sent_);
    data_sent_++;
    world_.send(node_, octets_of_record(frame));
}

void neighbour_t::hear(const frame_t &frame)
{
    data_frame_t data;
    if (frame.length < sizeof data)
        return;
    memcpy(&data, frame.octets.data(), sizeof data);
    if (data.type != DATA_TYPE)
        return;
    uint32_t number;
    memcpy(&number, data.number.data(), sizeof number);
    times_heard_[{data.from, number}]++;
    data_heard_++;
}

size_t neighbour_t::times_heard(const neighbour_t &from, uint32_t number) const
{
    const auto found = times_heard_.find({from.address_, number});
    return found == times_heard_.end() ? 0 : found->second;
}

size_t neighbour_t::most_copies() const
{
    size_t most = 0;
    for (const auto &[frame, times] : times_heard_)
        most = std::max(most, times);
    return most;
}

// ---- the network ------------------------------------------------------------------------------

node_id_t net_t::add_switch(moment_t phase)
{
    const node_id_t node = world.add_switch();
    world.device(node).rapid = rapid;
    world.power_on(node, phase ? phase : SECOND + (world.device(node).number - 1) * TENTH);
    return node;
}

node_id_t net_t::add_bridge(uint16_t priority, const port_configs_t &ports, moment_t phase)
{
    const node_id_t node = add_switch(phase);
    world.control(node, system_config_message(bridge_config(priority)));
    world.control(node, port_config_message(ports));
    return node;
}

neighbour_t &net_t::add_neighbour(node_id_t at, unsigned port, uint32_t mbit, bool full_duplex)
{
    neighbour_t &neighbour = neighbours_.emplace_back(world);
    world.connect({at, port}, {neighbour.node(), 1}, {}, mbit, full_duplex);
    return neighbour;
}

void net_t::mark()
{
    mark_ = world.now();
    entries_.clear();
    said_.clear();
}

void net_t::pass(moment_t span)
{
    world.run_for(span);
    mark();
}

// ---- what happened ----------------------------------------------------------------------------

void net_t::note(topic_t topic, node_id_t node, unsigned port, std::string words)
{
    entries_.push_back({world.now(), topic, node, port, std::move(words)});
}

net_t::seen_t &net_t::seen_of(node_id_t node)
{
    if (seen_.size() <= node)
        seen_.resize(node + 1);
    return seen_[node];
}

void net_t::sent(cable_id_t cable, unsigned from, const frame_t &frame)
{
    const end_t &end = world.cable(cable).ends[from];
    const std::span<const uint8_t> octets(frame.octets.data(), frame.length);
    if (is_bpdu(octets))
        said_.push_back({world.now(), end.node, end.port, read_bpdu(octets)});
}

void net_t::chip_changed(node_id_t node)
{
    for (unsigned port = 1; port <= FRONT_PORTS; port++)
        if (unsigned &seen = seen_of(node).states[port - 1]; seen != state(node, port)) {
            seen = state(node, port);
            note(topic_t::STATE, node, port, chip_state_name(seen));
        }
}

void net_t::chip_written(node_id_t node, const mdio_multi_t &batch)
{
    for (const mdio_op_t &op : std::span(batch.operations, batch.count)) {
        const auto port = port_of_control_register(op.reg);
        if (port && op.op == MDIO_OP_MODIFY && op.mask == PORT_STATE_MASK)
            note(topic_t::WRITE, node, 0,
                 fmt::format("port {} {}", front_port_of_chip(*port), chip_state_name(op.value >> PORT_STATE_SHIFT)));
        if (empties_addresses(op)) {
            note(topic_t::WRITE, node, 0, "flush");
            note(topic_t::FLUSH, node, 0, "");
        }
    }
}

void net_t::event_done(node_id_t node)
{
    const lvt_rstp_vars_t &vars = switch_vars(world.device(node));
    for (unsigned port = 1; port <= RSTP_PORTS; port++)
        if (int &seen = seen_of(node).roles[port - 1]; seen != vars.ports[port - 1].role) {
            seen = vars.ports[port - 1].role;
            note(topic_t::ROLE, node, port, role_word(seen));
        }
    const std::string root = bridge_id_text(vars.bridge.rootPrio.root_bridge);
    if (std::string &seen = seen_of(node).root; seen != root)
        note(topic_t::ROOT, node, 0, seen = root);
}

std::string net_t::told(topic_t topic, node_id_t node, unsigned port) const
{
    std::vector<std::string> texts;
    for (const entry_t &entry : entries_)
        if (entry.topic == topic && entry.node == node && entry.port == port)
            texts.push_back(seconds(entry.at - mark_) + (entry.words.empty() ? "" : " ") + entry.words);
    return fmt::format("{}", fmt::join(texts, ", "));
}

std::string net_t::states(node_id_t node, unsigned port) const { return told(topic_t::STATE, node, port); }
std::string net_t::roles(node_id_t node, unsigned port) const { return told(topic_t::ROLE, node, port); }
std::string net_t::flushes(node_id_t node) const { return told(topic_t::FLUSH, node, 0); }
std::string net_t::writes(node_id_t node) const { return told(topic_t::WRITE, node, 0); }
std::string net_t::roots(node_id_t node) const { return told(topic_t::ROOT, node, 0); }

std::string net_t::sent(node_id_t node, unsigned port, const std::function<bool(const bpdu_t &)> &is_wanted) const
{
    std::vector<std::string> texts;
    for (const said_t &said : said_)
        if (said.node == node && said.port == port && is_wanted(said.bpdu))
            texts.push_back(seconds(said.at - mark_));
    return fmt::format("{}", fmt::join(texts, " "));
}

std::string net_t::flags_sent(node_id_t node, unsigned port) const
{
    std::vector<std::string> texts;
    for (const said_t &said : said_)
        if (said.node == node && said.port == port)
            texts.push_back(fmt::format("{} {}", seconds(said.at - mark_), flag_words(said.bpdu)));
    return fmt::format("{}", fmt::join(texts, ", "));
}

std::vector<bpdu_t> net_t::bpdus_sent(node_id_t node, unsigned port) const
{
    std::vector<bpdu_t> bpdus;
    for (const said_t &said : said_)
        if (said.node == node && said.port == port)
            bpdus.push_back(said.bpdu);
    return bpdus;
}

// ---- how it is now ----------------------------------------------------------------------------

lvt_rstp_port_status_t net_t::status(node_id_t node, unsigned port)
{
    switch_vars(world.device(node));
    lvt_rstp_port_status_t status;
    lvt_rstp_read_port_status(port, &status);
    return status;
}

lvt_rstp_bridge_status_t net_t::bridge(node_id_t node)
{
    switch_vars(world.device(node));
    lvt_rstp_bridge_status_t status;
    lvt_rstp_read_bridge_status(&status);
    return status;
}

std::string net_t::ports(node_id_t node)
{
    std::vector<std::string> texts;
    for (unsigned number = 1; number <= RSTP_PORTS; number++)
        if (const auto port = status(node, number); port.role != ROLE_DISABLED && port.role != ROLE_NON_STP)
            texts.push_back(fmt::format("{} {} {}", number, role_word(port.role), state_verb(port.state)));
    return fmt::format("{}", fmt::join(texts, ", "));
}

unsigned net_t::heard_at(node_id_t node, const address_t &address) const
{
    const auto port = address_find(world.device(node).chip.addresses, address, chip_time_t(world.now()));
    return port ? front_port_of_chip(*port) : 0;
}

} // namespace sim
