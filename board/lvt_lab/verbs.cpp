#include "board/lvt_lab/verbs.h"

#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <map>
#include <thread>

#include <fcntl.h>
#include <fmt/format.h>
#include <fmt/ranges.h>
#include <nlohmann/json.hpp>
#include <sys/socket.h>
#include <unistd.h>

#include "board/lvt_lab/client.h"
#include "board/lvt_lab/lab.h"
#include "board/lvt_lab/server.h"
#include "board/lvt_lab/tree.h"
#include "board/lvt_lab/why.h"
#include "tools/ctl/ctl.h"
#include "tools/ctl/output.h"
#include "tools/printable.h"
#include "tools/topology/picture.h"
#include "tools/topology/read.h"
#include "tools/topology/shapes.h"
#include "tools/topology/svg.h"
#include "tools/topology/values.h"

namespace lvt_lab {

namespace {

using nlohmann::json;

volatile std::sig_atomic_t interrupted;

void end_by_signal()
{
    interrupted = 0;
    struct sigaction action = {}; // without SA_RESTART: what waits is to return
    action.sa_handler = [](int) { interrupted = 1; };
    sigaction(SIGINT, &action, nullptr);
    sigaction(SIGTERM, &action, nullptr);
}

/// Gives each host without an address one of its own.
void give_addresses(topology::network_t &network)
{
    constexpr unsigned PER_NET = 250;
    unsigned hosts = 0;
    for (const topology::node_t &node : network.nodes)
        hosts += node.kind == topology::kind_t::HOST;
    unsigned next = 0;
    for (topology::node_t &node : network.nodes)
        if (node.kind == topology::kind_t::HOST) {
            if (node.address.empty())
                node.address =
                    fmt::format("10.0.{}.{}/{}", next / PER_NET, next % PER_NET + 1, hosts > PER_NET ? 16 : 24);
            next++;
        }
}

std::string count_of(size_t count, const char *one)
{
    const std::string word = one;
    return fmt::format("{} {}{}", count, word, count == 1 ? "" : word.ends_with("ch") ? "es" : "s");
}

std::string summary(const lab_view_t &view)
{
    size_t hosts = 0;
    for (const node_view_t &node : view.nodes)
        hosts += node.kind == "host";
    return fmt::format("{}, {} and {}", count_of(view.nodes.size() - hosts, "switch"),
                       count_of(view.cables.size(), "cable"), count_of(hosts, "host"));
}

bool colourful() { return screen() && !getenv("NO_COLOR"); }

} // namespace

std::string name_for(const std::vector<std::string> &words)
{
    // "ring 4" gives "ring-4", "nets/office.yml" gives "office"; options may be among them.
    std::vector<std::string> names;
    for (size_t i = 0; i < words.size(); i++)
        if (words[i] == "--lab" && i + 1 < words.size())
            return words[i + 1];
        else if (words[i].starts_with("--lab="))
            return words[i].substr(6);
        else if (words[i] == "--hosts")
            i++;
        else if (!words[i].starts_with("--"))
            names.push_back(words[i]);
    if (topology::is_shape(names))
        return fmt::format("{}", fmt::join(names, "-"));
    return names.empty() || names[0] == "-" ? "lab" : std::filesystem::path(names[0]).stem().string();
}

topology::span_t parse_time(const std::string &option, const std::string &text)
{
    const auto span = topology::parse_span(text);
    if (!span)
        throw usage_t(fmt::format("{}: \"{}\" should be {}", option, text, topology::SPAN_FORM));
    return *span;
}

int up(const std::string &lab, const up_args_t &args)
{
    serve_args_t server;
    server.network = topology::load_network(args.words);
    if (topology::is_shape(args.words))
        topology::add_hosts(server.network, args.hosts);
    server.with_story = args.story;
    server.name = lab.empty() ? name_for(args.words) : lab;
    if (!is_lab_name(server.name))
        throw usage_t(
            fmt::format("\"{}\" is no name for a lab: write letters, digits, \"-\", \"_\" and \".\", 40 at most, "
                        "after --lab",
                        server.name));
    if (server.network.nodes.size() > 500)
        throw refused_t("a lab has at most 500 nodes; the simulator plays larger networks (lvt_sim play)");
    demand_playable(server.network);
    give_addresses(server.network);
    for (topology::node_t &node : server.network.nodes)
        if (args.rapid && (node.kind == topology::kind_t::SWITCH || node.kind == topology::kind_t::LVT_BRIDGE))
            node.rapid = true;
    int exit_code = EXIT_SUCCESS;
    const std::string said = start_server(server, exit_code);
    if (exit_code != EXIT_SUCCESS) {
        std::fputs(printable(said).c_str(), stderr);
        return exit_code;
    }
    fmt::print("The lab {} is up: {}.\n", server.name, summary(client_t(server.name).view()));
    return EXIT_SUCCESS;
}

void down(const std::string &lab)
{
    client_t(lab).ask({{"verb", "down"}});
    if (!wait_until_gone(lab))
        throw untold_t(fmt::format("the lab {} does not end", lab));
}

void list_labs(bool as_json)
{
    json all = json::array();
    for (const std::string &name : labs_there())
        try {
            const lab_view_t view = client_t(name).view();
            if (as_json)
                all.push_back({{"lab", name},
                               {"network", view.network},
                               {"nodes", view.nodes.size()},
                               {"cables", view.cables.size()},
                               {"ms", view.ms}});
            else
                fmt::print("{:<16}  {}, up for {:.0f} s\n", name, summary(view), view.ms / 1000);
        } catch (const refused_t &) { // it has ended meanwhile, or is not up yet
        }
    if (as_json)
        fmt::print("{}\n", all.dump(2));
}

void show(const std::string &lab, bool as_json)
{
    client_t client(lab);
    if (as_json) {
        json told = client.ask({{"verb", "show"}});
        told["view"]["event"] = told["event"];
        return fmt::print("{}\n", told["view"].dump(2));
    }
    const auto terminal = screen();
    fmt::print("{}", show_text(client.view(), colourful(), terminal ? terminal->columns : 0));
}

void tree(const std::string &lab, bool watch)
{
    client_t client(lab);
    if (!watch)
        return fmt::print("{}", tree_text(client.view()));
    end_by_signal();
    std::string shown;
    client_t events(lab);
    const uint64_t now = client.ask({{"verb", "show"}}).at("event");
    const auto draw = [&] {
        const std::string text = tree_text(client.view());
        if (text == shown)
            return;
        shown = text;
        fmt::print("{}{}\n", screen() ? "\x1b[H\x1b[2J" : "", text);
        flush_for_reader();
    };
    draw();
    events.channel().send({{"verb", "events"}, {"after", now}});
    while (!interrupted) {
        // Events come in bursts: it is drawn once after each.
        if (!events.channel().wait(-1))
            continue;
        if (events.channel().receive_octets().empty())
            throw untold_t(fmt::format("the lab {} has ended", lab));
        while (events.channel().wait(20) && !events.channel().receive_octets().empty())
            continue;
        draw();
    }
}

namespace {

bool belongs_to_outage(const event_t &event) { return event.what != "role" && event.what != "root"; }

/// Tells the events after number `after` until the lab is at rest or, without `waits`, as far as there are.
void tell_outage(const std::string &lab, uint64_t first, bool as_json)
{
    client_t client(lab);
    double began = -1;
    const auto deadline = std::chrono::steady_clock::now() + REST_PATIENCE;
    end_by_signal();
    client.channel().send({{"verb", "events"}, {"after", first - 1}});
    while (!interrupted) {
        if (std::chrono::steady_clock::now() > deadline)
            return fmt::print("not at rest after {} s: lvt_lab tree shows how it stands\n", REST_PATIENCE.count());
        if (!client.channel().wait(200))
            continue;
        const auto told = client.channel().receive();
        if (!told)
            throw untold_t(fmt::format("the lab {} has ended", lab));
        const event_t event = event_of(*told);
        if (began < 0)
            began = event.ms;
        if (as_json)
            fmt::print("{}\n", told->dump());
        else if (event.what == "calm")
            fmt::print("{:>9.0f} ms  at rest, after {:.0f} ms\n", event.ms - began,
                       std::max(0.0, std::stod(event.value) - began));
        else if (belongs_to_outage(event))
            fmt::print("{:>9.0f} ms  {}\n", event.ms - began, printable(event.text));
        flush_for_reader();
        if (event.what == "calm")
            return;
    }
}

} // namespace

void act(const std::string &lab, const std::vector<std::string> &words, bool tells)
{
    client_t client(lab);
    const json done = client.ask({{"verb", "act"}, {"command", fmt::format("{}", fmt::join(words, " "))}});
    if (tells)
        tell_outage(lab, done.at("event"), false);
}

void outage(const std::string &lab, bool as_json)
{
    const uint64_t first = client_t(lab).ask({{"verb", "commanded"}}).at("event");
    if (first == 0)
        throw refused_t("nothing has been done to this lab yet");
    tell_outage(lab, first, as_json);
}

bool ping(const std::string &lab, const std::string &from, const std::string &to, topology::span_t within)
{
    const json told = client_t(lab).ask({{"verb", "ping"}, {"from", from}, {"to", to}, {"within", within.count()}});
    if (told.at("answered"))
        fmt::print("{} answers {}, after {:.3f} s\n", to, from, told.at("seconds").get<double>());
    else
        fmt::print("{} does not answer {} within {}\n", to, from, topology::span_text(within));
    return told.at("answered");
}

void monitor(const std::string &lab, bool as_json, topology::span_t length)
{
    client_t client(lab);
    const auto deadline = std::chrono::steady_clock::now() + length;
    end_by_signal();
    client.channel().send({{"verb", "events"}});
    while (!interrupted && (length.count() == 0 || std::chrono::steady_clock::now() < deadline)) {
        const auto left = std::chrono::ceil<std::chrono::milliseconds>(deadline - std::chrono::steady_clock::now());
        if (!client.channel().wait(length.count() ? static_cast<int>(left.count()) : -1))
            continue;
        const auto told = client.channel().receive();
        if (!told)
            throw untold_t(fmt::format("the lab {} has ended", lab));
        if (as_json)
            fmt::print("{}\n", told->dump());
        else {
            const event_t event = event_of(*told);
            fmt::print("{:>12.3f}  {:<7}  {}\n", event.ms / 1000, event.what, printable(event.text));
        }
        flush_for_reader();
    }
}

void capture(const std::string &lab, const std::string &cables, const std::string &path, topology::span_t length)
{
    client_t client(lab);
    client.ask({{"verb", "capture"}, {"cables", cables}});
    const fd_t file(path == "-" ? dup(STDOUT_FILENO)
                                : open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644));
    if (!file)
        throw refused_t(fmt::format("cannot write {}: {}", path, std::strerror(errno)));
    const auto deadline = std::chrono::steady_clock::now() + length;
    end_by_signal();
    bool asked = false;
    for (;;) {
        const auto left = std::chrono::ceil<std::chrono::milliseconds>(deadline - std::chrono::steady_clock::now());
        const bool over = interrupted || (length.count() && left.count() <= 0);
        if (over && !asked) {
            shutdown(client.channel().number(), SHUT_WR);
            asked = true;
        }
        if (!client.channel().wait(length.count() && !asked ? static_cast<int>(left.count()) : -1))
            continue;
        const std::string octets = client.channel().receive_octets();
        if (octets.empty())
            break;
        for (size_t at = 0; at < octets.size();) {
            const ssize_t written = write(file.number(), &octets[at], octets.size() - at);
            if (written <= 0)
                throw refused_t(fmt::format("cannot write {}: {}", path, std::strerror(errno)));
            at += static_cast<size_t>(written);
        }
    }
    if (!asked)
        throw untold_t(fmt::format("the lab {} has ended", lab));
}

void why(const std::string &lab, const std::string &word)
{
    client_t client(lab);
    const std::vector<size_t> cables = client.ask({{"verb", "cables"}, {"word", word}}).at("cables");
    const lab_view_t view = client.view();
    for (const size_t cable : cables)
        fmt::print("{}", printable(why_text(view, view.cables.at(cable))));
}

namespace {

topology::picture_t picture_of(const lab_view_t &view)
{
    using topology::outline_t;
    topology::picture_t picture;
    std::map<std::string, size_t> numbers;
    for (const node_view_t &node : view.nodes) {
        numbers[node.name] = picture.nodes.size();
        const bool is_host = node.kind == "host";
        const char *note = !node.power             ? "no power"
                           : is_host               ? node.bridge.c_str()
                           : !node.daemon          ? "no daemon"
                           : node.is_root          ? "root"
                           : node.kind != "switch" ? node.kind.c_str()
                                                   : "";
        picture.nodes.push_back({node.name, note, is_host ? topology::figure_t::PLAIN : topology::figure_t::BOX,
                                 !node.power                ? outline_t::DOTTED
                                 : !is_host && !node.daemon ? outline_t::DASHED
                                 : node.is_root             ? outline_t::BOLD
                                                            : outline_t::USUAL});
    }
    for (const cable_view_t &cable : view.cables) {
        const auto end_of = [&](const end_view_t &end) {
            return topology::picture_t::end_t{numbers[end.node], end.port, end_words(view, end), end.cuts()};
        };
        const unsigned upper =
            cable.ends[0].role == "root" || (cable.ends[1].role == "designated" && cable.ends[0].role != "designated")
                ? 1
                : 0;
        picture.cables.push_back({end_of(cable.ends[upper]), end_of(cable.ends[1 - upper]),
                                  !cable.plugged  ? topology::cable_state_t::PULLED
                                  : cable.carries ? topology::cable_state_t::CARRIES
                                                  : topology::cable_state_t::CUT});
    }
    return picture;
}

} // namespace

void export_tree(const std::string &lab, export_t format)
{
    const topology::picture_t picture = picture_of(client_t(lab).view());
    if (format == export_t::MERMAID)
        fmt::print("{}", topology::mermaid_of(picture));
    else
        fmt::print("{}", format == export_t::DOT ? topology::graph_of(picture) : topology::svg_of(picture));
}

} // namespace lvt_lab
