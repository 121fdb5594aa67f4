#include "tools/ctl/expect.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <functional>
#include <iterator>
#include <optional>
#include <sstream>
#include <thread>
#include <vector>

#include <fmt/format.h>
#include <fmt/ranges.h>

#include "tools/ctl/arguments.h"
#include "tools/ctl/changes.h"
#include "tools/ctl/status.h"
#include "tools/hex.h"
#include "tools/words.h"

const char STATEMENTS[] =
    "  root is [not] this bridge | ADDRESS | PRIORITY/ADDRESS\n"
    "  root port is [not] N | none\n"
    "  port LIST forwards | learns | discards\n"
    "  port LIST is [not] root | designated | alternate | backup | disabled | off | member\n"
    "                     | forwarding | learning | discarding | down | edge | point-to-point\n"
    "  topology changes below N\n"
    "LIST is a port, or several as in 1,3-5; then it has to be so for each of them.";

namespace {

using steady_t = std::chrono::steady_clock;
using words_t = std::vector<std::string>;

constexpr std::chrono::milliseconds RETRY_PAUSE{50};

/// Says what is not so; empty when the statement is true.
using test_t = std::function<std::string(const bridge_status_t &status)>;

/// A statement as the engine of this file understands it: a state to reach, or a limit to keep.
struct statement_t {
    test_t test;
    std::optional<int64_t> changes_below;
};

[[noreturn]] void not_understood(const std::string &statement)
{
    throw usage_t(fmt::format("\"{}\" is not a statement. These are understood:\n{}", statement, STATEMENTS));
}

words_t words_of(std::string statement)
{
    std::ranges::transform(statement, statement.begin(), [](unsigned char letter) { return std::tolower(letter); });
    std::istringstream stream(statement);
    return {std::istream_iterator<std::string>(stream), {}};
}

bool begins(const words_t &words, const words_t &start)
{
    return words.size() >= start.size() && std::equal(start.begin(), start.end(), words.begin());
}

/// The words from `first` on, and whether a "not" stood in front of them.
struct predicate_t {
    bool negated;
    std::string text;
};

predicate_t predicate_from(const words_t &words, size_t first)
{
    const bool negated = first < words.size() && words[first] == "not";
    const auto begin = words.begin() + static_cast<long>(std::min(words.size(), first + negated));
    return {negated, fmt::format("{}", fmt::join(begin, words.end(), " "))};
}

// ---- root ------------------------------------------------------------------------------

struct bridge_name_t {
    std::optional<int64_t> priority;
    std::array<uint8_t, RSTP_MAC_OCTETS> address;
};

/// An address, or a priority and an address; nothing for other words.
std::optional<bridge_name_t> bridge_named(const std::string &text)
{
    const size_t slash = text.find('/');
    const auto address = read_address(slash == std::string::npos ? text : text.substr(slash + 1));
    if (!address)
        return {};
    if (slash == std::string::npos)
        return bridge_name_t{{}, *address};
    return bridge_name_t{parse_number("root is", text.substr(0, slash)), *address};
}

bool is_named(const bridge_id_t &id, const bridge_name_t &name)
{
    return std::ranges::equal(id.addr, name.address) && name.priority.value_or(id.prio) == id.prio;
}

/// `name` is empty for this bridge itself.
test_t root_test(const std::optional<bridge_name_t> &name, bool negated)
{
    return [name, negated](const bridge_status_t &status) -> std::string {
        if ((name ? is_named(status.root, *name) : status.is_root()) != negated)
            return {};
        return fmt::format("the root is {}{}", status.is_root() ? "this bridge, " : "", bridge_id_text(status.root));
    };
}

test_t root_port_test(const predicate_t &predicate)
{
    const int64_t wanted = predicate.text == "none" ? 0 : parse_number("root port", predicate.text);
    if (wanted)
        demand(LOGICAL_PORT, wanted);
    return [wanted, negated = predicate.negated](const bridge_status_t &status) -> std::string {
        if ((status.root_port == wanted) != negated)
            return {};
        return status.is_root() ? "there is no root port: this bridge is the root"
                                : fmt::format("the root port is {}", status.root_port);
    };
}

// ---- ports -----------------------------------------------------------------------------

constexpr int STATES[] = {HW_DISABLED, HW_DISCARDING, HW_LEARNING, HW_FORWARDING};

bool is_role(const std::string &word)
{
    for (int role = ROLE_DISABLED; role <= ROLE_NON_STP; role++)
        if (word == role_word(role))
            return true;
    return word == "member";
}

bool is_state(const std::string &word)
{
    return std::ranges::any_of(STATES, [&](int state) { return word == state_word(state); });
}

bool is_port_word(const std::string &word)
{
    return is_role(word) || is_state(word) || word == "edge" || word == "point-to-point";
}

bool port_is(const bridge_status_t &status, int port, const std::string &word)
{
    if (word == "edge")
        return status.port(port).edge;
    if (word == "point-to-point")
        return status.port(port).point_to_point;
    return is_role(word) ? role_name(status.port(port)) == word : state_name(status, port) == word;
}

std::string port_facts(const bridge_status_t &status, int port)
{
    const port_status_t &values = status.port(port);
    if (role_name(values) == "off")
        return fmt::format("port {} is off: the spanning tree does not rule it", port);
    return fmt::format("port {} is {}, {}, {}edge, {}point-to-point", port, role_name(values), state_name(status, port),
                       values.edge ? "" : "not ", values.point_to_point ? "" : "not ");
}

test_t port_test(const std::vector<unsigned> &ports, const predicate_t &predicate)
{
    return [ports, predicate](const bridge_status_t &status) -> std::string {
        for (const unsigned port : ports)
            if (port_is(status, static_cast<int>(port), predicate.text) == predicate.negated)
                return port_facts(status, static_cast<int>(port));
        return {};
    };
}

/// The predicate in "port 3 forwards" or "ports 1-3 are not edge"; its text is empty for another.
predicate_t port_predicate(const words_t &words)
{
    for (const int state : {HW_DISCARDING, HW_LEARNING, HW_FORWARDING})
        if (words.size() == 3 && (words[2] == state_verb(state) || words[2] + "s" == state_verb(state)))
            return {false, state_word(state)};
    if (words.size() > 3 && (words[2] == "is" || words[2] == "are"))
        return predicate_from(words, 3);
    return {false, ""};
}

// ---- all -------------------------------------------------------------------------------

statement_t parse_statement(const std::string &text)
{
    const words_t words = words_of(text);
    if (begins(words, {"root", "is"})) {
        const predicate_t predicate = predicate_from(words, 2);
        const auto bridge = bridge_named(predicate.text);
        if (bridge || predicate.text == "this bridge")
            return {root_test(bridge, predicate.negated), {}};
    }
    if (begins(words, {"root", "port", "is"}))
        return {root_port_test(predicate_from(words, 3)), {}};
    if (begins(words, {"topology", "changes", "below"}) && words.size() == 4)
        return {{}, parse_number("topology changes below", words[3])};
    if (words.size() > 2 && (words[0] == "port" || words[0] == "ports")) {
        const predicate_t predicate = port_predicate(words);
        if (is_port_word(predicate.text))
            return {port_test(parse_ports("port", words[1], LOGICAL_PORT), predicate), {}};
    }
    not_understood(text);
}

/// Waits until the test succeeds. A daemon that does not report yet may still come.
void expect_state(const ctl_t &ctl, const std::string &text, const test_t &test, steady_t::time_point deadline)
{
    for (;;) {
        std::string fault;
        try {
            fault = test(read_status(ctl).status);
        } catch (const refused_t &) {
            if (steady_t::now() >= deadline)
                throw;
            fault = "no report";
        }
        if (fault.empty())
            return;
        if (steady_t::now() >= deadline)
            throw refused_t(fmt::format("not so: {}: {}", text, fault));
        std::this_thread::sleep_for(RETRY_PAUSE);
    }
}

/// Counts to the end. A change that runs at the start counts.
void expect_few_changes(const ctl_t &ctl, const std::string &text, int64_t limit, steady_t::time_point deadline)
{
    reading_t reading = read_status(ctl);
    int64_t count = reading.status.topology_change;
    while (count < limit) {
        const auto next = next_status(ctl, reading, deadline);
        if (!next)
            return;
        count += topology_changes_between(reading.status, next->status);
        reading = *next;
    }
    throw refused_t(fmt::format("not so: {}: {} seen", text, count));
}

} // namespace

void expect(const ctl_t &ctl, const std::string &text, std::chrono::nanoseconds within)
{
    const statement_t statement = parse_statement(text);
    const auto deadline = steady_t::now() + within;
    if (statement.changes_below)
        expect_few_changes(ctl, text, *statement.changes_below, deadline);
    else
        expect_state(ctl, text, statement.test, deadline);
}
