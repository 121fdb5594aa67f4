#include "tools/ctl/apply.h"

#include <filesystem>

#include <fmt/format.h>

#include "tools/ctl/config_file.h"
#include "tools/ctl/plan.h"
#include "tools/ctl/send.h"
#include "tools/ctl/status.h"

namespace {

/// The settings of a changed file, before it is written.
settings_t settings_after(const std::string &text, const std::string &path)
{
    try {
        return settings_in(text, path);
    } catch (const faults_t &faults) {
        throw faults_t(
            fmt::format("nothing was changed, for the file would then have this fault:\n{}", faults.what()));
    }
}

void send_plan(const ctl_t &ctl, const std::vector<plan_step_t> &plan)
{
    for (size_t i = 0; i < plan.size(); i++) {
        if (ctl.dry_run)
            fmt::print("{}{}. {}\n", i ? "\n" : "", i + 1, plan[i].reason);
        try {
            send_message(ctl, plan[i].frame);
        } catch (const refused_t &refusal) {
            if (i == 0)
                throw;
            throw refused_t(fmt::format("{}\nOnly {} of {} messages were sent: apply the file again.", refusal.what(),
                                        i, plan.size()));
        }
    }
}

void send_settings(const ctl_t &ctl, const settings_t &settings, const std::optional<settings_t> &before)
{
    const auto reading = try_status(ctl);
    send_plan(ctl, plan_of(settings, before, reading ? std::optional(reading->status) : std::nullopt));
}

} // namespace

std::string default_config_path(const ctl_t &ctl)
{
    return ctl.root + CONFIG_FILE;
}

void check_config(const std::string &path)
{
    load_config(path);
}

void apply_config(const ctl_t &ctl, const std::string &path)
{
    send_settings(ctl, load_config(path), {});
}

void set_in_config(const ctl_t &ctl, const std::string &path, const std::vector<edit_t> &edits)
{
    std::string text = std::filesystem::exists(path) ? read_config_text(path) : "";
    const settings_t before = settings_in(text, path);
    for (const edit_t &edit : edits)
        text = with_setting(text, edit);
    const settings_t settings = settings_after(text, path);

    if (ctl.dry_run)
        for (const edit_t &edit : edits)
            fmt::print("in {}: [{}] {} = {}\n", path, edit.section, edit.key, edit.value);
    else
        save_config(path, text);
    try {
        send_settings(ctl, settings, before);
    } catch (const refused_t &refusal) {
        throw refused_t(fmt::format("{}\n{} is changed all the same: apply it when the daemon takes messages.",
                                    refusal.what(), path));
    }
}
