// Stand-in for the board library libmdio_intf.so: the switch chip is the simulated one.
#include "platform/mdio_intf.h"

#include "platform/board_connection.h"

namespace {

board_connection_t connection = BOARD_CONNECTION_INIT;

} // namespace

int mdio_intf_access_multi(mdio_multi_t *request)
{
    board_mdio_request_t question = {};
    question.head.kind = BOARD_MDIO;
    question.batch = *request;

    board_head_t answer;
    return board_exchange(&connection, &question.head, sizeof question, &answer, sizeof answer);
}
