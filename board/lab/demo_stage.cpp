#include "board/lab/demo_stage.h"

#include <algorithm>
#include <cstdlib>
#include <sstream>
#include <stdexcept>
#include <string_view>
#include <utility>

#include <fcntl.h>
#include <fmt/format.h>
#include <sys/stat.h>

#include "board/lab/within.h"

namespace lab {

namespace {

constexpr char PING_FILE[] = "/tmp/ping";
constexpr double PING_PAUSE = 0.2; ///< seconds

} // namespace

bool frame_t::kernel_forwards(int port) const
{
    const auto found = kernel.ports.find(fmt::format("port{}", port));
    return found != kernel.ports.end() && found->second.state == "forwarding";
}

void pings_t::start(const host_t &from, const host_t &to, double pause)
{
    node_ = &from.node();
    pause_ = pause;
    const fd_t file(checked(open(node_->path(PING_FILE).c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0644), PING_FILE));
    process_ = node_->start({.argv = {"ping", "-n", "-i", std::to_string(pause), to.address()}, .out = file.number()});
}

/// The numbers of the answered pings, in the order of the answers.
std::vector<int> pings_t::numbers() const
{
    constexpr std::string_view NUMBER = "icmp_seq=";
    const std::string text = node_->read(PING_FILE);
    std::vector<int> numbers;
    for (size_t at = text.find("bytes from"); at != std::string::npos; at = text.find("bytes from", at + 1)) {
        const size_t number = text.find(NUMBER, at);
        if (number != std::string::npos)
            numbers.push_back(std::atoi(&text[number + NUMBER.size()]));
    }
    return numbers;
}

double pings_t::longest_silence(size_t known) const
{
    const std::vector<int> all = numbers();
    int longest = 1;
    for (size_t i = std::max<size_t>(known, 1); i < all.size(); i++)
        longest = std::max(longest, all[i] - all[i - 1]);
    return (longest - 1) * pause_;
}

bool pings_t::any_answered_twice() const { return node_->read(PING_FILE).find("DUP!") != std::string::npos; }

stage_t::stage_t()
    : ours_({.name = "our switch", .number = 1}),
      kernel_("kernel bridge", 2, {KERNEL_PRIORITY, MAX_AGE, HELLO_TIME, FORWARD_DELAY}), a_("host A", 3, "10.0.0.1"),
      b_("host B", 4, "10.0.0.2"), cable1_(ours_.port(1), kernel_port(1)), cable2_(ours_.port(2), kernel_port(2)),
      cable_a_(ours_.port(3), {&a_.node(), "eth0", a_.node().mac()}),
      cable_b_(kernel_port(3), {&b_.node(), "eth0", b_.node().mac()})
{
    require_program(program("LVT_RSTPCTL", "lvt_rstpctl"));
    cable1_.pull();
    cable2_.pull();
    for (const char *port : {"port1", "port2", "port3"})
        kernel_.add_port(port);
    a_.set_address();
    b_.set_address();
    pings_.start(a_, b_, PING_PAUSE);
    ours_.start();
    next_frame(); // the demo's seconds begin with one of the daemon's
    began_ = std::chrono::steady_clock::now();
}

cable_end_t stage_t::kernel_port(int number) const
{
    return {&kernel_.node(), fmt::format("port{}", number), kernel_.node().mac(number)};
}

int stage_t::seconds() const
{
    const auto passed = std::chrono::steady_clock::now() - began_;
    return static_cast<int>(std::chrono::round<std::chrono::seconds>(passed).count());
}

void stage_t::operate(const std::string &command)
{
    std::vector<std::string> argv;
    std::istringstream words(command);
    for (std::string word; words >> word;)
        argv.push_back(word);
    argv.front() = program("LVT_RSTPCTL", argv.front().c_str());
    const outcome_t outcome = ours_.node().run({.argv = argv});
    if (outcome.exit_code != 0)
        throw std::runtime_error(
            fmt::format("{} ended with {} and said:\n{}", command, outcome.exit_code, outcome.output));
}

frame_t stage_t::next_frame()
{
    const std::string path = ours_.node().path(STATUS_FILE);
    std::optional<bridge_status_t> status;
    const bool came = within(5s, [&] {
        struct stat file;
        if (stat(path.c_str(), &file) != 0)
            return false;
        const bool same = file.st_mtim.tv_sec == file_time_.tv_sec && file.st_mtim.tv_nsec == file_time_.tv_nsec;
        if (!same)
            status = ours_.status();
        if (status)
            file_time_ = file.st_mtim;
        return status.has_value();
    });
    if (!came)
        throw std::runtime_error("the daemon does not rewrite its status file any more\n" + ours_.story());

    const size_t answers = pings_.answered();
    const size_t replies = answers - std::exchange(answers_, answers);
    return {seconds(), *status, kernel_.view(), static_cast<int>(replies)};
}

} // namespace lab
