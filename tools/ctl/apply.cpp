#include "tools/ctl/apply.h"

#include <algorithm>

#include <fmt/format.h>
#include <fmt/ranges.h>

#include "tools/ctl/arguments.h"
#include "tools/ctl/config_file.h"
#include "tools/ctl/confirm.h"
#include "tools/ctl/linux_bridge.h"
#include "tools/ctl/memory.h"
#include "tools/ctl/outlook.h"
#include "tools/ctl/plan.h"
#include "tools/ctl/send.h"
#include "tools/ctl/status.h"
#include "tools/ctl/status_json.h"
#include "tools/printable.h"

namespace {

/// The settings of a changed file, before it is written.
settings_t settings_after(const std::string &text, const std::string &path)
{
    try {
        return settings_in(text, path);
    } catch (const faults_t &faults) {
        throw faults_t(fmt::format("nothing was changed, for the file would then have this fault:\n{}", faults.what()));
    }
}

void send_plan(const ctl_t &ctl, const std::vector<plan_step_t> &plan)
{
    for (size_t i = 0; i < plan.size(); i++) {
        if (ctl.dry_run && plan.size() > 1)
            fmt::print("{}{}. {}\n", i ? "\n" : "", i + 1, plan[i].reason);
        try {
            send_one_of_several(ctl, plan[i].frame);
        } catch (const refused_t &refusal) {
            if (i == 0)
                throw;
            refuse_as(refusal, fmt::format("{}\nOnly {} of {} messages were sent: send them again.", refusal.what(), i,
                                           plan.size()));
        }
    }
    demand_heard(ctl);
}

std::optional<bridge_status_t> reported(const ctl_t &ctl);
bridge_status_t demand_report(const ctl_t &ctl, const char *end = ".");

std::string spanning_tree_text(const port_configs_t &ports)
{
    return on_at_text("spanning tree", [&](unsigned port) { return ports[port].adminEnable != 0; });
}

/// Sends a plan for all settings, and remembers them.
void send_settings(const ctl_t &ctl, const std::vector<plan_step_t> &plan, const settings_t &settings)
{
    send_plan(ctl, plan);
    remember(ctl, [&](settings_t &sent) { sent = settings; });
}

outlook_told_t outlook_now(const ctl_t &ctl, const settings_t &settings)
{
    try {
        const bridge_status_t now = read_status(ctl).status;
        return {outlook(settings_in_force(ctl, now), settings, now), ""};
    } catch (const refused_t &refusal) {
        return {{}, refusal.what()};
    }
}

/// On a dry run, before the messages.
void tell_outlook(const ctl_t &ctl, const settings_t &settings)
{
    const outlook_told_t told = outlook_now(ctl, settings);
    if (told.untold.empty())
        fmt::print("what would change:\n");
    else
        fmt::print("it cannot be told what would change: {}\n", printable(told.untold));
    for (const std::string &line : told.lines)
        fmt::print("  {}\n", printable(line));
    fmt::print("\n");
}

std::string how_to_confirm(const ctl_t &ctl, std::chrono::nanoseconds patience)
{
    return fmt::format("it goes back in {:g} s unless you say: lvt_rstpctl{} confirm",
                       std::chrono::duration<double>(patience).count(), way_to(ctl));
}

/// Prepares the way back to what is in force now; `restore` puts a file back as well.
void guard_change(
    const ctl_t &ctl, const settings_t &settings, std::chrono::nanoseconds patience,
    const std::function<void()> &restore = [] {})
{
    settings_t before = settings_in_force(ctl, demand_report(ctl));
    if (settings.groups_stated && !before.groups_stated) {
        const bridge_status_t now = demand_report(ctl);
        before.groups_stated = true;
        for (size_t port = 1; port <= FRONT_PORTS; port++)
            if (const int group = now.port(static_cast<int>(port)).group)
                before.groups[port] = static_cast<uint8_t>(group);
    }
    start_guard(ctl, patience, [=, &ctl] {
        restore();
        send_settings(ctl, plan_of(before, settings, reported(ctl)), before);
    });
}

/// Puts back what a file said, or takes it away, unless somebody changed it since.
void restore_config(const place_t &place, const std::optional<std::string> &old, const std::string &changed)
{
    const config_lock_t lock(place);
    if (find_config_text(place) != changed)
        return;
    if (old)
        save_config(place, *old);
    else
        remove_config(place);
}

std::optional<bridge_status_t> reported(const ctl_t &ctl)
{
    const auto reading = try_status(ctl);
    return reading ? std::optional(reading->status) : std::nullopt;
}

/// What the daemon reports; throws refused_t when that cannot be known.
bridge_status_t demand_report(const ctl_t &ctl, const char *end)
{
    try {
        return read_status(ctl).status;
    } catch (const refused_t &refusal) {
        throw untold_t(
            fmt::format("it cannot be told what is on now: {}\nNothing was changed or sent{}", refusal.what(), end));
    }
}

/// The ports, as a list, that take part in the spanning tree now and would not after `settings`,
/// although they were off in the file already, so that nobody asked for it. What holds for a member of a
/// group is told of the group.
std::string ports_lost(const bridge_status_t &now, const settings_t &before, const settings_t &settings,
                       const std::vector<edit_t> &edits)
{
    std::vector<int> lost;
    for (int port = 1; port <= static_cast<int>(RSTP_PORTS); port++) {
        const size_t record = port <= static_cast<int>(FRONT_PORTS) ? static_cast<size_t>(port) : 0;
        const bool stays = before.ports[record].adminEnable || settings.ports[record].adminEnable;
        const bool asked = std::ranges::any_of(edits, [&](const edit_t &edit) {
            return edit.section == fmt::format("port.{}", port) && edit.key == "spanning_tree";
        });
        const bool on = now.port(port).role != ROLE_NON_STP && !now.port(port).group;
        if (on && !stays && !asked)
            lost.push_back(port);
    }
    return fmt::format("{}", fmt::join(lost, ","));
}

/// A file that does not tell how the switch is set up, least of all one that is not there, would take
/// the rest of it back to the defaults, and let frames run in the loops that the spanning tree cuts.
void refuse_losses(const bridge_status_t &now, const std::string &path, bool exists, const settings_t &before,
                   const settings_t &settings, const std::vector<edit_t> &edits)
{
    constexpr char next_step[] =
        "Nothing was changed or sent. Put into the file what is to stay, as "
        "lvt_rstpctl save does, or say --force.";
    const std::string told = exists ? fmt::format("{} says otherwise", path) : fmt::format("there is no {}", path);
    const std::string ports = ports_lost(now, before, settings, edits);
    if (!ports.empty())
        throw refused_t(fmt::format("spanning tree is on at port {} now, but {}: it would go off there. {}", ports,
                                    told, next_step));
    const bool asked = std::ranges::any_of(
        edits, [](const edit_t &edit) { return edit.section == "bridge" && edit.key == "priority"; });
    if (!exists && !asked && now.bridge.prio != settings.bridge.bridge_priority)
        throw refused_t(fmt::format("the bridge priority is {} now, but {}: it would become {}. {}", now.bridge.prio,
                                    told, settings.bridge.bridge_priority, next_step));
}

/// The loops that ports cut which leave the tree are not opened unasked.
void refuse_loops(const settings_t &before, const settings_t &settings, const bridge_status_t &now)
{
    const std::string fault = loop_opened(before, settings, now);
    if (!fault.empty())
        throw refused_t(fmt::format("{}. Nothing was changed or sent. Pull a cable first, or say --force.", fault));
}

} // namespace

place_t place_of(const ctl_t &ctl, const std::string &file)
{
    if (file.empty() && ctl.config.empty())
        return {ctl.root, CONFIG_FILE};
    return {"", file.empty() ? ctl.config : file};
}

void check_config(const place_t &place, bool json)
{
    const std::string text = read_config_text(place);
    if (json)
        fmt::print("{}\n", faults_json(place.text(), parse_config(text).faults));
    const settings_t settings = settings_in(text, place.text());
    if (!json)
        fmt::print("{} is in order: {}\n", printable(place.text()), spanning_tree_text(settings.ports));
}

void apply_config(const ctl_t &ctl, const place_t &place, const apply_args_t &args)
{
    const settings_t settings = load_config(place);
    refuse_while_unconfirmed(ctl);
    const std::vector<plan_step_t> plan = plan_of(settings, {}, reported(ctl));
    if (args.json) {
        fmt::print("{}\n", plan_json(place.text(), outlook_now(ctl, settings), plan));
        return;
    }
    if (ctl.dry_run)
        tell_outlook(ctl, settings);
    else if (args.confirm)
        guard_change(ctl, settings, *args.confirm);
    send_settings(ctl, plan, settings);
    if (!ctl.dry_run)
        fmt::print("applied {}: {} messages sent, {}\n", printable(place.text()), plan.size(),
                   spanning_tree_text(settings.ports));
    if (args.confirm && !ctl.dry_run)
        fmt::print("{}\n", printable(how_to_confirm(ctl, *args.confirm)));
}

void set_in_config(const ctl_t &ctl, const place_t &place, const set_args_t &args)
{
    std::optional<config_lock_t> lock;
    if (!ctl.dry_run)
        lock.emplace(place);
    const std::string path = place.text();
    const auto stored = find_config_text(place);
    const settings_t before = settings_in(stored.value_or(""), path);
    const std::string text = with_settings(stored.value_or(""), args.edits);
    const settings_t settings = settings_after(text, path);
    refuse_while_unconfirmed(ctl);
    if (ctl.dry_run)
        tell_outlook(ctl, settings);
    std::optional<bridge_status_t> now;
    within_a_report([&] { // which may not yet tell of what was sent just before
        now = args.force || ctl.dry_run ? reported(ctl) : demand_report(ctl, "; --force does it all the same.");
        if (now && !args.force) {
            refuse_losses(*now, path, stored.has_value(), before, settings, args.edits);
            refuse_loops(settings_in_force(ctl, *now), settings, *now);
        }
    });

    if (ctl.dry_run) {
        for (const edit_t &edit : args.edits)
            fmt::print("in {}: [{}] {} = {}\n", printable(path), edit.section, edit.key, edit.value);
    } else {
        if (args.confirm)
            guard_change(ctl, settings, *args.confirm, [=] { restore_config(place, stored, text); });
        save_config(place, text);
    }
    const std::vector<plan_step_t> plan = plan_of(settings, before, now);
    try {
        send_settings(ctl, plan, settings);
    } catch (const refused_t &refusal) {
        refuse_as(refusal, fmt::format("{}\n{} is changed all the same: apply it when the daemon takes messages.",
                                       refusal.what(), path));
    }
    if (!ctl.dry_run)
        fmt::print("set in {}, and applied: {} messages sent, {}\n", printable(path), plan.size(),
                   spanning_tree_text(settings.ports));
    if (args.confirm && !ctl.dry_run)
        fmt::print("{}\n", printable(how_to_confirm(ctl, *args.confirm)));
}

void save_config_in_force(const ctl_t &ctl, const place_t &place)
{
    const config_lock_t lock(place);
    refuse_while_unconfirmed(ctl);
    const auto stored = find_config_text(place);
    const settings_t before = settings_in(stored.value_or(""), place.text());
    const settings_t settings = settings_in_force(ctl, demand_report(ctl));
    const std::vector<edit_t> edits = edits_between(before, settings);
    const std::string text = with_settings(stored.value_or(""), edits);
    if (ctl.dry_run)
        for (const edit_t &edit : edits)
            fmt::print("in {}: [{}] {} = {}\n", printable(place.text()), edit.section, edit.key, edit.value);
    else if (!edits.empty() || !stored)
        save_config(place, text);
    fmt::print("{} {} {}: {} settings were different\n", printable(place.text()), ctl.dry_run ? "would say" : "says",
               "what is in force", edits.size());
}

void send_ports(const ctl_t &ctl, const port_configs_t &ports, bool groups_wait)
{
    refuse_while_unconfirmed(ctl);
    const std::vector<plan_step_t> plan = plan_of_ports(ports, reported(ctl), groups_wait);
    send_plan(ctl, plan);
    remember(ctl, [&](settings_t &sent) { std::copy(ports.begin() + 1, ports.end(), sent.ports.begin() + 1); });
    tell_sent(ctl, fmt::format("{}{}", spanning_tree_text(ports),
                               plan.size() > 1 ? "; in two messages, so that BPDUs stay trapped" : ""));
}
