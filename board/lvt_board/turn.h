/// What a board's process waits for, and what it does then.
#pragma once

#include <functional>
#include <initializer_list>
#include <vector>

#include <poll.h>

#include "lvt_board/board.h"
#include "lvt_board/listener.h"

/// An interface is looked at at least this often: the kernel may announce a change up to a second late.
constexpr int LINK_LOOK_MS = 200;

/// A descriptor that tells of signals, which do nothing else from then on. Throws std::system_error.
fd_t signals_open(std::initializer_list<int> numbers);

/// What one turn of a loop waits for, and what each of these calls.
class waiting_t {
public:
    void add(int fd, std::function<void()> ready)
    {
        polled_.push_back({fd, POLLIN, 0});
        ready_.push_back(std::move(ready));
    }

    void run(int timeout_ms);

private:
    std::vector<pollfd> polled_;
    std::vector<std::function<void()>> ready_;
};

/// One turn of a board that does what its cables, the daemon and its callers ask for. Besides, it waits for all that
/// is in `others`.
void board_turn(board_t &board, listener_t &listener, waiting_t others, int timeout_ms);
