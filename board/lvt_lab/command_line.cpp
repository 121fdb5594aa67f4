#include "board/lvt_lab/command_line.h"

#include <exception>
#include <map>

#include <fmt/format.h>
#include <fmt/ranges.h>

#include "board/lvt_lab/client.h"
#include "board/lvt_lab/lab.h"
#include "board/lvt_lab/page/page.h"
#include "board/lvt_lab/script.h"
#include "board/lvt_lab/verbs.h"
#include "tools/about.h"
#include "tools/command_line.h"
#include "tools/ctl/ctl.h"
#include "tools/topology/shapes.h"

namespace lvt_lab {

namespace {

struct options_t {
    std::string lab;
    int status = EXIT_SUCCESS;
    up_args_t up;
    std::vector<std::string> words;
    std::string node, from, to, cables, file, within = "5s", length = "0";
    bool json = false, watch = false, now = false, keep = false;
    export_t format = export_t::DOT;
    uint16_t port = 0;
};

CLI::App *add(CLI::App &app, options_t &options, const char *name, const char *what, const std::string &examples)
{
    CLI::App *command = app.add_subcommand(name, what);
    command->add_option("--lab", options.lab, "The lab that is meant, where several are up")->type_name("NAME");
    command->footer("Examples:\n" + examples);
    return command;
}

void add_up(CLI::App &app, options_t &options)
{
    CLI::App *command = add(app, options, "up", "Start a lab, which stays until it is told to end",
                            fmt::format("  lvt_lab up ring 4\n"
                                        "  lvt_lab up ring 4 --rapid --lab fast\n"
                                        "  lvt_lab up office.yml\n"
                                        "Names: {}. They have two hosts, h1 and h2, far from each other.",
                                        fmt::join(topology::shape_forms(), ", ")));
    command->add_option("network", options.up.words, "A topology file, - for standard input, or a name and its size")
        ->type_name("FILE|NAME SIZE")
        ->required();
    command->add_flag("--rapid", options.up.rapid, "Ask all daemons to be rapid, as lvt_rstpd --rapid");
    command->add_option("--hosts", options.up.hosts, "How many hosts a name's network has")
        ->type_name("N")
        ->check(CLI::Range(0, 100).description(""));
    command->add_flag("--story", options.up.story, "Let happen what the file says that happens");
    command->callback([&options] { options.status = up(options.lab, options.up); });
}

/// A command that changes the network: its words are those of a story.
void add_deed(CLI::App &app, options_t &options, const char *name, const char *what, const char *form, bool tells,
              const std::string &examples)
{
    CLI::App *command = add(app, options, name, what, examples);
    command->add_option("words", options.words, "What it is done to, and how")->type_name(form)->required();
    if (tells)
        command->add_flag("--now", options.now, "Do not wait and tell what follows");
    command->callback([&options, name, tells] {
        std::vector<std::string> words = {name};
        words.insert(words.end(), options.words.begin(), options.words.end());
        act(which_lab(options.lab), words, tells && !options.now);
    });
}

void add_deeds(CLI::App &app, options_t &options)
{
    const std::string told =
        "\nWhat follows is told, in milliseconds, until the network is at rest; Ctrl-C ends the telling only.";
    add_deed(app, options, "pull", "Pull a cable out", "A-B", true,
             "  lvt_lab pull 1-2\n  lvt_lab pull sw1:2-sw3:1 --now" + told);
    add_deed(app, options, "plug", "Plug a cable in", "A-B", true, "  lvt_lab plug 1-2" + told);
    add_deed(app, options, "flap", "Pull a cable and plug it in, several times", "A-B TIMES PAUSE", true,
             "  lvt_lab flap 1-2 5 200ms" + told);
    add_deed(app, options, "degrade", "Give a cable other qualities",
             "A-B [delay TIME] [jitter TIME] [loss SHARE] [duplicate SHARE] [one-way]", false,
             "  lvt_lab degrade 1-2 loss 10% delay 20ms\n"
             "  lvt_lab degrade 1-2 one-way     # only what 1 sends arrives\n"
             "  lvt_lab degrade 1-2             # as good as new");
    add_deed(app, options, "deafen", "Let be lost what A sends to B", "A-B", false, "  lvt_lab deafen 1-2");
    add_deed(app, options, "heal", "Let it arrive again", "A-B", false, "  lvt_lab heal 1-2");
    add_deed(app, options, "kill", "Kill a daemon; its chip goes on as it is", "SWITCH", true,
             "  lvt_lab kill sw2" + told);
    add_deed(app, options, "restart", "Start a daemon anew, with its settings", "SWITCH", true,
             "  lvt_lab restart sw2" + told);
    add_deed(app, options, "power", "Take a switch's power, or give it", "SWITCH on|off", true,
             "  lvt_lab power sw2 off\n  lvt_lab power sw2 on" + told);
    add_deed(app, options, "set", "Change settings of a switch", "SWITCH KEY=VALUE...", false,
             "  lvt_lab set sw3 bridge.priority=4096 port.1.path_cost=200");
    add_deed(app, options, "message", "Send a control message to a daemon", "SWITCH OCTETS", false,
             "  lvt_lab message sw1 bc30118200");
    add_deed(app, options, "refuse", "Let a chip refuse register writes", "SWITCH TIMES", false,
             "  lvt_lab refuse sw1 3");
}

void add_looks(CLI::App &app, options_t &options)
{
    CLI::App *ls = app.add_subcommand("ls", "List the labs that are up");
    ls->add_flag("-j,--json", options.json, "As JSON");
    ls->footer("Example:\n  lvt_lab ls");
    ls->callback([&options] { list_labs(options.json); });

    CLI::App *shown =
        add(app, options, "show", "Show all nodes and their ports in one table", "  lvt_lab show\n  lvt_lab show -j");
    shown->add_flag("-j,--json", options.json, "As JSON");
    shown->callback([&options] { show(which_lab(options.lab), options.json); });

    CLI::App *drawn = add(app, options, "tree", "Draw the spanning tree", "  lvt_lab tree\n  lvt_lab tree --watch");
    drawn->add_flag("--watch", options.watch, "Draw it anew whenever it changes, until Ctrl-C");
    drawn->callback([&options] { tree(which_lab(options.lab), options.watch); });

    CLI::App *outages = add(app, options, "outage", "Tell what followed from the latest command", "  lvt_lab outage");
    outages->add_flag("-j,--json", options.json, "As JSON, an event a line");
    outages->callback([&options] { outage(which_lab(options.lab), options.json); });

    CLI::App *monitored = add(app, options, "monitor", "Tell what happens, until Ctrl-C",
                              "  lvt_lab monitor\n  lvt_lab monitor -j --for 10s");
    monitored->add_flag("-j,--json", options.json, "As JSON, an event a line");
    monitored->add_option("--for", options.length, "For so long only")->type_name("TIME");
    monitored->callback(
        [&options] { monitor(which_lab(options.lab), options.json, parse_time("--for", options.length)); });

    CLI::App *captured = add(app, options, "capture", "Write the frames of cables into a file, until Ctrl-C",
                             "  lvt_lab capture 1-2 ring.pcapng --for 10s\n  lvt_lab capture all - | tshark -r -");
    captured->add_option("cables", options.cables, "A cable, or all")->type_name("A-B|all")->required();
    captured->add_option("file", options.file, "A pcapng file, - for standard output")->type_name("FILE")->required();
    captured->add_option("--for", options.length, "For so long only")->type_name("TIME");
    captured->callback([&options] {
        capture(which_lab(options.lab), options.cables, options.file, parse_time("--for", options.length));
    });
}

void add_page(CLI::App &app, options_t &options)
{
    CLI::App *shown =
        add(app, options, "page", "Show the lab in a browser, until Ctrl-C or the lab's end",
            "  lvt_lab page\n"
            "  lvt_lab page --port 8080\n"
            "Open the address that it prints. Cables are pulled by a click, and a switch shows its tables; "
            "what was\n"
            "before is seen by the time line. Only this machine's browsers can reach it.");
    shown->add_option("--port", options.port, "Where it listens, at 127.0.0.1; else a port that is free")
        ->type_name("N")
        ->check(CLI::Range(1, 65535).description(""));
    shown->callback([&options] { page(which_lab(options.lab), options.port); });
}

void add_explanations(CLI::App &app, options_t &options)
{
    CLI::App *reason =
        add(app, options, "why", "Tell which end cuts a cable, and against what better path", "  lvt_lab why 3-4");
    reason->add_option("cable", options.cables, "A cable")->type_name("A-B")->required();
    reason->callback([&options] { why(which_lab(options.lab), options.cables); });

    CLI::App *exported = add(app, options, "export", "Print the tree for programs that draw",
                             "  lvt_lab export svg > tree.svg\n  lvt_lab export mermaid");
    const std::map<std::string, export_t> formats = {
        {"dot", export_t::DOT}, {"mermaid", export_t::MERMAID}, {"svg", export_t::SVG}};
    exported->add_option("format", options.format, "dot, mermaid or svg")
        ->type_name("FORMAT")
        ->required()
        ->transform(CLI::CheckedTransformer(formats).description(""));
    exported->callback([&options] { export_tree(which_lab(options.lab), options.format); });
}

void add_script(CLI::App &app, options_t &options)
{
    CLI::App *run = add(app, options, "run", "Do what a script says, and what it expects",
                        "  lvt_lab run heals.lab\n"
                        "A script has a command of this program a line, and these:\n"
                        "  wait 2s\n"
                        "  expect rest within 60s\n"
                        "  expect root is sw1\n"
                        "  expect sw3:2 is alternate within 20s\n"
                        "  expect h1 reaches h2 within 5s\n"
                        "  expect outage under 200ms\n"
                        "lvt_lab(1) tells all that can be expected. A lab that the script starts ends with it.\n"
                        "Exit status: 0 when all was done and all that was expected held.");
    run->add_option("script", options.file, "A file, - for standard input")->type_name("SCRIPT")->required();
    run->add_flag("--keep", options.keep, "Leave the lab up that the script starts");
    run->callback([&options] { options.status = run_script(options.file, options.lab, options.keep); });
}

void add_inside(CLI::App &app, options_t &options)
{
    CLI::App *exec = add(app, options, "exec", "Run a program in a node",
                         "  lvt_lab exec sw1 -- lvt_rstpctl show\n  lvt_lab exec h1 -- ping -c 3 10.0.0.2\n"
                         "  lvt_lab exec sw1             # a shell\n"
                         "The exit status is the program's.");
    exec->add_option("node", options.node, "A switch, bridge or host")->required();
    exec->add_option("program", options.words, "The program and its words, after --; else a shell")
        ->type_name("PROGRAM...");
    exec->callback([&options] {
        if (options.words.empty())
            options.words = {"bash", "--rcfile", SHELL_FILE, "-i"};
        options.status = run_in_node(which_lab(options.lab), options.node, options.words);
    });

    CLI::App *pinged = add(app, options, "ping", "Tell whether a host reaches another",
                           "  lvt_lab ping h1 h2\n  lvt_lab ping h1 h2 --within 40s");
    pinged->add_option("from", options.from, "A host")->required();
    pinged->add_option("to", options.to, "Another one")->required();
    pinged->add_option("--within", options.within, "How long it is tried, usually 5s")->type_name("TIME");
    pinged->callback([&options] {
        if (!ping(which_lab(options.lab), options.from, options.to, parse_time("--within", options.within)))
            options.status = EXIT_FAILURE;
    });
}

} // namespace

int run_command(const std::vector<std::string> &words, const std::string &lab)
{
    options_t options;
    options.lab = lab;
    CLI::App app("Networks of simulated switches, Linux bridges and hosts on this machine", "lvt_lab");
    app.require_subcommand(0, 1);
    app.set_version_flag("--version", PROGRAM_VERSION, "Print the version and exit");
    app.footer(
        "Each command has a --help of its own, with examples. A lab is started as an ordinary user or as root,\n"
        "and stays until lvt_lab down; whatever way it ends, nothing is left behind.\n"
        "Exit status: 0 done, or so; 1 refused, or not so; 2 the command line or a file was not understood;\n"
        "3 no such lab, or this machine cannot run one.\n"
        "Examples:\n"
        "  lvt_lab up ring 4\n"
        "  lvt_lab tree\n"
        "  lvt_lab pull 1-2\n"
        "  lvt_lab down");
    app.final_callback([&app] {
        if (app.get_subcommands().empty())
            throw CLI::RequiredError("A command");
    });
    add_up(app, options);
    CLI::App *ended = add(app, options, "down", "End a lab", "  lvt_lab down\n  lvt_lab down --lab fast");
    ended->callback([&options] { down(which_lab(options.lab)); });
    add_looks(app, options);
    add_page(app, options);
    add_deeds(app, options);
    add_explanations(app, options);
    add_script(app, options);
    add_inside(app, options);
    try {
        std::vector<std::string> reversed(words.rbegin(), words.rend());
        app.parse(std::move(reversed));
    } catch (const CLI::ParseError &error) {
        return tell(app, error) ? EXIT_SUCCESS : EXIT_NOT_UNDERSTOOD;
    }
    return options.status;
}

int run_program(int argc, char **argv)
{
    understand_help(argc, argv);
    try {
        return run_command(std::vector<std::string>(argv + 1, argv + argc));
    } catch (const faults_t &faults) {
        complain(faults.what());
        return EXIT_NOT_UNDERSTOOD;
    } catch (const usage_t &error) {
        complain(fmt::format("lvt_lab: {}\nRun with --help for more information.", error.what()));
        return EXIT_NOT_UNDERSTOOD;
    } catch (const untold_t &error) {
        complain(fmt::format("lvt_lab: {}", error.what()));
        return EXIT_UNTOLD;
    } catch (const std::exception &error) {
        complain(fmt::format("lvt_lab: {}", error.what()));
    }
    return EXIT_FAILURE;
}

} // namespace lvt_lab
