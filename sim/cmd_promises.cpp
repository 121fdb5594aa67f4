/// lvt_sim promises: what must hold among which faults, and what need not.
#include <memory>

#include <fmt/format.h>

#include "sim/commands.h"
#include "sim/faults.h"

namespace sim {

namespace {

void print_promises()
{
    fmt::print("What must hold:\n");
    for (unsigned i = 0; i < PROPERTIES; i++)
        fmt::print("  {:<15} {}\n", property_name(static_cast<property_t>(i)),
                   property_words(static_cast<property_t>(i)));
    fmt::print("\nAmong these faults:\n");
    for (unsigned i = 0; i < FAULTS; i++) {
        const auto fault = static_cast<fault_t>(i);
        fmt::print("  {:<15} {}\n", fault_name(fault), fault_words(fault));
        const char *rule = nullptr;
        for (const exception_t &exception : exceptions())
            if (exception.fault == fault) {
                if (rule != exception.rule)
                    fmt::print("      but: {}\n", exception.rule);
                rule = exception.rule;
                fmt::print("        not {:<14} {}\n", property_name(exception.property),
                           exception.seed ? fmt::format("lvt_sim run --seed {}", exception.seed) : "never seen");
            }
    }
}

} // namespace

void add_promises_command(CLI::App &app, result_t &)
{
    auto *command = app.add_subcommand("promises", "Tells what must hold among which faults, and what need not");
    command->footer(
        "Each exception is told with the rule of the switch that is to blame, and the smallest seed that\n"
        "shows it with nothing else to blame.");
    command->callback([] { print_promises(); });
}

} // namespace sim
