#include "board/lab/demo_lab.h"

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <sstream>
#include <thread>
#include <utility>

#include <fmt/format.h>

#include "board/lab/demo_stage.h"
#include "board/lab/process.h"

namespace lab {

namespace {

constexpr char LAB_TITLE[] = "Four switches with a rapid spanning tree daemon (RSTP) in a ring: a lab.";

constexpr char LAB_DRAWING[] = R"(
  host h1 - sw1 ---- sw2
             |        |
            sw4 ---- sw3 - host h2
)";

constexpr char LAB_LEGEND[] =
    "What is typed, and what it says. Times are milliseconds since the command. All this happens while you look on.";

/// A ring of four switches in a lab.
class ring_lab_t {
public:
    /// view  where it is shown; nullptr: nowhere
    ring_lab_t(std::string name, demo_view_t *view) : name_(std::move(name)), view_(view) {}

    /// Stops at what is not as it should be.
    ring_course_t go_through(const std::string &up)
    {
        type(up);
        type(fmt::format("lvt_lab set sw1 bridge.max_age={} bridge.hello_time={} bridge.forward_delay={}", MAX_AGE,
                         HELLO_TIME, FORWARD_DELAY));
        expect("expect rest\nexpect root is sw1\nexpect 3-4 is cut\nexpect h1 reaches h2\n");
        type("lvt_lab tree");
        course_.pulled = seconds_apart(type("lvt_lab pull 1-2"));
        expect("expect 1-2 is pulled\nexpect 3-4 carries\nexpect h1 reaches h2\n");
        type("lvt_lab tree");
        course_.plugged = seconds_apart(type("lvt_lab plug 1-2"));
        expect("expect rest\nexpect 3-4 is cut\nexpect h1 reaches h2\n");
        type("lvt_lab down");
        return course_;
    }

private:
    std::string type(const std::string &command)
    {
        if (view_ && course_.trouble.empty())
            view_->typed(command);
        return run_lab(command, {}, [this](const std::string &line) {
            if (view_)
                view_->said(line);
        });
    }

    void expect(const std::string &script) { run_lab("lvt_lab run -", script, {}); }

    std::string run_lab(const std::string &command, const std::string &input,
                        const std::function<void(const std::string &)> &hear)
    {
        if (!course_.trouble.empty())
            return {};
        command_t words = {.argv = {}, .environment = {"LVT_LAB=" + name_}};
        std::istringstream stream(command);
        for (std::string word; stream >> word;)
            words.argv.push_back(words.argv.empty() ? program("LVT_LAB_PROGRAM", "lvt_lab") : word);
        const outcome_t outcome = run(words, input, hear);
        if (outcome.exit_code != EXIT_SUCCESS) {
            course_.trouble = command;
            course_.told = hear && view_ ? "" : outcome.output;
        }
        return outcome.output;
    }

    /// What the lab tells of its hosts after a change: how long they were apart. Nothing when they are.
    static std::optional<double> seconds_apart(const std::string &told)
    {
        std::optional<double> longest;
        std::istringstream lines(told);
        for (std::string line; std::getline(lines, line);) {
            double ms = 0;
            const size_t at = line.find(" after ");
            if (line.find("no ping between") != std::string::npos)
                longest = 0;
            else if (line.find("first ping through") != std::string::npos && at != std::string::npos &&
                     sscanf(&line[at], " after %lf ms", &ms) == 1)
                longest = std::max(longest.value_or(0), ms / 1000);
            else if (line.find("reach each other") != std::string::npos)
                return {};
        }
        return longest;
    }

    const std::string name_;
    demo_view_t *const view_;
    ring_course_t course_;
};

std::string apart_cell(const std::optional<double> &seconds)
{
    return !seconds ? "?" : *seconds < 0.01 ? "< 0.01 s" : fmt::format("{:.2f} s", *seconds);
}

} // namespace

lab_act_t::lab_act_t()
{
    // Nobody waits for it when the demo fails: it ends with the world.
    std::promise<ring_course_t> course;
    by_default_ = course.get_future();
    std::thread([course = std::move(course)]() mutable {
        try {
            course.set_value(ring_lab_t("by-default", nullptr).go_through("lvt_lab up ring 4 --lab by-default"));
        } catch (...) {
            course.set_exception(std::current_exception());
        }
    }).detach();
}

void lab_act_t::play(demo_view_t &view)
{
    view.act(
        "A lab of four switches in a ring",
        fmt::format("One command makes whole networks of such switches, and others pull their cables and tell what "
                    "follows. Here a ring is asked to be rapid. Another one, by default, has gone through the same "
                    "since the demo began, for it takes its time: the forward delay of both is {} seconds.",
                    FORWARD_DELAY),
        false);
    const ring_course_t rapid = ring_lab_t("ring-4", &view).go_through("lvt_lab up ring 4 --rapid");
    const ring_course_t usual = by_default_.get();

    fmt::print("\n{:30} {:>12} {:>12}\n", "The hosts were apart", "by default", "rapid");
    fmt::print("{:30} {:>12} {:>12}\n", "when 1-2 was pulled", apart_cell(usual.pulled), apart_cell(rapid.pulled));
    fmt::print("{:30} {:>12} {:>12}\n", "when 1-2 was plugged in", apart_cell(usual.plugged),
               apart_cell(rapid.plugged));
    const auto check = [&](const char *ring, const ring_course_t &course, double limit, const std::string &why) {
        fmt::print("{}", course.told);
        view.check(course.trouble.empty(), course.trouble.empty()
                                               ? fmt::format("the ring {} cut its loop, healed, and cut it again", ring)
                                               : fmt::format("the ring {}: {}", ring, course.trouble));
        const double apart = std::max(course.pulled.value_or(INFINITY), course.plugged.value_or(INFINITY));
        view.check(apart < limit,
                   fmt::format("the hosts of the ring {} were never apart for {} s, {}", ring, limit, why));
    };
    check("by default", usual, MAX_AGE + 2 * FORWARD_DELAY, "which max age and two forward delays allow");
    check("that is rapid", rapid, HELLO_TIME, "a hello time");
}

bool play_lab()
{
    const auto began = std::chrono::steady_clock::now();
    demo_view_t view(LAB_TITLE, LAB_DRAWING, LAB_LEGEND);
    lab_act_t().play(view);
    return view.summary(
        static_cast<int>(std::chrono::round<std::chrono::seconds>(std::chrono::steady_clock::now() - began).count()));
}

} // namespace lab
