#include "sim/report.h"

#include <algorithm>
#include <stdexcept>

#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include "sim/could_not.h"

namespace sim {

using nlohmann::ordered_json;

std::string report_text(const report_t &report, const std::string &again)
{
    std::string text;
    for (const failure_t &failure : report.failures)
        text += fmt::format(
            "seed {} ({}): not {} at {}\n  again: lvt_sim run --seed {}{}\n  smaller: lvt_sim shrink {}{}\n",
            failure.seed, failure.network, failure.property, failure.words, failure.seed, again, failure.seed, again);
    const uint64_t failed = report.failed_seeds();
    text += fmt::format("{} seeds held, {} did not: {} switch-seconds in {:.1f} s, {:.0f} a second\n",
                        report.seeds() - failed, failed, report.switch_seconds, report.seconds,
                        static_cast<double>(report.switch_seconds) / std::max(report.seconds, 1e-9));
    return text;
}

std::string report_json(const report_t &report)
{
    std::string text;
    for (const failure_t &failure : report.failures)
        text += ordered_json({{"seed", failure.seed},
                              {"property", failure.property},
                              {"network", failure.network},
                              {"words", failure.words}})
                    .dump() +
                "\n";
    ordered_json with = ordered_json::object(), excused = ordered_json::object();
    for (unsigned i = 0; i < FAULTS; i++) {
        const char *const fault = fault_name(static_cast<fault_t>(i));
        if (report.seeds_with[i])
            with[fault] = report.seeds_with[i];
        for (unsigned j = 0; j < PROPERTIES; j++)
            if (const excused_t &one = report.excused[i][j]; one.count)
                excused[fault][property_name(static_cast<property_t>(j))] = {{"count", one.count},
                                                                             {"smallest_seed", one.smallest_seed}};
    }
    text += ordered_json({{"ranges", report.ranges},
                          {"not_held", report.failed_seeds()},
                          {"seeds_with", with},
                          {"excused", excused},
                          {"switch_seconds", report.switch_seconds},
                          {"events", report.events},
                          {"seconds", report.seconds}})
                .dump() +
            "\n";
    return text;
}

namespace {

template <typename count_t>
size_t place_of(const std::string &name, count_t count, const char *(*name_of)(count_t))
{
    for (unsigned i = 0; i < count; i++)
        if (name == name_of(static_cast<count_t>(i)))
            return i;
    throw std::runtime_error("\"" + name + "\" is not known");
}

} // namespace

void merge_t::add_line(const std::string &line)
{
    const auto json = nlohmann::json::parse(line);
    if (json.contains("seed")) {
        report_.failures.push_back({json.at("seed"), json.at("property"), json.at("network"), json.at("words")});
        return;
    }
    for (const auto &range : json.at("ranges"))
        report_.ranges.emplace_back(range.at(0), range.at(1));
    not_held_ += json.at("not_held").get<uint64_t>();
    for (const auto &[name, count] : json.at("seeds_with").items())
        report_.seeds_with[place_of(name, FAULTS, fault_name)] += count.get<uint64_t>();
    for (const auto &[name, properties] : json.at("excused").items())
        for (const auto &[property, one] : properties.items()) {
            excused_t &known =
                report_.excused[place_of(name, FAULTS, fault_name)][place_of(property, PROPERTIES, property_name)];
            const uint64_t smallest = one.at("smallest_seed");
            known.count += one.at("count").get<uint64_t>();
            known.smallest_seed = known.smallest_seed ? std::min(known.smallest_seed, smallest) : smallest;
        }
    report_.switch_seconds += json.at("switch_seconds").get<uint64_t>();
    report_.events += json.at("events").get<uint64_t>();
    report_.seconds += json.at("seconds").get<double>();
}

report_t merge_t::whole() const
{
    report_t report = report_;
    std::sort(report.ranges.begin(), report.ranges.end());
    std::stable_sort(report.failures.begin(), report.failures.end(),
                     [](const failure_t &a, const failure_t &b) { return a.seed < b.seed; });
    if (report.ranges.empty())
        throw could_not_t("nothing to merge");
    std::vector<std::pair<uint64_t, uint64_t>> joined;
    for (const auto &[first, last] : report.ranges) {
        if (!joined.empty() && first <= joined.back().second)
            throw could_not_t(fmt::format("the ranges {}..{} and {}..{} overlap", joined.back().first,
                                          joined.back().second, first, last));
        if (!joined.empty() && first == joined.back().second + 1)
            joined.back().second = last;
        else
            joined.emplace_back(first, last);
    }
    report.ranges = joined;
    if (report.failed_seeds() != not_held_)
        throw could_not_t(fmt::format("{} seeds did not hold, but {} are named: lines are missing", not_held_,
                                      report.failed_seeds()));
    return report;
}

} // namespace sim
