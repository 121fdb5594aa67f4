/// How long rings of switches take in virtual time to settle, to heal and to mend, by default and with --rapid: a
/// table for docs/rapid.md, and its picture.
#include <algorithm>
#include <cmath>
#include <string>
#include <tuple>
#include <vector>

#include <CLI/CLI.hpp>
#include <fmt/format.h>
#include <fmt/os.h>

#include "sim/judge.h"
#include "sim/world.h"
#include "tools/about.h"
#include "tools/messages.h"

namespace {

using namespace sim;

constexpr unsigned LENGTHS[] = {3, 4, 5, 6, 8, 10, 12, 15, 18, 20};
constexpr moment_t QUIET = 3 * SECOND;
constexpr moment_t PATIENCE = 120 * SECOND;

/// Notes when the ports of a world were not as they should be for the last time.
class settling_t : public loop_watcher_t {
public:
    explicit settling_t(world_t &world) : loop_watcher_t(world), world_(world) { world.watch(this); }

    void event_done(node_id_t) override { news_ = true; }

    /// Milliseconds from now until all is right.
    double settle()
    {
        const moment_t begin = world_.now();
        moment_t wrong = begin;
        bool is_wrong = news_ = true;
        while (world_.now() < begin + PATIENCE && (is_wrong || world_.now() < wrong + QUIET)) {
            if (news_)
                is_wrong = !wrong_ports(world_).empty();
            news_ = false;
            if (is_wrong)
                wrong = world_.now();
            world_.run_for(MILLISECOND / 4);
        }
        return static_cast<double>(wrong - begin) / MILLISECOND;
    }

private:
    world_t &world_;
    bool news_ = true;
};

struct times_t {
    unsigned length;
    double settle, heal, mend; ///< ms; of heal and mend the longest over all cables
    bool ring;                 ///< data could go round at some moment
};

times_t measure(unsigned length, bool rapid)
{
    world_t world(length);
    settling_t settling(world);
    for (unsigned i = 0; i < length; i++)
        world.add_switch();
    for (unsigned i = 0; i < length; i++)
        world.pull(world.connect({i, 1}, {(i + 1) % length, 2}));
    for (unsigned i = 0; i < length; i++) {
        world.device(i).rapid = rapid;
        world.power_on(i, world.random().below(SECOND));
        lvt_rstp_system_config_t bridge = LVT_RSTP_SYSTEM_DEFAULTS;
        bridge.bridge_priority = i ? 32768 : 4096;
        bridge.max_age = 23; // so that what a root tells reaches the end of a line of 20
        world.control(i, system_config_message(bridge));
        port_configs_t ports = default_port_configs();
        for (const size_t port : {1, 2}) {
            ports[port].adminEnable = 1;
            ports[port].adminEdge = 0;
        }
        world.control(i, port_config_message(ports));
    }
    for (cable_id_t cable = 0; cable < length; cable++)
        world.plug(cable);

    times_t times = {.length = length, .settle = settling.settle(), .heal = 0, .mend = 0, .ring = false};
    for (cable_id_t cable = 0; cable < length; cable++) {
        world.pull(cable);
        times.heal = std::max(times.heal, settling.settle());
        world.plug(cable);
        times.mend = std::max(times.mend, settling.settle());
    }
    times.ring = !settling.ring().empty();
    return times;
}

std::string span(double ms) { return ms < 1000 ? fmt::format("{:.1f} ms", ms) : fmt::format("{:.1f} s", ms / 1000); }

/// Heal times over the rings' lengths, the times in powers of ten.
void draw(const std::string &path, const std::vector<times_t> &slow, const std::vector<times_t> &quick)
{
    const auto x = [](unsigned length) { return 70 + 30.0 * length; };
    const auto y = [](double ms) { return 330 - 60 * std::log10(std::max(ms, 0.5)); };
    auto file = fmt::output_file(path);
    file.print(
        "<svg xmlns=\"http://www.w3.org/2000/svg\" viewBox=\"0 0 720 400\" font-family=\"sans-serif\" "
        "font-size=\"13\">\n<rect width=\"720\" height=\"400\" fill=\"white\"/>\n"
        "<text x=\"70\" y=\"24\">Time until a ring has healed after its worst cut, links of 1 ms</text>\n");
    for (const double ms : {1.0, 10.0, 100.0, 1000.0, 10000.0, 100000.0})
        file.print(
            "<path d=\"M100 {0:.0f}H690\" stroke=\"#ddd\"/><text x=\"92\" y=\"{1:.0f}\" "
            "text-anchor=\"end\">{2:g} {3}</text>\n",
            y(ms), y(ms) + 4, ms < 1000 ? ms : ms / 1000, ms < 1000 ? "ms" : "s");
    for (const unsigned length : LENGTHS)
        file.print("<text x=\"{:.0f}\" y=\"355\" text-anchor=\"middle\">{}</text>\n", x(length), length);
    file.print("<text x=\"395\" y=\"380\" text-anchor=\"middle\">switches</text>\n");
    for (const auto &[times, color, name] : {std::tuple(&slow, "#b04020", "default"), {&quick, "#2060a0", "--rapid"}}) {
        std::string line;
        for (const times_t &each : *times) {
            line += fmt::format("{}{:.1f} {:.1f}", line.empty() ? "M" : "L", x(each.length), y(each.heal));
            file.print("<circle cx=\"{:.1f}\" cy=\"{:.1f}\" r=\"3.5\" fill=\"{}\"/>\n", x(each.length), y(each.heal),
                       color);
        }
        file.print(
            "<path d=\"{}\" fill=\"none\" stroke=\"{}\" stroke-width=\"2\"/>\n"
            "<text x=\"600\" y=\"{:.0f}\" fill=\"{}\">{}</text>\n",
            line, color, y(times->back().heal) - 12, color, name);
    }
    file.print("</svg>\n");
}

} // namespace

int main(int argc, char **argv)
{
    std::string picture;
    CLI::App app("Virtual times of rings of switches, by default and with --rapid", "bench_ring_times");
    app.add_option("--svg", picture, "Draw them into this file, too")->type_name("FILE");
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError &error) {
        return app.exit(error) == 0 ? EXIT_SUCCESS : EXIT_NOT_UNDERSTOOD;
    }

    std::vector<times_t> slow, quick;
    fmt::print(
        "| switches | settle | heal | mend | settle, rapid | heal, rapid | mend, rapid |\n"
        "|---|---|---|---|---|---|---|\n");
    bool ring = false;
    for (const unsigned length : LENGTHS) {
        const times_t &s = slow.emplace_back(measure(length, false));
        const times_t &q = quick.emplace_back(measure(length, true));
        fmt::print("| {} | {} | {} | {} | {} | {} | {} |\n", length, span(s.settle), span(s.heal), span(s.mend),
                   span(q.settle), span(q.heal), span(q.mend));
        ring = ring || s.ring || q.ring;
    }
    if (!picture.empty())
        draw(picture, slow, quick);
    if (ring)
        fmt::print(stderr, "Data could go round\n");
    return ring ? EXIT_FAILURE : EXIT_SUCCESS;
}
