#include "lvt_board/show.h"

#include <iterator>

#include <fmt/format.h>
#include <fmt/ranges.h>

namespace {

using nlohmann::json;
using words_t = std::vector<std::uint32_t>;

std::string ports_text(const json &ports)
{
    std::string text = fmt::format("{:<6}{:<6}{:<11}{:<18}{:<7}{}\n", "port", "chip", "interface", "link", "trunk", "state");
    for (const json &port : ports) {
        std::string link = "no interface";
        if (port.at("link"))
            link = fmt::format("{} {}", port.at("mbit").get<unsigned>(), port.at("full_duplex") ? "full" : "half");
        else if (port.at("present"))
            link = "down";
        const unsigned trunk = port.at("trunk");
        fmt::format_to(std::back_inserter(text), "{:<6}{:<6}{:<11}{:<18}{:<7}{} {}\n", port.at("port").get<unsigned>(),
                       port.at("chip").get<unsigned>(), port.at("interface").get<std::string>(), link,
                       trunk == 0 ? "-" : std::to_string(trunk), port.at("state").get<unsigned>(),
                       port.at("state_name").get<std::string>());
    }
    return text;
}

std::string addresses_text(const json &table)
{
    std::string text = fmt::format("{:<19}{:<8}{}\n", "address", "port", "last heard");
    for (const json &address : table.at("trapped"))
        fmt::format_to(std::back_inserter(text), "{:<19}{:<8}{}\n", address.get<std::string>(), "CPU", "trapped");
    for (const json &entry : table.at("learned"))
        fmt::format_to(std::back_inserter(text), "{:<19}{:<8}{:.0f} s ago\n", entry.at("address").get<std::string>(),
                       entry.at("port").get<unsigned>(), entry.at("age").get<double>());
    return text;
}

std::string registers_text(const json &registers)
{
    std::string text = fmt::format("{:<10}{}\n", "register", "value");
    for (const json &entry : registers)
        fmt::format_to(std::back_inserter(text), "0x{:<8x}0x{:08x}\n", entry.at("register").get<std::uint32_t>(),
                       entry.at("value").get<std::uint32_t>());
    return text;
}

std::string rules_text(const json &rules)
{
    std::string text = fmt::format("{:<6}{:<9}{}\n", "rule", "part", "words");
    for (const json &rule : rules)
        for (const char *part : {"pattern", "mask", "action"})
            fmt::format_to(std::back_inserter(text), "{:<6}{:<9}{:08x}\n", rule.at("rule").get<unsigned>(), part,
                           fmt::join(rule.at(part).get<words_t>(), " "));
    return text;
}

std::string counters_text(const json &counters)
{
    constexpr const char *columns[] = {"received", "sent", "trapped", "dropped"};
    std::string text = fmt::format("{:<6}", "port");
    for (const char *column : columns)
        fmt::format_to(std::back_inserter(text), "{:>12}", column);
    text += '\n';
    for (const json &port : counters.at("ports")) {
        fmt::format_to(std::back_inserter(text), "{:<6}", port.at("port").get<unsigned>());
        for (const char *column : columns)
            fmt::format_to(std::back_inserter(text), "{:>12}", port.at(column).get<std::uint64_t>());
        text += '\n';
    }
    text += '\n';
    for (const auto &[name, value] : counters.at("board").items())
        fmt::format_to(std::back_inserter(text), "{:<18}{:>12}\n", name, value.get<std::uint64_t>());
    return text;
}

std::string message_words(const json &message)
{
    if (message.contains("port"))
        return fmt::format("port {} {}", message.at("port").get<unsigned>(),
                           message.at("forwarding") ? "forwards" : "does not forward");
    if (message.contains("enabled"))
        return fmt::format("spanning tree on at ports [{}]",
                           fmt::join(message.at("enabled").get<std::vector<unsigned>>(), ", "));
    return message.value("error", "unknown type");
}

std::string messages_text(const json &messages)
{
    std::string text = fmt::format("{:>12}  {:<6}{}\n", "seconds", "pipe", "message");
    for (const json &message : messages)
        fmt::format_to(std::back_inserter(text), "{:>12.6f}  {:<6}{}\n", message.at("seconds").get<double>(),
                       message.at("pipe").get<std::string>(), message_words(message));
    return text;
}

struct report_t {
    const char *name;
    std::string (*text)(const json &);
};

constexpr report_t REPORTS[] = {
    {"ports", ports_text}, {"addresses", addresses_text}, {"registers", registers_text},
    {"rules", rules_text}, {"counters", counters_text},   {"messages", messages_text},
};

} // namespace

const std::vector<std::string> SHOW_REPORTS = [] {
    std::vector<std::string> names;
    for (const report_t &report : REPORTS)
        names.emplace_back(report.name);
    return names;
}();

std::string show_text(const std::string &what, const json &report)
{
    for (const auto &[name, text] : REPORTS)
        if (what == name)
            return text(report);
    return report.dump(2) + '\n';
}
