#include "tools/ctl/expect.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <cerrno>
#include <cstring>
#include <functional>
#include <iterator>
#include <memory>
#include <optional>
#include <sstream>
#include <thread>
#include <vector>

#include <fmt/format.h>
#include <fmt/ranges.h>

#include "tools/ctl/arguments.h"
#include "tools/ctl/changes.h"
#include "tools/ctl/status.h"
#include "tools/ctl/status_json.h"
#include "tools/ctl/text_file.h"
#include "tools/hex.h"
#include "tools/words.h"

const char STATEMENTS[] =
    "  root is [not] this bridge | ADDRESS | PRIORITY/ADDRESS\n"
    "  root port is [not] N | none\n"
    "  port LIST forwards | learns | discards | blocks | hears\n"
    "  port LIST is [not] root | designated | alternate | backup | disabled | off | member\n"
    "                     | forwarding | learning | discarding | blocking | up | down\n"
    "                     | edge | point-to-point\n"
    "  topology changes below N\n"
    "LIST is a port, or several as in 1,3-5; then it has to be so for each of them.";

namespace {

using steady_t = std::chrono::steady_clock;
using words_t = std::vector<std::string>;

constexpr std::chrono::milliseconds RETRY_PAUSE{50};

/// Says what is not so; empty when the statement is true. Throws untold_t when nobody can tell.
using test_t = std::function<std::string(const bridge_status_t &status)>;

/// A statement as the engine of this file understands it: a state to reach, or a limit to keep.
struct statement_t {
    std::string text = {};
    test_t test = {};
    std::optional<int64_t> changes_below = {};
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

constexpr int STATES[] = {HW_DISCARDING, HW_LEARNING, HW_FORWARDING};
constexpr const char *OTHERS[] = {"edge", "point-to-point", "up", "down"};

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
    return is_role(word) || is_state(word) || std::ranges::find(OTHERS, word) != std::end(OTHERS);
}

/// Of a port off the tree, and of a member of a group, the daemon does not report it.
bool has_link(const bridge_status_t &status, int port)
{
    const std::string role = role_name(status.port(port));
    if (role == "off" || role == "member")
        throw untold_t(fmt::format("port {} is {}: the daemon does not report its link", port,
                                   role == "member" ? "a member of a group" : role));
    return role != "disabled";
}

bool port_is(const bridge_status_t &status, int port, const std::string &word)
{
    if (word == "up" || word == "down")
        return has_link(status, port) == (word == "up");
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

/// Whether each has counted a received BPDU since the first look.
test_t hearing_test(const std::vector<unsigned> &ports)
{
    auto first = std::make_shared<std::optional<bridge_status_t>>();
    return [ports, first](const bridge_status_t &status) -> std::string {
        if (!*first)
            *first = status;
        for (const unsigned number : ports) {
            const int port = static_cast<int>(number);
            if (status.port(port).received.all() == (*first)->port(port).received.all())
                return fmt::format("port {} has received no BPDU since this command began", port);
        }
        return {};
    };
}

/// The predicate in "port 3 forwards" or "ports 1-3 are not edge"; its text is empty for another.
predicate_t port_predicate(const words_t &words)
{
    if (words.size() == 3) {
        for (const int state : STATES)
            if (words[2] == state_verb(state) || words[2] + "s" == state_verb(state))
                return {false, state_word(state)};
        if (words[2] == "blocks" || words[2] == "block")
            return {false, state_word(HW_DISCARDING)};
        if (words[2] == "hears" || words[2] == "hear")
            return {false, "hearing"};
        return {false, ""};
    }
    if (words.size() <= 3 || (words[2] != "is" && words[2] != "are"))
        return {false, ""};
    predicate_t predicate = predicate_from(words, 3);
    if (predicate.text == "blocking")
        predicate.text = state_word(HW_DISCARDING);
    return predicate;
}

// ---- all -------------------------------------------------------------------------------

statement_t parse_statement(const std::string &text)
{
    const words_t words = words_of(text);
    if (begins(words, {"root", "is"})) {
        const predicate_t predicate = predicate_from(words, 2);
        const auto bridge = bridge_named(predicate.text);
        if (bridge || predicate.text == "this bridge")
            return {.test = root_test(bridge, predicate.negated)};
    }
    if (begins(words, {"root", "port", "is"}))
        return {.test = root_port_test(predicate_from(words, 3))};
    if (begins(words, {"topology", "changes", "below"}) && words.size() == 4)
        return {.changes_below = parse_number("topology changes below", words[3])};
    if (words.size() > 2 && (words[0] == "port" || words[0] == "ports")) {
        const predicate_t predicate = port_predicate(words);
        if (predicate.text == "hearing" && words.size() == 3)
            return {.test = hearing_test(parse_ports("port", words[1], LOGICAL_PORT))};
        if (is_port_word(predicate.text))
            return {.test = port_test(parse_ports("port", words[1], LOGICAL_PORT), predicate)};
    }
    not_understood(text);
}

/// The statements of a file, each with what its faults begin with.
std::vector<statement_t> statements_in(const std::string &path)
{
    const auto text = read_text_file(path);
    if (!text)
        throw refused_t(fmt::format("cannot read {}: {}", path, std::strerror(errno)));
    std::istringstream lines(*text);
    std::vector<statement_t> statements;
    unsigned number = 0;
    for (std::string line; std::getline(lines, line);) {
        number++;
        line.erase(std::min(line.find('#'), line.size()));
        const words_t words = words_of(line);
        if (words.empty())
            continue;
        try {
            statements.push_back(parse_statement(line));
        } catch (const usage_t &fault) {
            throw usage_t(fmt::format("{}:{}: {}", path, number, fault.what()));
        } catch (const refused_t &fault) {
            throw refused_t(fmt::format("{}:{}: {}", path, number, fault.what()));
        }
        const size_t first = line.find_first_not_of(" \t\r");
        statements.back().text = line.substr(first, line.find_last_not_of(" \t\r") + 1 - first);
    }
    if (statements.empty())
        throw refused_t(fmt::format("{} holds no statements", path));
    return statements;
}

std::vector<statement_t> statements_of(const expect_args_t &args)
{
    std::vector<statement_t> statements;
    for (const std::string &text : args.statements) {
        statements.push_back(parse_statement(text));
        statements.back().text = text;
    }
    if (!args.file.empty())
        std::ranges::move(statements_in(args.file), std::back_inserter(statements));
    if (statements.empty())
        throw usage_t("expect: give a STATEMENT, or --all FILE");
    return statements;
}

verdict_t verdict_on(const statement_t &statement, const bridge_status_t &status, int64_t changes)
{
    if (statement.changes_below)
        return {statement.text, changes < *statement.changes_below, fmt::format("{} seen", changes)};
    try {
        const std::string fact = statement.test(status);
        return {statement.text, fact.empty(), fact};
    } catch (const untold_t &untold) {
        return {statement.text, {}, untold.what()};
    }
}

/// One report after the other, with the topology changes in between; one that runs at the start counts.
class watch_t {
public:
    std::vector<verdict_t> verdicts_on(const ctl_t &ctl, const std::vector<statement_t> &statements)
    {
        const reading_t next = read_status(ctl);
        if (!last_)
            changes_ = next.status.topology_change;
        else if (last_->written != next.written)
            changes_ += topology_changes_between(last_->status, next.status);
        last_ = next;

        std::vector<verdict_t> verdicts;
        for (const statement_t &statement : statements)
            verdicts.push_back(verdict_on(statement, next.status, changes_));
        return verdicts;
    }

private:
    std::optional<reading_t> last_;
    int64_t changes_ = 0;
};

/// Whether to go on would change nothing.
bool is_settled(const std::vector<statement_t> &statements, const std::vector<verdict_t> &verdicts)
{
    bool counting = false;
    for (size_t i = 0; i < statements.size(); i++) {
        counting = counting || statements[i].changes_below;
        if (statements[i].changes_below && verdicts[i].so == false)
            return true;
    }
    return !counting && all_so(verdicts) == true;
}

/// A daemon that does not report yet may still come; but who counts changes must not miss any.
std::vector<verdict_t> judge(const ctl_t &ctl, const std::vector<statement_t> &statements,
                             steady_t::time_point deadline)
{
    const bool counting =
        std::ranges::any_of(statements, [](const statement_t &one) { return one.changes_below.has_value(); });
    watch_t watch;
    for (;;) {
        const bool over = steady_t::now() >= deadline;
        try {
            const auto verdicts = watch.verdicts_on(ctl, statements);
            if (over || is_settled(statements, verdicts))
                return verdicts;
        } catch (const untold_t &) {
            if (over || counting)
                throw;
        }
        std::this_thread::sleep_for(RETRY_PAUSE);
    }
}

/// Judged, or none when the daemon does not report at all.
std::vector<verdict_t> judge_for_json(const ctl_t &ctl, const std::vector<statement_t> &statements,
                                      steady_t::time_point deadline)
{
    try {
        return judge(ctl, statements, deadline);
    } catch (const untold_t &untold) {
        std::vector<verdict_t> verdicts;
        for (const statement_t &statement : statements)
            verdicts.push_back({statement.text, {}, untold.what()});
        return verdicts;
    }
}

} // namespace

std::optional<bool> all_so(const std::vector<verdict_t> &verdicts)
{
    if (std::ranges::any_of(verdicts, [](const verdict_t &verdict) { return verdict.so == false; }))
        return false;
    if (std::ranges::any_of(verdicts, [](const verdict_t &verdict) { return !verdict.so; }))
        return {};
    return true;
}

void expect(const ctl_t &ctl, const expect_args_t &args)
{
    const std::vector<statement_t> statements = statements_of(args);
    const auto deadline = steady_t::now() + args.within;
    const auto verdicts = args.json ? judge_for_json(ctl, statements, deadline) : judge(ctl, statements, deadline);
    if (args.json)
        fmt::print("{}\n", verdicts_json(verdicts));

    const std::optional<bool> so = all_so(verdicts);
    if (so == true)
        return;
    std::string faults;
    for (const verdict_t &verdict : verdicts)
        if (verdict.so != true)
            faults += fmt::format("{}{}: {}: {}",
                                  faults.empty() ? "" : "\nlvt_rstpctl: ", verdict.so ? "not so" : "nobody can tell",
                                  verdict.statement, verdict.fact);
    if (!so)
        throw untold_t(faults);
    throw refused_t(faults);
}
