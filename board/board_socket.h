/// What crosses the board's socket: the records that the stand-in libraries, the board and its
/// clients exchange. One packet each way, the answer follows the request; host byte order.
#pragma once

#include <cstddef>
#include <cstdint>

#include "platform/link_mon_intf.h"
#include "platform/mdio_intf.h"

/// Where the board listens, unless the environment says otherwise.
constexpr char BOARD_SOCKET[] = "/tmp/lvt_board.sock";
constexpr char BOARD_SOCKET_VARIABLE[] = "LVT_BOARD_SOCKET";

/// Longest wait of a library for the board to take a request, and again for its answer.
constexpr long BOARD_PATIENCE_MS = 900;

constexpr uint32_t BOARD_MAGIC = 0x4C565442;

enum board_kind_t : uint32_t {
    BOARD_MDIO = 1, ///< board_mdio_request_t; the answer is a board_head_t
    BOARD_LINK = 2, ///< a board_head_t; the answer is a board_link_answer_t
    BOARD_TEXT = 3, ///< a board_head_t and JSON text, both ways
};

/// Opens every packet; an answer repeats the kind of its request.
struct board_head_t {
    uint32_t magic;
    uint32_t kind;   ///< board_kind_t
    int32_t result;  ///< answers: 0 when done
    uint32_t length; ///< octets that follow
};

struct board_mdio_request_t {
    board_head_t head;
    mdio_multi_t batch;
};

struct board_link_answer_t {
    board_head_t head;
    link_mon_status_t status;
};

static_assert(sizeof(board_head_t) == 16);
static_assert(sizeof(board_mdio_request_t) == 16 + sizeof(mdio_multi_t) && offsetof(board_mdio_request_t, batch) == 16);
static_assert(sizeof(board_link_answer_t) == 16 + sizeof(link_mon_status_t) &&
              offsetof(board_link_answer_t, status) == 16);
