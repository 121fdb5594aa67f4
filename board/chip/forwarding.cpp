// What the chip does with a frame: trap, learn, look up, flood.
#include <algorithm>
#include <functional>
#include <numeric>

#include "chip/chip.h"
#include "chip/registers.h"
#include "l2_proto_utility/cpu_tag.h"

namespace {

constexpr std::size_t ADDRESSES_OCTETS = 2 * std::tuple_size_v<mac_t>;
constexpr std::size_t HEADER_OCTETS = ADDRESSES_OCTETS + 2; // and the type
static_assert(RSTP_CPU_TAG_OFFSET == ADDRESSES_OCTETS);

bool state_forwards(unsigned state) { return state == CHIP_FORWARDING || state == CHIP_NO_STP; }

bool state_learns(unsigned state) { return state == CHIP_LEARNING || state_forwards(state); }

mac_t mac_at(std::span<const std::uint8_t> frame, std::size_t offset)
{
    mac_t mac;
    std::copy_n(frame.begin() + static_cast<std::ptrdiff_t>(offset), mac.size(), mac.begin());
    return mac;
}

bool can_send_data(const chip_t &chip, unsigned port)
{
    return chip.link[port] && state_forwards(chip_port_state(chip, port));
}

bool same_logical_port(const chip_t &chip, unsigned a, unsigned b)
{
    return a == b || (chip.trunk[a] != 0 && chip.trunk[a] == chip.trunk[b]);
}

std::uint8_t bit(unsigned port) { return static_cast<std::uint8_t>(1u << port); }

// The one port, as a bit, by which a frame leaves towards `port` or the trunk that it belongs to;
// 0 when none can send. The addresses choose the member, so that a flow keeps its order.
std::uint8_t exit_towards(const chip_t &chip, unsigned port, std::span<const std::uint8_t> frame)
{
    std::array<unsigned, CHIP_PORTS> members;
    std::size_t count = 0;
    for (unsigned member = 1; member < CHIP_PORTS; member++)
        if (same_logical_port(chip, member, port) && can_send_data(chip, member))
            members[count++] = member;
    if (count == 0)
        return 0;

    const auto addresses = frame.first(ADDRESSES_OCTETS);
    const unsigned hash = std::accumulate(addresses.begin(), addresses.end(), 0u, std::bit_xor<>());
    return bit(members[hash % count]);
}

std::uint8_t flood(const chip_t &chip, unsigned ingress, std::span<const std::uint8_t> frame)
{
    std::uint8_t ports = 0;
    for (unsigned port = 1; port < CHIP_PORTS; port++)
        if (!same_logical_port(chip, port, ingress))
            ports |= exit_towards(chip, port, frame);
    return ports;
}

chip_verdict_t decide(chip_t &chip, unsigned port, std::span<const std::uint8_t> frame, chip_time_t now)
{
    if (frame.size() < HEADER_OCTETS)
        return {.drop = chip_drop_t::runt};
    if (!chip.link[port])
        return {.drop = chip_drop_t::link_down};

    const unsigned state = chip_port_state(chip, port);
    if (state == CHIP_DISABLED)
        return {.drop = chip_drop_t::state};

    const mac_t destination = mac_at(frame, 0);
    if (chip.addresses.trapped.contains(destination))
        return {.trapped = true};

    if (state_learns(state))
        address_learn(chip.addresses, mac_at(frame, destination.size()), port, now);
    if (!state_forwards(state))
        return {.drop = chip_drop_t::state};

    std::uint8_t ports;
    if (const auto known = address_find(chip.addresses, destination, now); !known)
        ports = flood(chip, port, frame);
    else if (same_logical_port(chip, *known, port))
        ports = 0;
    else
        ports = exit_towards(chip, *known, frame);

    if (ports == 0)
        return {.drop = chip_drop_t::nowhere};
    return {.ports = ports};
}

void count_sent(chip_t &chip, std::uint8_t ports)
{
    for (unsigned port = 1; port < CHIP_PORTS; port++)
        if ((ports & bit(port)) != 0)
            chip.counters[port].sent++;
}

} // namespace

void chip_link_set(chip_t &chip, unsigned port, bool up) { chip.link.at(port) = up; }

void chip_trunk_set(chip_t &chip, unsigned port, std::uint8_t group) { chip.trunk.at(port) = group; }

chip_verdict_t chip_receive(chip_t &chip, unsigned port, std::span<const std::uint8_t> frame, chip_time_t now)
{
    chip_port_counters_t &counters = chip.counters.at(port);
    counters.received++;

    const chip_verdict_t verdict = decide(chip, port, frame, now);
    counters.trapped += verdict.trapped;
    counters.dropped += verdict.drop != chip_drop_t::none;
    count_sent(chip, verdict.ports);
    return verdict;
}

chip_verdict_t chip_receive_from_cpu(chip_t &chip, std::span<const std::uint8_t> frame)
{
    if (frame.size() < HEADER_OCTETS + RSTP_CPU_TAG_OCTETS || !has_cpu_tag(frame.data(), frame.size())) {
        chip.cpu.untagged++;
        return {.drop = chip_drop_t::untagged};
    }

    chip.cpu.tagged++;
    const std::uint8_t named = cpu_tag_ports(frame.data());
    std::uint8_t ports = 0;
    for (unsigned port = 1; port < CHIP_PORTS; port++)
        if ((named & bit(port)) != 0 && chip.link[port] && chip_port_state(chip, port) != CHIP_DISABLED)
            ports |= bit(port);
    if (ports == 0) {
        chip.cpu.undeliverable++;
        return {.drop = chip_drop_t::nowhere};
    }
    count_sent(chip, ports);
    return {.ports = ports};
}

std::span<std::uint8_t> chip_untag(std::span<std::uint8_t> frame)
{
    const auto tag = frame.begin() + RSTP_CPU_TAG_OFFSET;
    std::copy(tag + RSTP_CPU_TAG_OCTETS, frame.end(), tag);
    return frame.first(frame.size() - RSTP_CPU_TAG_OCTETS);
}
