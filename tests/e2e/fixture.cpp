#include "fixture.h"

#include <iostream>
#include <sstream>
#include <stdexcept>

#include <fcntl.h>
#include <fmt/format.h>
#include <sys/ioctl.h>
#include <sys/stat.h>

#include "platform/messages.h"
#include "tools/pipe.h"

namespace e2e {

namespace {

constexpr auto TICK_PATIENCE = SOON; ///< for one tick

[[noreturn]] void give_up(const lab::switch_t &device, const std::string &what)
{
    throw std::runtime_error(fmt::format("{}: {}", device.node().name(), what));
}

void wait_until_taken(const lab::switch_t &device, const std::string &pipe)
{
    const auto taken = eventually(
        SOON, [&] { return octets_waiting(device, pipe); }, 0, 1ms);
    if (!taken)
        give_up(device, fmt::format("{} was not read {}", pipe, taken.message()));
}

void command(const lab::switch_t &device, const std::string &text)
{
    const auto *octets = reinterpret_cast<const uint8_t *>(text.data());
    const pipe_result_t result = write_to_empty_pipe(device.node().path(RSTP_DBG_IF_PIPE), {octets, text.size()}, SOON);
    if (!result.ok())
        give_up(device, result.message);
    wait_until_taken(device, RSTP_DBG_IF_PIPE);
}

/// Waits until what the daemon took before is handled: only then it reads this, which is no command.
void settle(const lab::switch_t &device) { command(device, "\n"); }

struct stamp_t {
    timespec time;
    ino_t file;
    bool operator==(const stamp_t &other) const
    {
        return time.tv_sec == other.time.tv_sec && time.tv_nsec == other.time.tv_nsec && file == other.file;
    }
};

stamp_t status_stamp(const lab::switch_t &device)
{
    struct stat status = {};
    stat(device.node().path(lab::STATUS_FILE).c_str(), &status);
    return {status.st_mtim, status.st_ino};
}

event_t parse_event(const std::string &line)
{
    const size_t bar = line.find("| ");
    std::istringstream keys(line.substr(0, bar));
    event_t event = {0, {}, {}, bar == std::string::npos ? "" : line.substr(bar + 2)};
    keys >> event.seconds >> event.topic;
    for (std::string word; keys >> word;)
        if (const size_t equals = word.find('='); equals != std::string::npos)
            event.values[word.substr(0, equals)] = word.substr(equals + 1);
    return event;
}

} // namespace

lab::switch_t &switches_test_t::add_switch(lab::switch_settings_t settings)
{
    const int place = static_cast<int>(switches_.size()) + 1;
    if (settings.number == 1)
        settings.number = place;
    if (settings.name == lab::switch_settings_t().name)
        settings.name = fmt::format("switch {}", place);
    return switches_.emplace_back(std::move(settings));
}

void switches_test_t::TearDown()
{
    for (const lab::switch_t &device : switches_)
        for (const char *file : {lab::DAEMON_ERROR_FILE, lab::BOARD_OUTPUT_FILE}) {
            const std::string text = device.node().read(file);
            EXPECT_EQ(text.find("Sanitizer"), std::string::npos) << text;
            EXPECT_EQ(text.find("runtime error: "), std::string::npos) << text;
        }
    if (HasFailure())
        for (const lab::switch_t &device : switches_)
            std::cout << device.story() << std::flush;
}

void serve(const lab::switch_t &device, std::span<const uint8_t> message)
{
    device.send(message);
    serve_all(device);
}

void serve_all(const lab::switch_t &device)
{
    // A debug text is served before the message that came with it, so it has to come later.
    wait_until_taken(device, RSTP_IF_PIPE);
    settle(device);
}

std::string ask(const lab::switch_t &device, const std::string &text)
{
    const size_t before = device.node().read(lab::CONSOLE_FILE).size();
    command(device, text);
    settle(device);
    return device.node().read(lab::CONSOLE_FILE).substr(before);
}

size_t octets_waiting(const lab::switch_t &device, const std::string &pipe)
{
    const fd_t fd(lab::checked(open(device.node().path(pipe).c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC), pipe));
    int count = 0;
    lab::checked(ioctl(fd.number(), FIONREAD, &count), pipe);
    return static_cast<size_t>(count);
}

testing::AssertionResult ticks(const lab::switch_t &device, int count)
{
    stamp_t seen = status_stamp(device);
    for (int i = 0; i < count; i++) {
        if (!lab::within(
                TICK_PATIENCE, [&] { return !(status_stamp(device) == seen); }, 5ms))
            return testing::AssertionFailure() << i << " of " << count << " ticks came";
        seen = status_stamp(device);
    }
    return testing::AssertionSuccess();
}

testing::AssertionResult status_within(const lab::switch_t &device, std::chrono::milliseconds limit,
                                       const std::function<bool(const lab::bridge_status_t &)> &condition)
{
    std::string text;
    const auto is_so = [&] {
        text = device.node().read(lab::STATUS_FILE);
        const auto status = lab::parse_status(text);
        return status && condition(*status);
    };
    if (lab::within(limit, is_so))
        return testing::AssertionSuccess();
    return testing::AssertionFailure() << "for " << limit.count() << " ms; last seen:\n" << text;
}

std::vector<event_t> diary(const lab::switch_t &device, const std::string &topic)
{
    std::istringstream lines(device.node().read(lab::BOARD_LOG_FILE));
    std::vector<event_t> events;
    for (std::string line; std::getline(lines, line) && !lines.eof();)
        if (event_t event = parse_event(line); topic.empty() || event.topic == topic)
            events.push_back(std::move(event));
    return events;
}

size_t count_of(const std::string &text, const std::string &part)
{
    size_t count = 0;
    for (size_t at = text.find(part); at != std::string::npos; at = text.find(part, at + part.size()))
        count++;
    return count;
}

} // namespace e2e
