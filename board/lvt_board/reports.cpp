#include "lvt_board/reports.h"

#include <algorithm>
#include <array>
#include <functional>
#include <stdexcept>

#include <fmt/format.h>
#include <fmt/ranges.h>

#include "tools/hex.h"

namespace {

using nlohmann::json;

unsigned front_port_in(const json &value)
{
    const auto front = value.get<unsigned>();
    if (front < 1 || front > BOARD_PORTS)
        throw std::invalid_argument(fmt::format("there is no port {}; ports are 1 to {}", front, BOARD_PORTS));
    return front;
}

// ---- show ------------------------------------------------------------------------------

json show_ports(board_t &board, const json &)
{
    board.look_at_links();
    json ports = json::array();
    for (unsigned front = 1; front <= BOARD_PORTS; front++) {
        const plug_t &plug = board.plugs[front];
        const unsigned port = chip_port_of_front(front);
        const unsigned state = chip_port_state(board.chip, port);
        ports.push_back({{"port", front},
                         {"chip", port},
                         {"interface", plug.interface},
                         {"present", plug.index != 0},
                         {"link", plug.link.up},
                         {"mbit", plug.link.mbit},
                         {"full_duplex", plug.link.full_duplex},
                         {"state", state},
                         {"state_name", chip_state_name(state)},
                         {"trunk", board.chip.trunk[port]}});
    }
    return ports;
}

json show_addresses(board_t &board, const json &)
{
    address_age(board.chip.addresses, board.now());
    json learned = json::array();
    for (const auto &[mac, entry] : board.chip.addresses.learned)
        learned.push_back({{"address", address_text(mac)},
                           {"port", front_port_of_chip(entry.port)},
                           {"age", std::chrono::duration<double>(board.now() - entry.seen).count()}});
    json trapped = json::array();
    for (const auto &[mac, words] : board.chip.addresses.trapped)
        trapped.push_back(address_text(mac));
    return {{"learned", learned}, {"trapped", trapped}};
}

json show_registers(board_t &board, const json &)
{
    json registers = json::array();
    for (const auto &[reg, word] : board.chip.registers)
        registers.push_back({{"register", reg}, {"value", chip_read(board.chip, reg, board.now())}});
    return registers;
}

json show_register(board_t &board, const json &request)
{
    return chip_read(board.chip, request.at("register").get<std::uint32_t>(), board.now());
}

json show_rules(board_t &board, const json &)
{
    json rules = json::array();
    for (const auto &[entry, rule] : board.chip.rules)
        if (rule.parts != chip_rule_t{}.parts)
            rules.push_back(
                {{"rule", entry}, {"pattern", rule.parts[0]}, {"mask", rule.parts[1]}, {"action", rule.parts[2]}});
    return rules;
}

json show_counters(board_t &board, const json &)
{
    json ports = json::array();
    for (unsigned front = 1; front <= BOARD_PORTS; front++) {
        const chip_port_counters_t &port = board.chip.counters[chip_port_of_front(front)];
        ports.push_back({{"port", front},
                         {"received", port.received},
                         {"sent", port.sent},
                         {"trapped", port.trapped},
                         {"dropped", port.dropped}});
    }
    const board_counters_t &own = board.counters;
    return {{"ports", ports},
            {"board",
             {{"cpu_tagged", board.chip.cpu.tagged},
              {"cpu_untagged", board.chip.cpu.untagged},
              {"cpu_undeliverable", board.chip.cpu.undeliverable},
              {"lost_commands", board.chip.lost_commands},
              {"batches", own.batches},
              {"batches_failed", own.batches_failed},
              {"link_asked", own.link_asked},
              {"bpdus", own.bpdus},
              {"bpdus_lost", own.bpdus_lost},
              {"link_reports", own.link_reports},
              {"send_failed", own.send_failed}}}};
}

json show_messages(board_t &board, const json &)
{
    json messages = json::array();
    for (const heard_t &message : board.heard)
        messages.push_back(message);
    return messages;
}

// ---- set -------------------------------------------------------------------------------

json set_speed(board_t &board, const json &request)
{
    const unsigned front = front_port_in(request.at("port"));
    if (request.contains("mbit"))
        board.set_speed(front, speed_of(request["mbit"].get<unsigned>(), request.at("full_duplex").get<bool>()));
    else
        board.set_speed(front, std::nullopt);
    return true;
}

json set_trunk(board_t &board, const json &request)
{
    const auto group = request.at("group").get<unsigned>();
    if (group <= BOARD_PORTS || group > BOARD_PORTS + 3)
        throw std::invalid_argument(fmt::format("there is no group {}; groups are 7 to 9", group));
    std::vector<unsigned> fronts;
    for (const json &port : request.at("ports"))
        fronts.push_back(front_port_in(port));
    board.set_trunk(static_cast<std::uint8_t>(group), fronts);
    return true;
}

json set_mdio_fail(board_t &board, const json &request)
{
    const json &value = request.at("value");
    board.faults.mdio_failures = value.is_boolean() ? 0 : value.get<std::uint64_t>();
    board.faults.mdio_fails = value.is_boolean() && value.get<bool>();
    return true;
}

json set_link_fail(board_t &board, const json &request)
{
    board.faults.link_fails = request.at("value").get<bool>();
    return true;
}

json set_pipes_unread(board_t &board, const json &request)
{
    board.faults.pipes_unread = request.at("value").get<bool>();
    return true;
}

struct handler_t {
    const char *verb;
    const char *what;
    json (*handle)(board_t &, const json &);
};

constexpr handler_t HANDLERS[] = {
    {"show", "ports", show_ports},         {"show", "addresses", show_addresses},
    {"show", "registers", show_registers}, {"show", "register", show_register},
    {"show", "rules", show_rules},         {"show", "counters", show_counters},
    {"show", "messages", show_messages},   {"set", "speed", set_speed},
    {"set", "trunk", set_trunk},           {"set", "mdio-fail", set_mdio_fail},
    {"set", "link-fail", set_link_fail},   {"set", "pipes-unread", set_pipes_unread},
};

} // namespace

json board_answer(board_t &board, const json &request)
{
    for (const auto &[verb, what, handle] : HANDLERS) {
        if (!request.contains(verb) || request.at(verb) != what)
            continue;
        if (verb == std::string_view("set"))
            board.log().line("set", "{}", request.dump());
        return handle(board, request);
    }
    throw std::invalid_argument("not a request: " + request.dump());
}

speed_t speed_of(unsigned mbit, bool full_duplex)
{
    if (std::ranges::find(PHY_SPEEDS, mbit) == PHY_SPEEDS.end())
        throw std::invalid_argument(
            fmt::format("no port can do {} Mbit/s; speeds are {}", mbit, fmt::join(PHY_SPEEDS, ", ")));
    return {mbit, full_duplex};
}
