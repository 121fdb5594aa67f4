// lvt_board: runs the simulated board, and asks or tells one that runs.
#include <exception>
#include <string>
#include <vector>

#include <CLI/CLI.hpp>
#include <fmt/format.h>

#include "client/board_client.h"
#include "lvt_board/reports.h"
#include "lvt_board/run.h"
#include "lvt_board/show.h"
#include "tools/about.h"
#include "tools/number.h"

namespace {

unsigned number_of(const std::string &text)
{
    unsigned number = 0;
    if (read_number(text, number) != std::errc())
        throw std::invalid_argument(fmt::format("'{}' is not a number", text));
    return number;
}

bool is_on(const std::string &text) { return text == "on"; }

// "3=100" or "3=100,half"
void add_speed(speeds_t &speeds, const std::string &text)
{
    const auto equals = text.find('=');
    if (equals == std::string::npos)
        throw std::invalid_argument(fmt::format("'{}' is not PORT=MBIT[,half]", text));
    const unsigned front = number_of(text.substr(0, equals));
    if (front < 1 || front > BOARD_PORTS)
        throw std::invalid_argument(fmt::format("there is no port {}", front));

    const auto comma = std::min(text.find(',', equals), text.size());
    const std::string duplex = text.substr(comma);
    if (duplex != "" && duplex != ",half" && duplex != ",full")
        throw std::invalid_argument(fmt::format("'{}' is neither full nor half", duplex));
    speeds[front] = speed_of(number_of(text.substr(equals + 1, comma - equals - 1)), duplex != ",half");
}

// "1,2=7", or "none=7" for a trunk without members
void set_trunk(const std::string &socket, const std::string &text)
{
    const auto equals = text.find('=');
    if (equals == std::string::npos)
        throw std::invalid_argument(fmt::format("'{}' is not PORTS=GROUP, as in 1,2=7 or none=7", text));
    const std::string ports = text.substr(0, equals);
    std::vector<unsigned> fronts;
    if (ports != "none")
        for (const std::string &port : CLI::detail::split(ports, ','))
            fronts.push_back(number_of(port));
    const unsigned group = number_of(text.substr(equals + 1));
    board_client_t(socket).set_trunk(group, fronts);
}

void add_run(CLI::App &app, run_options_t &options)
{
    CLI::App *run = app.add_subcommand("run", "Be a board, until interrupted");
    run->add_option("--log", options.log, "File for the event log, one line per event");
    run->add_option_function<std::vector<std::string>>(
           "--speed",
           [&options](const std::vector<std::string> &speeds) {
               for (const std::string &speed : speeds)
                   add_speed(options.speeds, speed);
           },
           "What a port's PHY reports while it has link, instead of its interface's speed")
        ->type_name("PORT=MBIT[,half]");
    run->add_flag("--die-with-parent", options.die_with_parent, "End when the process that started it ends");
    run->callback([&options] { board_run(options); });
}

void add_show(CLI::App &app, const std::string &socket)
{
    static std::string what;
    static bool as_json;
    CLI::App *show = app.add_subcommand("show", "Show what a running board knows");
    show->add_option("report", what, "What to show")->required()->check(CLI::IsMember(SHOW_REPORTS));
    show->add_flag("--json", as_json, "As JSON");
    show->callback([&socket] {
        const auto report = board_client_t(socket).show(what);
        fmt::print("{}", as_json ? report.dump(2) + '\n' : show_text(what, report));
    });
}

void add_set(CLI::App &app, const std::string &socket)
{
    static std::string first, second, third = "full";
    CLI::App *set = app.add_subcommand("set", "Change a running board, or play faults");
    set->require_subcommand(1);
    const CLI::IsMember on_off({"on", "off"});

    CLI::App *speed = set->add_subcommand("speed", "What a port's PHY reports while it has link");
    speed->add_option("port", first, "Front port, 1 to 6")->required();
    speed
        ->add_option("mbit", second,
                     fmt::format("{}, or auto for what its interface says", fmt::join(PHY_SPEEDS, ", ")))
        ->required();
    speed->add_option("duplex", third, "full or half")->check(CLI::IsMember({"full", "half"}));
    speed->callback([&socket] {
        const unsigned port = number_of(first), mbit = second == "auto" ? 0 : number_of(second);
        board_client_t board(socket);
        if (second == "auto")
            board.clear_speed(port);
        else
            board.set_speed(port, mbit, third == "full");
    });

    CLI::App *trunk = set->add_subcommand("trunk", "The members of a trunk");
    trunk->add_option("members", first, "PORTS=GROUP: 1,2=7 joins ports 1 and 2, none=7 dissolves")->required();
    trunk->callback([&socket] { set_trunk(socket, first); });

    CLI::App *mdio = set->add_subcommand("mdio-fail", "Refuse register batches");
    mdio->add_option("batches", first, "How many from now on; on: all, off: none")->required();
    mdio->callback([&socket] {
        const bool all = first == "on" || first == "off";
        const unsigned batches = all ? 0 : number_of(first);
        board_client_t board(socket);
        if (all)
            board.set_mdio_fail(is_on(first));
        else
            board.set_mdio_failures(batches);
    });

    CLI::App *link = set->add_subcommand("link-fail", "Leave the link monitor without an answer");
    link->add_option("value", first, "on or off")->required()->check(on_off);
    link->callback([&socket] { board_client_t(socket).set_link_fail(is_on(first)); });

    CLI::App *unread =
        set->add_subcommand("pipes-unread", "Leave LACP and multiplexer pipes unread, so that they fill");
    unread->add_option("value", first, "on or off")->required()->check(on_off);
    unread->callback([&socket] { board_client_t(socket).set_pipes_unread(is_on(first)); });
}

int complain(const std::exception &problem, int exit_status)
{
    fmt::print(stderr, "lvt_board: {}\n", problem.what());
    return exit_status;
}

} // namespace

int main(int argc, char **argv)
{
    run_options_t options;
    options.socket = board_socket_path();

    CLI::App app("A simulated six-port switch board", "lvt_board");
    app.require_subcommand(1);
    app.set_version_flag("--version", PROGRAM_VERSION, "Print the version and exit");
    app.footer("Exit status: 0 done; 1 refused; 2 the command line was not understood; 3 no board answers.");
    app.add_option("--socket", options.socket, "The board's socket")->capture_default_str();
    add_run(app, options);
    add_show(app, options.socket);
    add_set(app, options.socket);

    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError &problem) {
        return app.exit(problem) == 0 ? EXIT_SUCCESS : EXIT_NOT_UNDERSTOOD;
    } catch (const std::invalid_argument &problem) {
        return complain(problem, EXIT_NOT_UNDERSTOOD);
    } catch (const board_refusal_t &refusal) {
        return complain(refusal, EXIT_FAILURE);
    } catch (const board_error_t &problem) {
        return complain(problem, EXIT_UNTOLD);
    } catch (const std::exception &problem) {
        return complain(problem, EXIT_FAILURE);
    }
    return EXIT_SUCCESS;
}
