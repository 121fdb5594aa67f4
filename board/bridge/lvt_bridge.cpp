// lvt_bridge: lets the daemon rule a Linux bridge.
#include <exception>
#include <map>
#include <string>

#include <CLI/CLI.hpp>
#include <fmt/format.h>

#include "board/bridge/rule.h"
#include "tools/about.h"
#include "tools/ctl/ctl.h"
#include "tools/rules.h"

namespace {

constexpr int EXIT_REFUSED_BRIDGE = EXIT_UNTOLD; ///< nothing was changed

constexpr char FOOTER[] =
    R"(The ports of the bridge are front ports 1 to 6 of the daemon: those that --ports or the settings
file lists, in that order, or else all, by name. Listed ports may come later; ports that are not
listed forward, without spanning tree. Until the daemon rules, all ports block.

Exit status: 0 ended by SIGTERM or SIGINT; 1 it failed while it ran; 2 the command line or the
settings file was not understood; 3 refused, and nothing was changed.

Examples:
  lvt_bridge br0
  lvt_bridge --config /etc/lvt_rstp/br0.toml --ports lan1,lan2,lan3 br0
  lvt_rstpctl --bridge br0 show)";

std::string fault_of_ports(const std::vector<std::string> &ports)
{
    for (const std::string &port : ports)
        if (!is_interface_name(port))
            return fmt::format("'{}' is no name of an interface", port);
        else if (std::ranges::count(ports, port) > 1)
            return fmt::format("{} is named twice", port);
    return {};
}

int complain(const std::exception &problem, int exit_status)
{
    fmt::print(stderr, "lvt_bridge: {}\n", problem.what());
    return exit_status;
}

int run(const rule_options_t &options)
{
    if (!is_interface_name(options.bridge))
        throw CLI::ValidationError(fmt::format("'{}' is no name of an interface", options.bridge));
    if (const std::string fault = fault_of_ports(options.ports); !fault.empty())
        throw CLI::ValidationError("--ports: " + fault);
    if (options.ports.size() > static_cast<size_t>(FRONT_PORT.max))
        throw refusal_t(fmt::format("--ports names {} ports, and no more than {} can be ruled", options.ports.size(),
                                    FRONT_PORT.max));
    rule(options);
    return EXIT_SUCCESS;
}

} // namespace

int main(int argc, char **argv)
{
    rule_options_t options;
    CLI::App app("Lets the spanning tree daemon rule a Linux bridge", "lvt_bridge");
    app.add_option("BRIDGE", options.bridge, "The bridge's interface")->required()->type_name("");
    app.add_option("--config", options.config,
                   "Settings, as lvt_rstpctl apply takes them; without it spanning tree "
                   "is on at all ports")
        ->type_name("FILE");
    const std::map<std::string, at_end_t> ends = {
        {"keep", at_end_t::keep}, {"block", at_end_t::block}, {"forward", at_end_t::forward}};
    app.add_option_function<std::string>(
           "--at-end", [&](const std::string &word) { options.at_end = ends.at(word); },
           "What the ports do when it ends: keep their states (default), block, or forward")
        ->type_name("keep|block|forward")
        ->check(CLI::IsMember({"keep", "block", "forward"}).description(""));
    app.add_flag("--rapid", options.rapid, "Ask the daemon to be rapid, as lvt_rstpd --rapid");
    app.add_option("--ports", options.ports, "The interfaces that are front ports 1, 2 ...")
        ->type_name("IF,IF,...")
        ->delimiter(',');
    app.add_option("--state-dir", options.state_dir, "Where it notes what it rules")
        ->type_name("DIR")
        ->capture_default_str();
    app.set_version_flag("--version", PROGRAM_VERSION, "Print the version and exit");
    app.footer(FOOTER);

    try {
        app.parse(argc, argv);
        return run(options);
    } catch (const CLI::ParseError &problem) {
        return app.exit(problem) == 0 ? EXIT_SUCCESS : EXIT_NOT_UNDERSTOOD;
    } catch (const faults_t &faults) {
        fmt::print(stderr, "{}\n", faults.what());
        return EXIT_NOT_UNDERSTOOD;
    } catch (const refused_t &problem) {
        return complain(problem, EXIT_REFUSED_BRIDGE);
    } catch (const refusal_t &problem) {
        return complain(problem, EXIT_REFUSED_BRIDGE);
    } catch (const ruled_already_t &problem) {
        return complain(problem, EXIT_REFUSED_BRIDGE);
    } catch (const std::exception &problem) {
        return complain(problem, EXIT_FAILURE);
    }
}
