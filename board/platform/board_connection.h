/// The way from a stand-in library to the board: one connection, kept between calls.
#pragma once

#include <pthread.h>

#include <cstddef>

#include "board_socket.h"

struct board_connection_t {
    pthread_mutex_t lock;
    int fd; ///< below 0: not connected
};

#define BOARD_CONNECTION_INIT                                                                                          \
    {                                                                                                                  \
        PTHREAD_MUTEX_INITIALIZER, -1                                                                                  \
    }

/// Sends `request` and waits for its answer, which must have exactly `answer_size` octets and
/// the request's kind. Both records begin with a board_head_t; the one of the request is
/// filled in here, except for its kind.
///
/// Returns the answer's result, or -1 when the board cannot be reached, does not answer in time
/// or answers something else; then the connection is given up, and the next call connects anew.
/// Any thread may call it.
int board_exchange(board_connection_t *connection, board_head_t *request, size_t request_size, board_head_t *answer,
                   size_t answer_size);
