#include "tools/ctl/status_json.h"

#include <algorithm>
#include <optional>

#include <fmt/chrono.h>
#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include "tools/hex.h"
#include "tools/messages.h"

namespace {

using json_t = nlohmann::ordered_json;

/// "2026-11-20T13:08:15Z"
std::string utc_text(std::chrono::system_clock::time_point time)
{
    return fmt::format("{:%Y-%m-%dT%H:%M:%SZ}", fmt::gmtime(std::chrono::system_clock::to_time_t(time)));
}

/// "2026-11-20T13:08:15.000250Z"
std::string utc_text_of_micros(std::chrono::system_clock::time_point time)
{
    const auto micros = std::chrono::floor<std::chrono::microseconds>(time.time_since_epoch()).count() % 1'000'000;
    return fmt::format("{:%Y-%m-%dT%H:%M:%S}.{:06}Z", fmt::gmtime(std::chrono::system_clock::to_time_t(time)), micros);
}

/// Of a time as the daemon writes it.
std::string utc_text(const std::string &daemon_text)
{
    const auto time = daemon_time(daemon_text);
    return time ? utc_text(*time) : daemon_text;
}

json_t or_null(bool there, const json_t &value) { return there ? value : json_t(nullptr); }

template <typename value_t>
json_t or_null(const std::optional<value_t> &value)
{
    return value ? json_t(*value) : json_t(nullptr);
}

json_t counts_of(const frame_counts_t &counts)
{
    return {{"rst", counts.rstp}, {"configuration", counts.stp}, {"tcn", counts.tcn}};
}

json_t bridge_of(const bridge_status_t &status)
{
    return {
        {"id", bridge_id_text(status.bridge)},
        {"root", bridge_id_text(status.root)},
        {"is_root", status.is_root()},
        {"root_is_former_self", status.is_former_self_root()},
        {"root_port", or_null(!status.is_root(), status.root_port)},
        {"root_path_cost", or_null(root_path_cost(status))},
        {"max_age", status.max_age},
        {"hello_time", status.hello_time},
        {"forward_delay", status.forward_delay},
        {"topology_change",
         {{"running", status.topology_change},
          {"last_not_before", status.has_changed() ? json_t(utc_text(status.changed_at)) : json_t(nullptr)},
          {"port", or_null(status.changed_by != 0, status.changed_by)},
          {"passes_since", status.since_change}}},
    };
}

json_t members_of(const bridge_status_t &status, int group)
{
    json_t members = json_t::array();
    for (int port = 1; port <= static_cast<int>(FRONT_PORTS); port++)
        if (status.port(port).group == group)
            members.push_back(port);
    return members;
}

json_t port_of(const reading_t &reading, const history_t &history, int number, const linux_ports_t &interfaces)
{
    const bridge_status_t &status = reading.status;
    const port_status_t &port = status.port(number);
    const bool designated = port.designated_port != 0 && !port.group;
    json_t received = counts_of(port.received);
    received["illegal"] = port.illegal;
    received["unknown"] = port.unknown;
    std::string neighbour = neighbour_name(port);
    std::ranges::transform(neighbour, neighbour.begin(), [](char letter) { return std::tolower(letter); });
    json_t object = {
        {"port", number},
        {"role", role_name(port)},
        {"state", state_name(status, number)},
        {"path_cost", port.path_cost},
        {"edge", port.edge},
        {"point_to_point", port.point_to_point},
        {"neighbour", neighbour},
        {"deaf", is_deaf(reading, history, number)},
        {"looped_to", or_null(looped_to(port))},
        {"group", or_null(port.group != 0, port.group)},
        {"members", members_of(status, number)},
        {"designated_bridge", or_null(designated, bridge_id_text(port.designated_bridge))},
        {"designated_port", or_null(designated, port.designated_port)},
        {"sent", counts_of(port.sent)},
        {"received", received},
    };
    if (const auto member = interfaces.find(number); member != interfaces.end()) {
        object["interface"] = member->second.interface;
        object["kernel_state"] = or_null(!member->second.kernel.empty(), member->second.kernel);
    }
    return object;
}

/// The values of an object as "key=value", those of an object within it as "key.inner=value".
std::string assignments(const json_t &object, const std::string &prefix = {})
{
    std::string text;
    for (const auto &[key, value] : object.items()) {
        if (value.is_object())
            text += assignments(value, prefix + key + ".");
        else
            text += fmt::format(" {}{}={}", prefix, key, value.is_string() ? value.get<std::string>() : value.dump());
    }
    return text;
}

} // namespace

std::string status_json(const reading_t &reading, const history_t &history, const std::vector<int> &ports,
                        json_layout_t layout, const linux_ports_t &interfaces)
{
    json_t list = json_t::array();
    for (const int port : ports)
        list.push_back(port_of(reading, history, port, interfaces));
    const json_t document = {{"version", JSON_VERSION},
                             {"written", utc_text(reading.written)},
                             {"bridge", bridge_of(reading.status)},
                             {"ports", list}};
    return document.dump(layout == json_layout_t::indented ? 2 : -1);
}

std::string status_lines(const reading_t &reading, const history_t &history, bool bridge, const std::vector<int> &ports,
                         const linux_ports_t &interfaces)
{
    std::string text;
    if (bridge)
        text += "bridge" + assignments(bridge_of(reading.status)) + "\n";
    for (const int port : ports) {
        json_t values = port_of(reading, history, port, interfaces);
        values.erase("port");
        text += fmt::format("port {}{}\n", port, assignments(values));
    }
    return text;
}

std::string verdicts_json(const std::vector<verdict_t> &verdicts)
{
    json_t list = json_t::array();
    for (const verdict_t &verdict : verdicts)
        list.push_back({{"statement", verdict.statement},
                        {"so", or_null(verdict.so)},
                        {"fact", or_null(!verdict.fact.empty(), verdict.fact)}});
    return json_t({{"version", JSON_VERSION}, {"so", or_null(all_so(verdicts))}, {"statements", list}}).dump();
}

static json_t value_of(const setting_value_t &value)
{
    return std::visit(
        [](const auto &there) -> json_t {
            if constexpr (std::is_same_v<decltype(there), const std::monostate &>)
                return nullptr;
            else
                return there;
        },
        value);
}

std::string compared_json(const std::vector<compared_section_t> &sections, const std::string &path,
                          const reading_t &reading)
{
    json_t document = {{"version", JSON_VERSION},
                       {"written", utc_text(reading.written)},
                       {"file", path},
                       {"bridge", json_t::object()},
                       {"ports", json_t::array()}};
    for (const compared_section_t &section : sections) {
        json_t object = section.port ? json_t({{"port", section.port}}) : json_t::object();
        for (const compared_t &setting : section.settings)
            object[setting.key] = {
                {"set", value_of(setting.set)}, {"runs", value_of(setting.runs)}, {"differs", setting.differs}};
        if (section.port)
            document["ports"].push_back(object);
        else
            document["bridge"] = object;
    }
    return document.dump(-1, ' ', false, json_t::error_handler_t::replace);
}

std::string faults_json(const std::string &path, const std::vector<config_fault_t> &faults)
{
    json_t list = json_t::array();
    for (const config_fault_t &fault : faults)
        list.push_back({{"line", fault.line}, {"column", fault.column}, {"text", fault.text}});
    return json_t({{"version", JSON_VERSION}, {"file", path}, {"sound", faults.empty()}, {"faults", list}})
        .dump(-1, ' ', false, json_t::error_handler_t::replace);
}

/// What is known of octets: "title", "octets", "fields" and "fault".
static json_t explained(const decoded_t &decoded)
{
    json_t fields = json_t::array();
    for (const decoded_field_t &field : decoded.fields)
        fields.push_back({{"offset", field.offset},
                          {"octets", hex(field.octets, "")},
                          {"name", field.name},
                          {"value", or_null(!field.value.empty(), field.value)}});
    return {{"title", decoded.title},
            {"octets", decoded.octets},
            {"fields", fields},
            {"fault", or_null(!decoded.fault.empty(), decoded.fault)}};
}

std::string decoded_json(const decoded_t &decoded, const captured_t *frame)
{
    json_t document = {{"version", JSON_VERSION}};
    document["frame"] = frame ? json_t(frame->number) : json_t(nullptr);
    document["time"] = frame && frame->time ? json_t(utc_text_of_micros(*frame->time)) : json_t(nullptr);
    document["interface"] = frame && !frame->interface.empty() ? json_t(frame->interface) : json_t(nullptr);
    document.update(explained(decoded));
    return document.dump(-1, ' ', false, json_t::error_handler_t::replace);
}

std::string plan_json(const std::string &path, const outlook_told_t &outlook, const std::vector<plan_step_t> &plan)
{
    json_t messages = json_t::array();
    for (const plan_step_t &step : plan) {
        json_t message = {{"reason", step.reason}, {"hex", hex(step.frame, "")}};
        message.update(explained(decode(step.frame, kind_t::control)));
        messages.push_back(message);
    }
    return json_t({{"version", JSON_VERSION},
                   {"file", path},
                   {"changes", or_null(outlook.untold.empty(), outlook.lines)},
                   {"untold", or_null(!outlook.untold.empty(), outlook.untold)},
                   {"messages", messages}})
        .dump(-1, ' ', false, json_t::error_handler_t::replace);
}

/// Of a change's words: what is a number elsewhere is one here, too.
static json_t value_in(const change_t &change, const std::string &words)
{
    if (change.what != "root port")
        return words;
    return words == "none" ? json_t(nullptr) : json_t(std::stoi(words));
}

std::string change_json(const change_t &change, std::chrono::system_clock::time_point when)
{
    return json_t({{"version", JSON_VERSION},
                   {"time", utc_text(when)},
                   {"what", change.what},
                   {"port", or_null(change.port != 0, change.port)},
                   {"from", value_in(change, change.from)},
                   {"to", value_in(change, change.to)}})
        .dump();
}
