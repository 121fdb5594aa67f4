// Stand-in for the board library liblink_mon_intf.so: the links are those of the simulated board.
#include "platform/link_mon_intf.h"

#include "platform/board_connection.h"

namespace {

board_connection_t connection = BOARD_CONNECTION_INIT;

} // namespace

int link_mon_intf_param_get(link_mon_status_t *status)
{
    board_head_t question = {};
    question.kind = BOARD_LINK;

    board_link_answer_t answer;
    const int result = board_exchange(&connection, &question, sizeof question, &answer.head, sizeof answer);
    if (result == 0)
        *status = answer.status;
    return result;
}
