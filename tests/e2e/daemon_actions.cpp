#include "daemon_actions.h"

#include <array>
#include <iterator>

#include <fmt/format.h>
#include <fmt/ranges.h>
#include <nlohmann/json.hpp>

#include "board/chip/ports.h"
#include "fixture.h"

namespace e2e {

namespace {

constexpr unsigned WRITE = 9, MODIFY = 10, WAIT = 11;
constexpr unsigned BUSY = 0x80000000;

std::string operation(unsigned op, unsigned reg, unsigned mask, unsigned value)
{
    return fmt::format("{} {:x} {:x} {:x}", op, reg, mask, value);
}

std::string batch(const std::vector<std::string> &operations) { return fmt::format("{}", fmt::join(operations, "; ")); }

unsigned number(const event_t &event, const char *key)
{
    return static_cast<unsigned>(std::stoul(event.values.at(key), nullptr, 0));
}

std::string trap(unsigned mask, unsigned command)
{
    return batch({operation(WAIT, 0x60C, BUSY, 0), operation(WRITE, 0x600, 0, 0xC2000000),
                  operation(WRITE, 0x604, 0, 0x00800180), operation(WRITE, 0x608, 0, 0x12F),
                  operation(WRITE, 0x60C, mask, command)});
}

/// The board has written down what the daemon did until now.
void catch_up(const lab::switch_t &device) { device.client().show("counters"); }

} // namespace

actions_t watch_t::news()
{
    if (device_.node().read(lab::BOARD_LOG_FILE).empty())
        return {};
    catch_up(device_);
    const std::vector<event_t> events = diary(device_);

    actions_t actions;
    for (; seen_ < events.size(); seen_++) {
        const event_t &event = events[seen_];
        if (event.topic == "mux")
            actions.push_back(event.values.contains("port")
                                  ? tells_mux(static_cast<int>(number(event, "port")), number(event, "forwarding") != 0)
                                  : "mux ?");
        if (event.topic != "mdio")
            continue;
        if (event.values.contains("step")) {
            operations_.push_back(
                operation(number(event, "op"), number(event, "reg"), number(event, "mask"), number(event, "value")));
            continue;
        }
        if (event.values.at("result") == "0")
            actions.push_back(batch(operations_));
        else
            actions.push_back(is_refused(number(event, "ops")));
        operations_.clear();
    }
    return actions;
}

actions_t watch_t::news_like(const actions_t &wanted)
{
    actions_t all;
    lab::within(SOON, [&] {
        all = all + news();
        return all.size() >= wanted.size();
    });
    return all;
}

std::string writes_state(int port, unsigned code)
{
    return operation(MODIFY, 0x660 + 12 * chip_port_of_front(static_cast<unsigned>(port)), 0x70000, code << 16);
}

std::string tells_mux(int port, bool forwarding) { return fmt::format("mux {} {}", port, int{forwarding}); }

std::string flushes() { return batch({operation(WAIT, 0x60C, BUSY, 0), operation(WRITE, 0x60C, 0, 0x80000004)}); }

std::string arms_trap() { return trap(0, 0x80020022); }

std::string disarms_trap() { return trap(BUSY, 0x80020023); }

std::string writes_rule(int port, unsigned mac)
{
    const unsigned entry = 36 + static_cast<unsigned>(port);
    const unsigned port_bit = 1u << chip_port_of_front(static_cast<unsigned>(port));
    const std::array<std::array<unsigned, 5>, 3> parts = {{
        {0xC2000000, (mac & 0xFFFF) << 16 | 0x180, 0x02000000 | (mac >> 16 & 0xFF), 0, 0},
        {0xFFFFFFFF, 0xFFFFFFFF, 0xFFFFFFFF, 0, 201},
        {0, port_bit << 29, 0x8010 | port_bit >> 3, 0, 0},
    }};
    std::vector<std::string> operations;
    for (unsigned part = 0; part < parts.size(); part++) {
        operations.push_back(operation(WAIT, 0x400, BUSY, 0));
        for (unsigned word = 0; word < 5; word++)
            operations.push_back(operation(WRITE, 0x404 + 4 * word, 0, parts[part][word]));
        operations.push_back(operation(WRITE, 0x400, 0, BUSY | part << 8 | entry));
    }
    return batch(operations);
}

std::string is_refused(unsigned operations) { return fmt::format("refused: {} operations", operations); }

actions_t operator+(actions_t first, const actions_t &second)
{
    first.insert(first.end(), second.begin(), second.end());
    return first;
}

} // namespace e2e
