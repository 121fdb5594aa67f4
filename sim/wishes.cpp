#include <algorithm>
#include <charconv>

#include <fmt/format.h>
#include <fmt/ranges.h>

#include "sim/commands.h"
#include "sim/faults.h"

namespace sim {

uint64_t parse_whole(const std::string &what, const std::string &text)
{
    uint64_t number = 0;
    const char *const end = text.data() + text.size();
    const auto [next, error] = std::from_chars(text.data(), end, number);
    if (error != std::errc{} || next != end)
        throw usage_t(fmt::format("{}: \"{}\" is no whole number", what, text));
    return number;
}

void rapid_words_t::add_to(CLI::App &command)
{
    auto *all = command.add_flag("--rapid", rapid, "Every daemon is asked to be rapid, as lvt_rstpd --rapid");
    command.add_flag("--mixed", mixed, "So are some of them, drawn from the seed")->excludes(all);
}

rapid_t rapid_words_t::choice() const
{
#ifndef LVT_RAPID
    if (rapid || mixed)
        throw usage_t("the daemon was built without --rapid (LVT_RAPID=OFF)");
#endif
    return rapid ? rapid_t::ALL : mixed ? rapid_t::SOME : rapid_t::NONE;
}

void wish_words_t::add_to(CLI::App &command)
{
    command.add_option("--shape", shape, fmt::format("One of {}", fmt::join(shape_names(), ", ")))
        ->type_name("SHAPE")
        ->group("Networks that are not left to the seed");
    command.add_option("--switches", switches, fmt::format("1 to {}", MOST_SWITCHES))
        ->type_name("N")
        ->group("Networks that are not left to the seed");
    command.add_option("--faults", faults, "These and no others; \"none\" for none; see lvt_sim promises")
        ->type_name("FAULT,...")
        ->group("Networks that are not left to the seed");
    rapid.add_to(command);
}

std::string wish_words_t::again() const
{
    std::string text;
    for (const auto &[option, value] : {std::pair("shape", &shape), {"switches", &switches}, {"faults", &faults}})
        if (!value->empty())
            text += fmt::format(" --{} {}", option, *value);
    if (rapid.rapid || rapid.mixed)
        text += rapid.rapid ? " --rapid" : " --mixed";
    return text;
}

wishes_t wish_words_t::wishes() const
{
    wishes_t wishes;
    wishes.rapid = rapid.choice();
    if (!shape.empty()) {
        const auto names = shape_names();
        const auto found = std::find(names.begin(), names.end(), shape);
        if (found == names.end())
            throw usage_t(fmt::format("--shape: \"{}\" is none of {}", shape, fmt::join(names, ", ")));
        wishes.shape = static_cast<shape_t>(found - names.begin());
    }
    if (!switches.empty()) {
        const uint64_t count = parse_whole("--switches", switches);
        if (count < 1 || count > MOST_SWITCHES)
            throw usage_t(fmt::format("--switches: {} is not between 1 and {}", count, MOST_SWITCHES));
        wishes.switches = static_cast<unsigned>(count);
    }
    if (!faults.empty()) {
        wishes.faults = 0;
        for (size_t from = 0; faults != "none" && from <= faults.size();) {
            const size_t comma = std::min(faults.find(',', from), faults.size());
            const std::string word = faults.substr(from, comma - from);
            unsigned fault = 0;
            while (fault < FAULTS && word != fault_name(static_cast<fault_t>(fault)))
                fault++;
            if (fault == FAULTS || fault == WIDE)
                throw usage_t(fmt::format("--faults: \"{}\" is no fault that can be chosen", word));
            *wishes.faults |= bit(static_cast<fault_t>(fault));
            from = comma + 1;
        }
    }
    return wishes;
}

} // namespace sim
