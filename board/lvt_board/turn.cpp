#include "lvt_board/turn.h"

#include <cerrno>
#include <csignal>
#include <system_error>

#include <sys/signalfd.h>

fd_t signals_open(std::initializer_list<int> numbers)
{
    sigset_t signals;
    sigemptyset(&signals);
    for (const int number : numbers)
        sigaddset(&signals, number);
    fd_t made(signalfd(-1, &signals, SFD_CLOEXEC | SFD_NONBLOCK));
    if (!made || sigprocmask(SIG_BLOCK, &signals, nullptr) != 0)
        throw std::system_error(errno, std::generic_category(), "cannot watch for signals");
    return made;
}

void waiting_t::run(int timeout_ms)
{
    if (poll(polled_.data(), polled_.size(), timeout_ms) <= 0)
        return;
    for (std::size_t i = 0; i < polled_.size(); i++)
        if (polled_[i].revents != 0)
            ready_[i]();
}

void board_turn(board_t &board, listener_t &listener, waiting_t waiting, int timeout_ms)
{
    waiting.add(board.link_events.number(), [&] { board.take_announcements(); });
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

    waiting.run(timeout_ms);
    std::erase_if(listener.callers, [](const fd_t &caller) { return !caller; });
}
