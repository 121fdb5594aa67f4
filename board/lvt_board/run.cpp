#include "lvt_board/run.h"

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <functional>
#include <system_error>

#include <fmt/format.h>
#include <poll.h>
#include <sys/prctl.h>
#include <sys/signalfd.h>

#include "lvt_board/listener.h"

namespace {

constexpr int LINK_LOOK_MS = 200; // the kernel may announce a change up to a second late

fd_t signals_open()
{
    sigset_t signals;
    sigemptyset(&signals);
    for (const int number : {SIGINT, SIGTERM, SIGHUP})
        sigaddset(&signals, number);
    fd_t made(signalfd(-1, &signals, SFD_CLOEXEC | SFD_NONBLOCK));
    if (!made || sigprocmask(SIG_BLOCK, &signals, nullptr) != 0)
        throw std::system_error(errno, std::generic_category(), "cannot watch for signals");
    return made;
}

/// What one turn of the loop waits for, and what each of these calls.
class waiting_t {
public:
    void add(int fd, std::function<void()> ready)
    {
        polled_.push_back({fd, POLLIN, 0});
        ready_.push_back(std::move(ready));
    }

    void run(int timeout_ms)
    {
        if (poll(polled_.data(), polled_.size(), timeout_ms) <= 0)
            return;
        for (std::size_t i = 0; i < polled_.size(); i++)
            if (polled_[i].revents != 0)
                ready_[i]();
    }

private:
    std::vector<pollfd> polled_;
    std::vector<std::function<void()>> ready_;
};

} // namespace

void board_run(const run_options_t &options)
{
    if (options.die_with_parent)
        prctl(PR_SET_PDEATHSIG, SIGTERM);
    const fd_t signals = signals_open();
    refuse_second_board(options.socket);

    const board_clock_t clock;
    event_log_t log(clock);
    if (!options.log.empty())
        log.open(options.log);
    board_t board(clock, log, options.speeds);
    listener_t listener(options.socket);
    log.line("board", "ready=1 socket={}", options.socket);
    fmt::print("lvt_board: ready at {}\n", options.socket);
    std::fflush(stdout);

    bool ended = false;
    auto next_look = clock.now();
    while (!ended) {
        if (clock.now() >= next_look) {
            board.look_at_links();
            next_look = clock.now() + std::chrono::milliseconds(LINK_LOOK_MS);
        }

        waiting_t waiting;
        waiting.add(signals.number(), [&] { ended = true; });
        waiting.add(board.link_events.number(), [&] { board.look_at_links(); });
        for (unsigned i = 0; i < board.plugs.size(); i++)
            if (board.plugs[i].wire)
                waiting.add(board.plugs[i].wire.number(), [&, i] { board.receive(i); });
        if (!board.faults.pipes_unread) {
            waiting.add(board.pipes.lacp.pipe.number(), [&] { board.read_lacp(); });
            waiting.add(board.pipes.mux.pipe.number(), [&] { board.read_mux(); });
        }
        for (fd_t &caller : listener.callers)
            waiting.add(caller.number(), [&] {
                if (!serve(board, caller))
                    caller = fd_t();
            });
        // Last, since a newcomer moves the list of callers.
        waiting.add(listener.number(), [&] { listener.accept_caller(); });

        waiting.run(LINK_LOOK_MS);
        std::erase_if(listener.callers, [](const fd_t &caller) { return !caller; });
    }
    log.line("board", "ready=0 | ends");
}
