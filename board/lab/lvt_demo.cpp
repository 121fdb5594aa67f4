// lvt_demo: a simulated switch cuts a loop with a neighbour that speaks the older spanning tree
// protocol, recovers from pulled cables and becomes the root, and a ring of four heals. It judges what it sees.
#include <cstdlib>
#include <exception>
#include <functional>
#include <map>
#include <string>

#include <fmt/format.h>
#include <fmt/ranges.h>

#include "board/lab/demo_lab.h"
#include "board/lab/demo_ring.h"
#include "board/lab/demo_stage.h"
#include "board/lab/demo_view.h"
#include "board/lab/within.h"
#include "board/lab/world.h"
#include "tools/about.h"
#include "tools/printable.h"

namespace {

using namespace lab;
using std::chrono::steady_clock;

constexpr char HELP[] =
    R"(lvt_demo: a simulated switch with the spanning tree daemon cuts a loop with a Linux kernel bridge,
survives pulled cables and becomes the root; then a lab of four switches in a ring heals. It takes
about a minute, asks nothing, and fits the terminal, from 60 columns on. Ctrl-C ends it; whatever
way it ends, nothing is left behind.

Options:
  --rapid      Play another one: three of our switches in a ring, by default and asked to be
               rapid, of which cables are pulled, and how long two hosts are apart. A minute, too
  --bridge     The same with Linux bridges that the daemon rules in the place of our switches
  --lab        Play the last act only, the lab
  -h,--help    Print this and exit
  --version    Print the version and exit

Exit status: 0 all that was seen was right; 1 something was not; 2 the command line was not
understood; 3 this machine cannot run it, and why.)";

constexpr char FAREWELL[] = "\nEnded early. Nothing of the demo is left behind.";

constexpr char TITLE[] = "A switch with a rapid spanning tree daemon (RSTP) meets a Linux kernel bridge (STP).";

constexpr char DRAWING[] = R"(
  host A                                      host B
    |                                           |
  port 3                                      port3
 +--------+                               +--------------+
 | our    | port 1 === cable 1 === port1  | Linux kernel |
 | switch |                               | bridge       |
 | (RSTP) | port 2 === cable 2 === port2  | (STP)        |
 +--------+                               +--------------+
)";

constexpr char LEGEND[] =
    "A line a second tells what our switch reports; out/in, where there is room for it, counts the BPDUs that a port "
    "has sent and received. The last column tells whether host B has answered host A's pings in that second. A line "
    "with an asterisk tells what is done and where, or what the kernel bridge says of itself. All this happens while "
    "you look on: the seconds vary from run to run and from machine to machine.";

constexpr int BEST_PRIORITY = 4096;

constexpr int FRAMES_TO_HOLD = 3; // a state counts when it lasts
constexpr auto PATIENCE = 25s;

bool is_port(const frame_t &frame, int number, int role, int state)
{
    return frame.port(number).role == role && frame.port(number).state == state;
}

/// Cable 1 leads to the root, the kernel bridge, and cable 2 is cut at our end.
bool loop_is_cut_here(const frame_t &frame)
{
    return is_port(frame, 1, ROLE_ROOT, HW_FORWARDING) && frame.kernel_forwards(1) &&
           is_port(frame, 2, ROLE_ALTERNATE, HW_DISCARDING) && frame.kernel_forwards(2);
}

/// Both our ends are open, and the kernel bridge has cut just one of its own.
bool loop_is_cut_there(const frame_t &frame)
{
    return is_port(frame, 1, ROLE_DESIGNATED, HW_FORWARDING) && is_port(frame, 2, ROLE_DESIGNATED, HW_FORWARDING) &&
           frame.kernel_forwards(1) != frame.kernel_forwards(2);
}

class demo_t {
public:
    /// Returns whether everything was right.
    bool play()
    {
        cut_the_loop();
        lose_the_root_port();
        become_the_root();
        lose_the_open_cable();
#ifdef LVT_LAB
        lab_.play(view_);
#endif

        view_.epilogue();
        view_.check(!stage_.pings().any_answered_twice(),
                    "no ping was ever answered twice: nothing went round in circles");
        view_.check(stage_.ours().daemon().running() && stage_.ours().board().running(),
                    "daemon and board are still running");
        return view_.summary(stage_.seconds());
    }

private:
    void cut_the_loop()
    {
        view_.act("The loop is cut",
                  "Two cables between two bridges are a loop, in which a broadcast would circle for ever. Spanning "
                  "tree is enabled on our ports 1 to 3, and both cables are plugged in. The kernel bridge has the "
                  "better priority, so it becomes the root, and our switch blocks its end of the second cable. The "
                  "kernel bridge speaks only the older STP: our ports fall back to that after 3 seconds, and the "
                  "kernel's own ports wait for two forward delays of 4 seconds before they forward.");
        set("port 1-3 --spanning-tree on");
        set(fmt::format("bridge --max-age {} --hello {} --forward-delay {}", MAX_AGE, HELLO_TIME, FORWARD_DELAY));
        plug(1);
        plug(2);
        const bool cut = watch([](const frame_t &f) { return loop_is_cut_here(f) && f.replies > 0; });

        view_.check(same_bridge(last_.ours.root, last_.kernel.bridge) && last_.kernel.root_port == 0,
                    "both bridges say that the kernel bridge is the root");
        view_.check(cut, "the loop is cut: port 1 is the root port and forwards, port 2 the alternate and discards");
        view_.check(chip_state(1) == HW_FORWARDING && chip_state(2) == HW_DISCARDING,
                    "the switch chip does the same: it forwards at port 1 and discards at port 2");
        view_.check(last_.port(1).stp_neighbour && last_.port(2).stp_neighbour,
                    "our ports have noticed that their neighbour speaks STP");
        view_.check(last_.replies > 0, "host A reaches host B");
    }

    void lose_the_root_port()
    {
        view_.act("The way to the root breaks",
                  "Cable 1 is pulled. Our switch knows another way to the root already, so its alternate port takes "
                  "over at once, without a forward delay, although the neighbour speaks STP. Then cable 1 comes back "
                  "and is used again, but the kernel's end of it takes its two forward delays.");
        const size_t answers = stage_.pings().answered();
        pull(1);
        const bool took_over = watch([](const frame_t &f) {
            return is_port(f, 1, ROLE_DISABLED, HW_DISABLED) && is_port(f, 2, ROLE_ROOT, HW_FORWARDING) &&
                   f.replies > 0;
        });
        const double silence = stage_.pings().longest_silence(answers);
        view_.check(took_over, "port 2 became the root port and forwards; host A reaches host B");
        view_.check(took_over && silence < FORWARD_DELAY,
                    fmt::format("the hosts were apart for {:.1f} s, less than one forward delay", silence));

        plug(1);
        const bool back = watch([](const frame_t &f) { return loop_is_cut_here(f) && f.replies > 0; });
        view_.check(back, "with cable 1 plugged in, all is as before");
    }

    void become_the_root()
    {
        view_.act("Our bridge becomes the root",
                  "Our switch gets the better priority. New settings make its ports try RSTP again, which the kernel "
                  "bridge ignores; after 3 seconds they speak STP, and it learns who is the root. As the root our "
                  "switch opens both its ports, and it is up to the kernel bridge to block its end of one cable.");
        set(fmt::format("bridge --priority {}", BEST_PRIORITY));
        const bool cut =
            watch([](const frame_t &f) { return f.ours.is_root() && loop_is_cut_there(f) && f.replies > 0; });

        view_.check(last_.ours.is_root() && last_.ours.bridge.prio == BEST_PRIORITY &&
                        same_bridge(last_.kernel.root, last_.ours.bridge),
                    "both bridges say that our bridge is the root");
        view_.check(cut, "the loop is cut at the kernel's end of one cable; host A reaches host B");
    }

    void lose_the_open_cable()
    {
        const int lost = last_.kernel_forwards(1) ? 1 : 2;
        const int other = 3 - lost;
        view_.act("The open cable breaks",
                  fmt::format("Cable {} is pulled, the one that carries the traffic. Now the kernel bridge has "
                              "to open its end of cable {}. With STP that takes two forward delays.",
                              lost, other));
        const size_t answers = stage_.pings().answered();
        pull(lost);
        const bool took_over = watch([&](const frame_t &f) {
            return is_port(f, lost, ROLE_DISABLED, HW_DISABLED) && is_port(f, other, ROLE_DESIGNATED, HW_FORWARDING) &&
                   f.kernel_forwards(other) && f.replies > 0;
        });
        const double silence = stage_.pings().longest_silence(answers);
        constexpr int ALLOWED = MAX_AGE + 2 * FORWARD_DELAY;
        view_.check(took_over, fmt::format("cable {} carries the traffic; host A reaches host B", other));
        view_.check(took_over && silence <= ALLOWED,
                    fmt::format("the hosts were apart for {:.1f} s; STP may take max age + 2 forward delays, {} s",
                                silence, ALLOWED));
    }

    /// Stores settings and puts them in force, as an operator of our switch does.
    void set(const std::string &words)
    {
        const std::string command = "lvt_rstpctl set " + words;
        view_.event(stage_.seconds(), "our switch", command);
        stage_.operate(command);
    }

    void pull(int cable)
    {
        stage_.cable(cable).pull();
        view_.event(stage_.seconds(), fmt::format("cable {}", cable), "pulled");
    }

    void plug(int cable)
    {
        stage_.cable(cable).plug();
        view_.event(stage_.seconds(), fmt::format("cable {}", cable), "plugged in");
    }

    unsigned chip_state(unsigned port) { return stage_.ours().client().port(port).state; }

    /// Shows frame after frame until `condition` has held for a while or the patience is over.
    /// Returns whether it held.
    bool watch(const std::function<bool(const frame_t &)> &condition)
    {
        const auto deadline = steady_clock::now() + PATIENCE;
        int held = 0;
        while (held < FRAMES_TO_HOLD && steady_clock::now() < deadline) {
            last_ = stage_.next_frame();
            view_.row(last_);
            held = condition(last_) ? held + 1 : 0;
        }
        return held == FRAMES_TO_HOLD;
    }

    demo_view_t view_{TITLE, DRAWING, LEGEND}; // before the stage is set, which takes a moment
#ifdef LVT_LAB
    lab_act_t lab_;
#endif
    stage_t stage_;
    frame_t last_ = {};
};

} // namespace

int main(int argc, char **argv)
{
    if (told_about(argc, argv, HELP))
        return EXIT_SUCCESS;
    const std::map<std::string, std::function<bool()>> others = {
        {"--rapid", play_rings},
        {"--bridge", play_bridges},
#ifdef LVT_LAB
        {"--lab", play_lab},
#endif
    };
    const auto other = others.find(argc == 2 ? argv[1] : "");
    if (argc > 1 && other == others.end()) {
        fmt::print(stderr, "lvt_demo does not know '{}'; --help tells what it knows\n",
                   printable(fmt::format("{}", fmt::join(argv + 1, argv + argc, " "))));
        return EXIT_NOT_UNDERSTOOD;
    }
    try {
        enter_world(argv, FAREWELL);
        return (other != others.end() ? other->second() : demo_t().play()) ? EXIT_SUCCESS : EXIT_FAILURE;
    } catch (const cannot_run_t &reason) {
        fmt::print(stderr, "{}", reason.what());
        return EXIT_UNTOLD;
    } catch (const std::exception &reason) {
        fmt::print(stderr, "lvt_demo: {}\n", reason.what());
        return EXIT_FAILURE;
    }
}
