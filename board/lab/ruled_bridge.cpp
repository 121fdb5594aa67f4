#include "board/lab/ruled_bridge.h"

#include <fstream>
#include <sstream>
#include <stdexcept>

#include <fcntl.h>
#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include "board/lab/switch_node.h"
#include "board/lab/within.h"
#include "tools/bridge_notes.h"

namespace lab {

namespace {

constexpr char OUTPUT_FILE[] = "/tmp/lvt_bridge.out";
constexpr char SETTINGS_FILE[] = "/tmp/br0.toml";
constexpr char STATE_DIR[] = "/tmp/state";
constexpr char RULES[] = "the daemon rules\n";
constexpr auto RULE_PATIENCE = 20s; ///< a sanitized daemon under load takes its time

ruled_bridge_settings_t completed(ruled_bridge_settings_t settings)
{
    if (settings.program.empty())
        settings.program = program("LVT_BRIDGE", "lvt_bridge");
    settings.program = where(settings.program);
    require_program(settings.program);
    return settings;
}

size_t times(const std::string &text, const std::string &part)
{
    size_t count = 0;
    for (size_t at = text.find(part); at != std::string::npos; at = text.find(part, at + part.size()))
        count++;
    return count;
}

} // namespace

ruled_bridge_t::ruled_bridge_t(ruled_bridge_settings_t settings)
    : settings_(completed(std::move(settings))),
      node_(settings_.name, settings_.number,
            {settings_.program, where(lab::program("LVT_RSTPD", "lvt_rstpd")),
             where(lab::program("LVT_RSTPCTL", "lvt_rstpctl"))},
            settings_.first.net)
{
    node_.ip(
        fmt::format("link add name {0} address {1} type bridge\n"
                    "link set {0} addrgenmode none\n"
                    "link set {0} up",
                    interface("br0"), node_.mac()));
    if (!settings_.settings.empty())
        std::ofstream(node_.path(SETTINGS_FILE)) << settings_.settings;
}

/// A network namespace of its own goes by itself.
ruled_bridge_t::~ruled_bridge_t()
{
    if (!has_user_stp())
        return;
    program_ = process_t();
    try {
        std::string names = interface("br0");
        for (int number = 1; number <= static_cast<int>(FRONT_PORTS); number++)
            names += "\nlink delete " + port(number).interface;
        node_.run({.argv = {"ip", "-force", "-batch", "-"}}, "link delete " + names + "\n");
    } catch (const std::exception &) { // whoever guards the namespace takes them away later
    }
}

std::string ruled_bridge_t::interface(const std::string &name) const
{
    return settings_.first.name(settings_.number, name);
}

std::string ruled_bridge_t::state_dir() const { return has_user_stp() ? BRIDGE_NOTES_FOLDER : STATE_DIR; }

std::vector<std::string> ruled_bridge_t::command() const
{
    std::vector<std::string> words = {settings_.program, "--state-dir", state_dir()};
    if (!settings_.settings.empty())
        words.insert(words.end(), {"--config", SETTINGS_FILE});
    words.insert(words.end(), settings_.options.begin(), settings_.options.end());
    words.push_back(interface("br0"));
    return words;
}

cable_end_t ruled_bridge_t::port(int number) const
{
    return {&node_, interface(fmt::format("lan{}", number)), node_.mac(number)};
}

void ruled_bridge_t::join(int number) const
{
    node_.ip(fmt::format("link set {} master {}", port(number).interface, interface("br0")));
}

void ruled_bridge_t::start()
{
    const size_t before = times(said(), RULES);
    const fd_t out(
        checked(open(node_.path(OUTPUT_FILE).c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0644), OUTPUT_FILE));
    program_ = node_.start({.argv = command(),
                            .environment = {"LVT_RSTPD=" + where(lab::program("LVT_RSTPD", "lvt_rstpd")),
                                            "LVT_RSTPCTL=" + where(lab::program("LVT_RSTPCTL", "lvt_rstpctl"))},
                            .out = out.number(),
                            .err = out.number()});
    const bool ready = within(RULE_PATIENCE, [&] { return times(said(), RULES) > before || !program_.running(); });
    if (!ready || !program_.running())
        throw std::runtime_error(fmt::format("{}: lvt_bridge did not get ready\n{}", node_.name(), story()));
}

std::string ruled_bridge_t::said() const { return node_.read(OUTPUT_FILE); }

std::string ruled_bridge_t::daemon_path(const std::string &path) const
{
    return fmt::format("/proc/{}/root{}", program_.pid(), path);
}

std::optional<bridge_status_t> ruled_bridge_t::status() const
{
    std::ostringstream text;
    text << std::ifstream(daemon_path(STATUS_FILE)).rdbuf();
    return parse_status(text.str());
}

int ruled_bridge_t::state(int number) const
{
    const auto now = status();
    return now ? now->port(number).state : -1;
}

std::string ruled_bridge_t::kernel_state(const std::string &name) const
{
    const outcome_t outcome = node_.run({.argv = {"ip", "-details", "-json", "link", "show", "dev", interface(name)}});
    const auto links = nlohmann::json::parse(outcome.output, nullptr, false);
    if (!links.is_array() || links.empty() || !links[0].contains("linkinfo"))
        return "";
    return links[0]["linkinfo"].value("info_slave_data", nlohmann::json::object()).value("state", "");
}

outcome_t ruled_bridge_t::ctl(std::vector<std::string> words) const
{
    words.insert(words.begin(), {where(lab::program("LVT_RSTPCTL", "lvt_rstpctl")), "--bridge", interface("br0"),
                                 "--state-dir", state_dir()});
    return node_.run({.argv = std::move(words)});
}

std::string ruled_bridge_t::story() const
{
    std::string text = fmt::format("--- {}: lvt_bridge\n{}", node_.name(), said());
    for (const std::vector<std::string> &look :
         {std::vector<std::string>{"ip", "-details", "link"}, {"bridge", "fdb"}, {"nft", "list", "ruleset"}}) {
        try {
            text += fmt::format("--- {}: {}\n{}", node_.name(), look[0], node_.run({.argv = look}).output);
        } catch (const std::system_error &) { // not there
        }
    }
    std::ostringstream status_text;
    status_text << std::ifstream(daemon_path(STATUS_FILE)).rdbuf();
    return text + fmt::format("--- {}: status\n{}", node_.name(), status_text.str());
}

} // namespace lab
