/// The board's socket: register access and link monitor for the daemon's libraries, questions and
/// settings for people and tests.
#pragma once

#include <string>
#include <vector>

#include "lvt_board/board.h"

/// Throws std::runtime_error when a live board listens at `path`.
void refuse_second_board(const std::string &path);

class listener_t {
public:
    /// Listens at `path`, in place of a socket that a dead board left there; throws
    /// std::system_error when that cannot be had. Whoever can connect finds a board that is ready.
    explicit listener_t(const std::string &path);
    ~listener_t();
    listener_t(const listener_t &) = delete;
    listener_t &operator=(const listener_t &) = delete;

    int number() const { return socket_.number(); }
    void accept_caller();

    std::vector<fd_t> callers;

private:
    std::string path_;
    fd_t socket_;
};

/// Serves one request of a caller; false when the caller is gone or sends nonsense.
bool serve(board_t &board, const fd_t &caller);
