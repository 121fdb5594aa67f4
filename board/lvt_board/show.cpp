#include "lvt_board/show.h"

#include <iterator>

#include <fmt/format.h>
#include <fmt/ranges.h>
#include <nlohmann/json.hpp>

#include "tools/words.h"

namespace {

using nlohmann::json;
using words_t = std::vector<std::uint32_t>;

template <typename... arguments_t>
void append(std::string &text, fmt::format_string<arguments_t...> format, arguments_t &&...arguments)
{
    fmt::format_to(std::back_inserter(text), format, std::forward<arguments_t>(arguments)...);
}

unsigned number_at(const json &record, const char *name) { return record.at(name).get<unsigned>(); }

std::string text_at(const json &record, const char *name) { return record.at(name).get<std::string>(); }

std::string link_text(const json &port)
{
    if (port.at("link"))
        return fmt::format("{} {}", number_at(port, "mbit"), port.at("full_duplex") ? "full" : "half");
    return port.at("present") ? "down" : "no interface";
}

std::string ports_text(const json &ports)
{
    static constexpr char row[] = "{:<6}{:<6}{:<11}{:<18}{:<7}{}\n";
    std::string text = fmt::format(row, "port", "chip", "interface", "link", "trunk", "state");
    for (const json &port : ports) {
        const unsigned trunk = number_at(port, "trunk");
        append(text, row, number_at(port, "port"), number_at(port, "chip"), text_at(port, "interface"), link_text(port),
               trunk == 0 ? "-" : std::to_string(trunk),
               fmt::format("{} {}", number_at(port, "state"), text_at(port, "state_name")));
    }
    return text;
}

std::string addresses_text(const json &table)
{
    std::string text = fmt::format("{:<19}{:<8}{}\n", "address", "port", "last heard");
    for (const json &address : table.at("trapped"))
        append(text, "{:<19}{:<8}{}\n", address.get<std::string>(), "CPU", "trapped");
    for (const json &entry : table.at("learned"))
        append(text, "{:<19}{:<8}{:.0f} s ago\n", text_at(entry, "address"), number_at(entry, "port"),
               entry.at("age").get<double>());
    return text;
}

std::string registers_text(const json &registers)
{
    std::string text = fmt::format("{:<10}{}\n", "register", "value");
    for (const json &entry : registers)
        append(text, "0x{:<8x}0x{:08x}\n", entry.at("register").get<std::uint32_t>(),
               entry.at("value").get<std::uint32_t>());
    return text;
}

std::string rules_text(const json &rules)
{
    std::string text = fmt::format("{:<6}{:<9}{}\n", "rule", "part", "words");
    for (const json &rule : rules)
        for (const char *part : {"pattern", "mask", "action"})
            append(text, "{:<6}{:<9}{:08x}\n", number_at(rule, "rule"), part,
                   fmt::join(rule.at(part).get<words_t>(), " "));
    return text;
}

std::string counters_text(const json &counters)
{
    constexpr const char *columns[] = {"received", "sent", "trapped", "dropped"};
    std::string text = fmt::format("{:<6}", "port");
    for (const char *column : columns)
        append(text, "{:>12}", column);
    text += '\n';
    for (const json &port : counters.at("ports")) {
        append(text, "{:<6}", number_at(port, "port"));
        for (const char *column : columns)
            append(text, "{:>12}", port.at(column).get<std::uint64_t>());
        text += '\n';
    }
    text += '\n';
    for (const auto &[name, value] : counters.at("board").items())
        append(text, "{:<18}{:>12}\n", name, value.get<std::uint64_t>());
    return text;
}

std::string message_words(const json &message)
{
    if (message.contains("port"))
        return fmt::format("port {} {}", number_at(message, "port"),
                           forwarding_word(message.at("forwarding").get<bool>()));
    if (message.contains("enabled"))
        return fmt::format("spanning tree on at ports [{}]",
                           fmt::join(message.at("enabled").get<std::vector<unsigned>>(), ", "));
    return message.value("error", "unknown type");
}

std::string messages_text(const json &messages)
{
    std::string text = fmt::format("{:>12}  {:<6}{}\n", "seconds", "pipe", "message");
    for (const json &message : messages)
        append(text, "{:>12.6f}  {:<6}{}\n", message.at("seconds").get<double>(), text_at(message, "pipe"),
               message_words(message));
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
