#include "board/lvt_lab/script.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <sstream>
#include <thread>

#include <fmt/format.h>
#include <fmt/ranges.h>
#include <nlohmann/json.hpp>

#include "board/lab/within.h"
#include "board/lvt_lab/client.h"
#include "board/lvt_lab/command_line.h"
#include "board/lvt_lab/tree.h"
#include "board/lvt_lab/verbs.h"
#include "tools/about.h"
#include "tools/ctl/ctl.h"
#include "tools/ctl/text_file.h"
#include "tools/topology/story.h"
#include "tools/topology/values.h"

namespace lvt_lab {

namespace {

using topology::span_t;
using words_t = std::vector<std::string>;

constexpr size_t SCRIPT_OCTETS_MAX = 1 << 20;
constexpr std::chrono::seconds USUAL_PATIENCE{10};

constexpr const char *ROLES[] = {"root", "designated", "alternate", "backup", "disabled", "off"};
constexpr struct {
    const char *verb, *state;
} STATES[] = {{"forwards", "forwarding"}, {"learns", "learning"}, {"discards", "discarding"}, {"has no link", "down"}};

constexpr char FORMS[] =
    "rest; root is NODE; END is ROLE; END forwards, learns, discards; END has no link; A-B carries; A-B is cut; "
    "A-B is pulled; NODE has no daemon; NODE has no power; HOST reaches HOST; HOST does not reach HOST; "
    "outage under TIME";

bool ends_as(const words_t &words, size_t from, const std::string &text)
{
    return words.size() > from &&
           fmt::format("{}", fmt::join(words.begin() + static_cast<std::ptrdiff_t>(from), words.end(), " ")) == text;
}

/// Whether they say something that can be expected.
bool is_expectation(const words_t &words)
{
    if (words == words_t{"rest"})
        return true;
    if (words.size() == 3 && words[0] == "outage" && words[1] == "under")
        return topology::parse_span(words[2]).has_value();
    if (words.size() == 3 && words[0] == "root" && words[1] == "is")
        return true;
    for (const char *role : ROLES)
        if (ends_as(words, 1, fmt::format("is {}", role)))
            return true;
    for (const auto &state : STATES)
        if (ends_as(words, 1, state.verb))
            return true;
    for (const char *text : {"carries", "is cut", "is pulled", "has no daemon", "has no power"})
        if (ends_as(words, 1, text))
            return true;
    return (words.size() == 3 && words[1] == "reaches") ||
           (words.size() == 5 && words[1] == "does" && words[2] == "not" && words[3] == "reach");
}

class parser_t {
public:
    explicit parser_t(const std::string &path) : path_(path) {}

    std::vector<step_t> parse(const std::string &text)
    {
        std::istringstream lines(text);
        for (std::string line; std::getline(lines, line);) {
            line_++;
            parse_line(line);
        }
        if (!faults_.empty())
            throw faults_t(fmt::format("{}", fmt::join(faults_, "\n")));
        return steps_;
    }

private:
    void blame(const std::string &text) { faults_.push_back(fmt::format("{}:{}: {}", path_, line_, text)); }

    void parse_line(const std::string &line)
    {
        auto words = split_words(line);
        if (!words)
            return blame("a quote is not closed");
        if (words->empty())
            return;
        step_t step = {step_t::kind_t::COMMAND, line_, *words, {}, fmt::format("{}", fmt::join(*words, " "))};
        const std::string &verb = words->front();
        if (verb == "wait") {
            step.kind = step_t::kind_t::WAIT;
            const auto span = words->size() == 2 ? topology::parse_span((*words)[1]) : std::nullopt;
            if (!span)
                return blame(fmt::format("after wait should be {}", topology::SPAN_FORM));
            step.span = *span;
        } else if (verb == "expect") {
            step.kind = step_t::kind_t::EXPECT;
            step.words.erase(step.words.begin());
            const bool is_rest = !step.words.empty() && step.words.front() == "rest";
            step.span = is_rest ? span_t(REST_PATIENCE) : span_t(USUAL_PATIENCE);
            if (const size_t size = step.words.size(); size > 2 && step.words[size - 2] == "within") {
                const auto span = topology::parse_span(step.words.back());
                if (!span)
                    return blame(fmt::format("after within should be {}", topology::SPAN_FORM));
                step.span = *span;
                step.words.resize(size - 2);
            }
            if (!is_expectation(step.words))
                return blame(fmt::format("\"{}\" cannot be expected: known are {}", fmt::join(step.words, " "), FORMS));
        } else if (verb == "run")
            return blame("a script runs no other one");
        steps_.push_back(std::move(step));
    }

    const std::string &path_;
    unsigned line_ = 0;
    std::vector<step_t> steps_;
    std::vector<std::string> faults_;
};

/// The only cable that a word means, as in commands.
const cable_view_t &cable_of(const lab_view_t &view, const std::string &word)
{
    topology::network_t network;
    const auto node_index = [&](const std::string &name) {
        for (size_t i = 0; i < view.nodes.size(); i++)
            if (view.nodes[i].name == name)
                return i;
        return size_t{0};
    };
    for (const node_view_t &node : view.nodes)
        network.nodes.push_back({.name = node.name});
    for (const cable_view_t &cable : view.cables)
        network.links.push_back({.ends = {{{node_index(cable.ends[0].node), cable.ends[0].port},
                                           {node_index(cable.ends[1].node), cable.ends[1].port}}}});
    const auto found = topology::find_links(network, word);
    if (found.empty())
        throw refused_t(fmt::format("there is no link \"{}\"", word));
    if (found.size() > 1)
        throw refused_t(fmt::format("\"{}\" may be several links: write the ports, too", word));
    return view.cables[found[0].link];
}

const node_view_t &node_of(const lab_view_t &view, const std::string &word)
{
    topology::network_t network;
    for (const node_view_t &node : view.nodes)
        network.nodes.push_back({.name = node.name});
    const auto found = topology::find_node(network, word);
    if (!found)
        throw refused_t(fmt::format("there is no node \"{}\"", word));
    return view.nodes[*found];
}

const end_view_t &end_of(const lab_view_t &view, const std::string &word)
{
    const size_t colon = std::min(word.find(':'), word.size());
    const std::string name = fmt::format("{}{}", node_of(view, word.substr(0, colon)).name, word.substr(colon));
    const end_view_t *end = view.end(name);
    if (!end)
        throw refused_t(fmt::format("there is no cable at \"{}\"", word));
    return *end;
}

} // namespace

std::optional<words_t> split_words(const std::string &line)
{
    words_t words;
    std::string word;
    bool inside = false; // a word
    char quote = 0;
    for (const char letter : line) {
        if (quote && letter != quote)
            word += letter;
        else if (quote)
            quote = 0;
        else if (letter == '"' || letter == '\'') {
            quote = letter;
            inside = true;
        } else if (letter == '#' && !inside)
            break;
        else if (letter == ' ' || letter == '\t' || letter == '\r') {
            if (inside)
                words.push_back(std::exchange(word, {}));
            inside = false;
        } else {
            word += letter;
            inside = true;
        }
    }
    if (quote)
        return {};
    if (inside)
        words.push_back(word);
    return words;
}

std::vector<step_t> parse_script(const std::string &text, const std::string &path)
{
    return parser_t(path).parse(text);
}

std::optional<std::string> what_is_wrong(const words_t &words, const lab_view_t &view)
{
    const auto unless = [](bool so, const std::string &text) { return so ? std::optional<std::string>() : text; };
    if (words[0] == "rest")
        return unless(view.at_rest, "the network is not at rest");
    if (words[0] == "root") {
        const node_view_t &wanted = node_of(view, words[2]);
        for (const node_view_t &node : view.nodes)
            if (node.kind != "host" && node.power && node.daemon && node.root != wanted.bridge)
                return fmt::format("{} takes {} for the root", node.name, node.root.empty() ? "none" : node.root);
        return unless(wanted.is_root, fmt::format("{} is not the root", wanted.name));
    }
    if (ends_as(words, 1, "has no daemon"))
        return unless(!node_of(view, words[0]).daemon, fmt::format("the daemon of {} runs", words[0]));
    if (ends_as(words, 1, "has no power"))
        return unless(!node_of(view, words[0]).power, fmt::format("{} has power", words[0]));
    if (words[1] == "carries" || ends_as(words, 1, "is cut") || ends_as(words, 1, "is pulled")) {
        const cable_view_t &cable = cable_of(view, words[0]);
        const char *is = !cable.plugged ? "is pulled" : cable.carries ? "carries" : "is cut";
        return unless(ends_as(words, 1, is), fmt::format("the cable {} {}", cable.name, is));
    }
    const end_view_t &end = end_of(view, words[0]);
    const std::string is = fmt::format("{} is {}, {}", end.name, end.role.empty() ? "nothing" : end.role, end.state);
    for (const auto &state : STATES)
        if (ends_as(words, 1, state.verb))
            return unless(end.state == state.state, is);
    return unless(end.role == words.back(), is);
}

namespace {

/// The longest time that hosts were apart since the latest command, in milliseconds, once the lab is at rest; nothing
/// before that.
std::optional<double> longest_outage(const std::string &lab, std::chrono::milliseconds patience)
{
    const uint64_t first = client_t(lab).ask({{"verb", "commanded"}}).at("event");
    client_t client(lab);
    const auto deadline = std::chrono::steady_clock::now() + patience;
    client.channel().send({{"verb", "events"}, {"after", first ? first - 1 : 0}});
    double longest = 0;
    while (std::chrono::steady_clock::now() < deadline) {
        if (!client.channel().wait(50))
            continue;
        const auto told = client.channel().receive();
        if (!told)
            throw untold_t(fmt::format("the lab {} has ended", lab));
        const event_t event = event_of(*told);
        if (event.what == "ping")
            longest =
                event.value == "apart" || event.value == "never" ? 1e12 : std::max(longest, std::stod(event.value));
        if (event.what == "calm")
            return longest;
    }
    return {};
}

/// Returns what is wrong.
std::optional<std::string> expect(const step_t &step, const std::string &lab)
{
    const words_t &words = step.words;
    const auto patience = std::chrono::ceil<std::chrono::milliseconds>(step.span);
    if (words[0] == "outage") {
        const auto longest = longest_outage(lab, std::max<std::chrono::milliseconds>(patience, REST_PATIENCE));
        if (!longest)
            return "the network has not come to rest";
        const double limit = static_cast<double>(topology::parse_span(words[2])->count()) / 1000;
        if (*longest >= limit)
            return fmt::format("hosts were apart for {:.0f} ms", *longest);
        return {};
    }
    if (words.size() > 1 && (words[1] == "reaches" || words[1] == "does")) {
        const bool wanted = words[1] == "reaches";
        const nlohmann::json told = client_t(lab).ask(
            {{"verb", "ping"},
             {"from", words[0]},
             {"to", words.back()},
             {"within", wanted ? step.span.count() : std::min<int64_t>(step.span.count(), 1'000'000)}});
        if (told.at("answered").get<bool>() == wanted)
            return {};
        return fmt::format("{} {} {}", words[0], wanted ? "does not reach" : "reaches", words.back());
    }
    std::optional<std::string> wrong;
    client_t client(lab);
    lab::within(
        patience, [&] { return !(wrong = what_is_wrong(words, client.view())); }, std::chrono::milliseconds(50));
    return wrong;
}

/// The commands that tell what follows are not to wait for it here.
words_t without_telling(words_t words)
{
    for (const char *verb : {"pull", "plug", "flap", "kill", "restart", "power"})
        if (words[0] == verb)
            words.emplace_back("--now");
    return words;
}

} // namespace

int run_script(const std::string &path, const std::string &given, bool keep)
{
    const auto text = read_text_file(path, SCRIPT_OCTETS_MAX);
    if (!text)
        throw refused_t(fmt::format("cannot read {}: {}", path, std::strerror(errno)));
    const std::vector<step_t> steps = parse_script(*text, path);
    std::string lab = given;
    bool started = false;
    const auto end = [&] {
        if (started && !keep && connect_to(lab))
            down(lab);
    };
    for (const step_t &step : steps) {
        fmt::print("{}:{}: {}\n", path, step.line, step.text);
        std::fflush(stdout);
        std::optional<std::string> wrong;
        try {
            if (step.kind == step_t::kind_t::WAIT)
                std::this_thread::sleep_for(step.span);
            else if (step.kind == step_t::kind_t::EXPECT)
                wrong = expect(step, lab = which_lab(lab));
            else {
                const bool is_up = step.words[0] == "up";
                if (is_up && given.empty())
                    lab = name_for({step.words.begin() + 1, step.words.end()});
                if (const int status = run_command(without_telling(step.words), lab); status != EXIT_SUCCESS)
                    wrong = fmt::format("the status is {}", status);
                started = is_up ? !wrong : started && step.words[0] != "down";
            }
        } catch (const std::runtime_error &problem) {
            wrong = problem.what();
        }
        if (wrong) {
            fmt::print(stderr, "{}:{}: {}\n", path, step.line, *wrong);
            if (started && connect_to(lab))
                fmt::print(stderr, "{}", tree_text(client_t(lab).view()));
            end();
            return EXIT_FAILURE;
        }
    }
    end();
    return EXIT_SUCCESS;
}

} // namespace lvt_lab
