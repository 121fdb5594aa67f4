#include "sim/report.h"

#include <fmt/format.h>
#include <nlohmann/json.hpp>

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
    text += ordered_json({{"first", report.first},
                          {"last", report.last},
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

} // namespace sim
