#include "board/lvt_lab/wires.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <cstring>
#include <mutex>
#include <queue>
#include <system_error>
#include <thread>
#include <tuple>

#include <fmt/format.h>
#include <net/if.h>
#include <sys/epoll.h>
#include <sys/eventfd.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <sys/timerfd.h>
#include <unistd.h>

#include "board/lab/process.h"
#include "lvt_board/wires.h"
#include "tools/bpdu_frame.h"

namespace lvt_lab {

namespace {

constexpr unsigned FRAMES_PER_TURN = 64; // then the other ends have their turn
constexpr size_t IN_FLIGHT_MAX = 4096;   // of an end: a slow cable has no room for more
constexpr uint64_t WAKE_TIMER = UINT64_MAX, WAKE_EVENT = UINT64_MAX - 1;

struct flight_t {
    moment_t arrival;
    uint64_t number; ///< frames that arrive together keep their order
    size_t cable;
    unsigned from;
    uint64_t generation; ///< of the cable, when it set out: what was in a cable that is pulled is gone
    wire_offload_t offload;
    std::vector<uint8_t> octets;

    bool operator<(const flight_t &other) const
    {
        return std::tie(other.arrival, other.number) < std::tie(arrival, number);
    }
};

struct side_t {
    explicit side_t(uint64_t seed) : way(seed) {}
    fd_t socket;
    bool powered = true;
    way_t way; ///< of what this end sends
    traffic_t traffic;
    size_t in_flight = 0;
};

struct cable_t {
    std::array<side_t, 2> sides;
    bool plugged = false;
    uint64_t generation = 0;

    bool has_link() const { return plugged && sides[0].powered && sides[1].powered; }
};

void set_up(const fd_t &any_socket, const std::string &name, bool up)
{
    ifreq request = {};
    name.copy(request.ifr_name, IFNAMSIZ - 1);
    lab::checked(ioctl(any_socket.number(), SIOCGIFFLAGS, &request), name);
    const auto flags = static_cast<short>(up ? request.ifr_flags | IFF_UP : request.ifr_flags & ~IFF_UP);
    if (flags == request.ifr_flags)
        return;
    request.ifr_flags = flags;
    lab::checked(ioctl(any_socket.number(), SIOCSIFFLAGS, &request), name);
}

} // namespace

struct wires_t::state_t {
    explicit state_t(observer_t looks) : observer(std::move(looks)) {}

    observer_t observer;
    std::vector<cable_t> cables;
    std::priority_queue<flight_t> flights;
    uint64_t next_number = 0;
    std::unique_ptr<wire_frame_t> frame = std::make_unique<wire_frame_t>();
    mutable std::mutex mutex; ///< of all the above
    std::mutex plugging;      ///< one cable after the other: the kernel's part takes its time
    fd_t any_socket, epoll, timer, wake;
    std::atomic<bool> ends = false;
    std::thread thread;

    void watch(const fd_t &fd, uint64_t data) const
    {
        epoll_event event = {.events = EPOLLIN, .data = {.u64 = data}};
        lab::checked(epoll_ctl(epoll.number(), EPOLL_CTL_ADD, fd.number(), &event), "epoll");
    }

    void open()
    {
        any_socket = fd_t(lab::checked(socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0), "socket"));
        epoll = fd_t(lab::checked(epoll_create1(EPOLL_CLOEXEC), "epoll"));
        timer = fd_t(lab::checked(timerfd_create(CLOCK_MONOTONIC, TFD_CLOEXEC | TFD_NONBLOCK), "timer"));
        wake = fd_t(lab::checked(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK), "eventfd"));
        watch(timer, WAKE_TIMER);
        watch(wake, WAKE_EVENT);
        for (size_t i = 0; i < cables.size(); i++)
            for (const unsigned end : {0u, 1u}) {
                const std::string name = interface(i, end);
                const auto index = static_cast<int>(if_nametoindex(name.c_str()));
                if (index == 0)
                    lab::checked(-1, name);
                cables[i].sides[end].socket = wire_open(index);
                watch(cables[i].sides[end].socket, 2 * i + end);
            }
        thread = std::thread([this] { run(); });
    }

    void close()
    {
        if (!thread.joinable())
            return;
        ends = true;
        wake_up();
        thread.join();
    }

    void wake_up() const
    {
        const uint64_t one = 1;
        [[maybe_unused]] const ssize_t told = write(wake.number(), &one, sizeof one);
    }

    void run()
    {
        std::array<epoll_event, 64> events;
        while (!ends) {
            const int count = epoll_wait(epoll.number(), events.data(), static_cast<int>(events.size()), -1);
            const std::lock_guard lock(mutex);
            for (int i = 0; i < count; i++) {
                const uint64_t source = events[static_cast<size_t>(i)].data.u64;
                uint64_t ignored;
                if (source == WAKE_TIMER) [[maybe_unused]]
                    const ssize_t got = read(timer.number(), &ignored, sizeof ignored);
                else if (source == WAKE_EVENT) [[maybe_unused]]
                    const ssize_t got = read(wake.number(), &ignored, sizeof ignored);
                else
                    receive(source / 2, source % 2);
            }
            deliver();
            set_timer();
        }
    }

    void receive(size_t cable, unsigned from)
    {
        for (unsigned i = 0; i < FRAMES_PER_TURN; i++) {
            if (wire_receive(cables[cable].sides[from].socket, *frame) != wire_result_t::frame)
                return;
            set_out(cable, from, frame->offload, frame->span());
        }
    }

    void set_out(size_t id, unsigned from, const wire_offload_t &offload, std::span<const uint8_t> octets)
    {
        cable_t &cable = cables[id];
        side_t &side = cable.sides[from];
        if (!cable.has_link())
            return;
        side.traffic.frames++;
        side.traffic.octets += octets.size();
        side.traffic.bpdus += is_bpdu(octets);
        const arrivals_t arrivals = side.way.set_out(std::chrono::steady_clock::now());
        if (arrivals.count == 0 || side.in_flight >= IN_FLIGHT_MAX) {
            side.traffic.lost++;
            return;
        }
        if (observer.sent)
            observer.sent(id, from, octets);
        for (unsigned i = 0; i < arrivals.count; i++) {
            flights.push(
                {arrivals.at[i], next_number++, id, from, cable.generation, offload, {octets.begin(), octets.end()}});
            side.in_flight++;
        }
    }

    void deliver()
    {
        const moment_t now = std::chrono::steady_clock::now();
        while (!flights.empty() && flights.top().arrival <= now) {
            const flight_t &flight = flights.top();
            cable_t &cable = cables[flight.cable];
            const unsigned to = 1 - flight.from;
            cable.sides[flight.from].in_flight--;
            if (cable.has_link() && flight.generation == cable.generation &&
                !(observer.arrived && observer.arrived(flight.cable, to, flight.octets)))
                wire_send(cable.sides[to].socket, flight.offload, flight.octets);
            flights.pop();
        }
    }

    void set_timer() const
    {
        itimerspec when = {};
        if (!flights.empty()) {
            const auto at =
                std::chrono::duration_cast<std::chrono::nanoseconds>(flights.top().arrival.time_since_epoch());
            when.it_value.tv_sec = at.count() / 1'000'000'000;
            when.it_value.tv_nsec = at.count() % 1'000'000'000;
        }
        timerfd_settime(timer.number(), TFD_TIMER_ABSTIME, &when, nullptr);
    }

    /// Makes a change that may give a cable link or take it away; the nodes see it by their interfaces.
    template <typename change_t>
    void change(size_t id, change_t make)
    {
        const std::lock_guard order(plugging);
        bool link;
        {
            const std::lock_guard lock(mutex);
            make(cables[id]);
            link = cables[id].has_link();
            cables[id].generation += !link;
        }
        for (const unsigned end : {0u, 1u})
            set_up(any_socket, interface(id, end), link);
    }
};

wires_t::wires_t(size_t cables, uint64_t seed, observer_t observer)
    : state_(std::make_unique<state_t>(std::move(observer)))
{
    for (size_t i = 0; i < cables; i++)
        state_->cables.push_back({{side_t(seed + 2 * i), side_t(seed + 2 * i + 1)}});
}

wires_t::~wires_t() { state_->close(); }

std::string wires_t::interface(size_t cable, unsigned end) { return fmt::format("c{}{}", cable, end ? 'b' : 'a'); }

void wires_t::begin() { state_->open(); }

void wires_t::plug(size_t cable, bool plugged)
{
    state_->change(cable, [&](cable_t &it) { it.plugged = plugged; });
}

void wires_t::power(size_t cable, unsigned end, bool powered)
{
    state_->change(cable, [&](cable_t &it) { it.sides[end].powered = powered; });
}

bool wires_t::plugged(size_t cable) const
{
    const std::lock_guard lock(state_->mutex);
    return state_->cables[cable].plugged;
}

bool wires_t::has_link(size_t cable) const
{
    const std::lock_guard lock(state_->mutex);
    return state_->cables[cable].has_link();
}

void wires_t::set_quality(size_t cable, unsigned from, const topology::quality_t &quality)
{
    const std::lock_guard lock(state_->mutex);
    state_->cables[cable].sides[from].way.quality = quality;
}

topology::quality_t wires_t::quality(size_t cable, unsigned from) const
{
    const std::lock_guard lock(state_->mutex);
    return state_->cables[cable].sides[from].way.quality;
}

traffic_t wires_t::traffic(size_t cable, unsigned from) const
{
    const std::lock_guard lock(state_->mutex);
    return state_->cables[cable].sides[from].traffic;
}

void wires_t::put_in(size_t cable, unsigned from, std::span<const uint8_t> frame)
{
    {
        const std::lock_guard lock(state_->mutex);
        state_->set_out(cable, from, wire_offload_t{}, frame);
    }
    state_->wake_up();
}

} // namespace lvt_lab
