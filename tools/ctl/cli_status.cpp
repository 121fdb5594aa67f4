/// The commands that look: show, monitor, expect.
#include <algorithm>
#include <memory>

#include <fmt/format.h>
#include <fmt/ranges.h>

#include "tools/ctl/apply.h"
#include "tools/ctl/arguments.h"
#include "tools/ctl/cli.h"
#include "tools/ctl/expect.h"
#include "tools/ctl/show.h"
#include "tools/ctl/show_config.h"

namespace {

struct show_words_t {
    std::vector<std::string> subject;
    bool json = false, pretty = false, lines = false, statistics = false, watch = false;
    std::string file, seconds;
};

/// Of an option that may be absent.
std::optional<std::chrono::nanoseconds> seconds_of(const CLI::Option *option, const std::string &text)
{
    if (option->count() == 0)
        return {};
    return parse_seconds(option->get_name(), text);
}

subject_t subject_of(const std::vector<std::string> &words)
{
    if (words.empty())
        return {};
    const size_t word = parse_word("SUBJECT", words[0], {"bridge", "ports", "statistics", "port", "config"});
    const bool one_port = word == 3;
    if (words.size() != (one_port ? 2 : 1))
        throw usage_t(one_port ? "SUBJECT: port should read port LIST" : "SUBJECT: one is enough");

    subject_t subject = {.bridge = word == 0, .ports = word == 1, .statistics = word == 2};
    if (one_port)
        for (const unsigned port : parse_ports("port", words[1], LOGICAL_PORT))
            subject.one_by_one.push_back(static_cast<int>(port));
    return subject;
}

format_t format_of(const show_words_t &words)
{
    if (words.pretty)
        return format_t::pretty_json;
    return words.json ? format_t::json : words.lines ? format_t::lines : format_t::table;
}

void add_show_command(CLI::App &app, const ctl_t &ctl)
{
    auto *command = app.add_subcommand("show", "Shows what the daemon reports")->group(HEADING_LOOK);
    command->footer(
        "SUBJECT is bridge, ports, statistics, port LIST with ports from 1 to 9, as in 1-3 or all, or\n"
        "config, what the configuration file sets beside what runs. Without one the first three are shown.\n"
        "The JSON has one shape whatever is shown: the subject says whose entries are in \"ports\".\n"
        "Examples:\n"
        "  lvt_rstpctl show\n"
        "  lvt_rstpctl show port 3\n"
        "  lvt_rstpctl show ports --watch\n"
        "  lvt_rstpctl show -j | jq '.bridge.root'");

    auto words = std::make_shared<show_words_t>();
    command->add_option("SUBJECT", words->subject, "What to show")->type_name("");
    auto *json = command->add_flag("-j,--json", words->json, "JSON, one document to a line");
    auto *pretty = command->add_flag("-p,--pretty", words->pretty, "JSON, indented for people");
    command->add_flag("-o,--oneline", words->lines, "Text for scripts, one line for the bridge and each port")
        ->excludes(json)
        ->excludes(pretty);
    command->add_flag("-s,--statistics", words->statistics, "The counters, too, if the subject has none");
    command->add_option("--file", words->file, "Of show config: another file than the stored one")->type_name("FILE");
    auto *watch = command->add_flag("--watch", words->watch, "Show it anew each second, with a * on what changed");
    auto *end = command->add_option("--for", words->seconds, "Stop watching after so long");
    end->type_name("SECONDS")->needs(watch);
    command->callback([words, end, &ctl] {
        const bool config = words->subject == std::vector<std::string>{"config"};
        if (!config && !words->file.empty())
            throw usage_t("--file goes with show config");
        if (config && (words->watch || words->lines || words->pretty || words->statistics))
            throw usage_t("show config knows --json and --file only");
        if (config)
            return show_config(ctl, place_of(ctl, words->file), words->json);
        subject_t subject = subject_of(words->subject);
        subject.statistics = subject.statistics || words->statistics;
        show(ctl, {subject, format_of(*words), words->watch, seconds_of(end, words->seconds)});
    });
}

void add_monitor_command(CLI::App &app, const ctl_t &ctl)
{
    auto *command = app.add_subcommand("monitor", "Tells of each change as it happens")->group(HEADING_LOOK);
    command->footer(
        "One line for each change of a role, a state, the root or the topology. The daemon reports\n"
        "once a second: what comes and goes between two reports is not seen.\n"
        "Example:\n"
        "  lvt_rstpctl monitor --json >> /var/log/spanning_tree");

    auto words = std::make_shared<show_words_t>();
    command->add_flag("-j,--json", words->json, "One JSON document to a line");
    auto *end = command->add_option("--for", words->seconds, "Stop after so long")->type_name("SECONDS");
    command->callback([words, end, &ctl] { monitor(ctl, {words->json, seconds_of(end, words->seconds)}); });
}

struct expect_words_t {
    std::vector<std::string> words;
    std::string file, seconds;
    bool json = false;
};

/// Arguments of which each has a blank are statements; else they are the words of one.
std::vector<std::string> statements_of(const std::vector<std::string> &words)
{
    const auto is_whole = [](const std::string &word) { return word.find(' ') != std::string::npos; };
    if (words.empty() || std::ranges::all_of(words, is_whole))
        return words;
    return {fmt::format("{}", fmt::join(words, " "))};
}

void add_expect_command(CLI::App &app, const ctl_t &ctl)
{
    auto *command = app.add_subcommand("expect", "Checks statements: status 0 if all is so, 1 if not");
    command->group(HEADING_LOOK);
    command->footer(std::string("Statements:\n") + STATEMENTS +
                    "\n"
                    "Several have to be so at the same time. Exit status 3: the daemon does not tell.\n"
                    "Examples:\n"
                    "  lvt_rstpctl expect \"root is this bridge\"\n"
                    "  lvt_rstpctl expect \"port 1-3 forwards\" \"port 4 is down\" --within 30\n"
                    "  lvt_rstpctl expect \"topology changes below 2\" --within 60\n"
                    "  lvt_rstpctl expect --all /etc/baseline");

    auto words = std::make_shared<expect_words_t>();
    command->add_option("STATEMENT", words->words, "One statement, in quotes or not, or several in quotes")
        ->type_name("");
    command->add_option("--all", words->file, "All statements of a file, one a line, behind # what you like")
        ->type_name("FILE");
    auto *within = command->add_option("--within", words->seconds);
    within->description("Wait so long for it to become true; count topology changes for so long");
    within->type_name("SECONDS");
    command->add_flag("-j,--json", words->json, "JSON, one document, also of what is so");
    command->callback([words, within, &ctl] {
        expect(ctl, {.statements = statements_of(words->words),
                     .file = words->file,
                     .within = seconds_of(within, words->seconds).value_or(std::chrono::nanoseconds(0)),
                     .json = words->json});
    });
}

} // namespace

void add_status_commands(CLI::App &app, const ctl_t &ctl)
{
    add_show_command(app, ctl);
    add_monitor_command(app, ctl);
    add_expect_command(app, ctl);
}
