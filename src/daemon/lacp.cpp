#include "daemon/lacp.h"

#include <cstdio>
#include <cstring>

#include "platform/messages.h"
#include "process/process.h"
#include "rstp/records.h"

namespace {

constexpr size_t FRAME_HEADER = offsetof(lacp_frame_t, type);
constexpr size_t MESSAGE_HEADER = offsetof(lacp_frame_t, body) - FRAME_HEADER;

} // namespace

int set_lacp_rstp_status(const uint8_t *flags)
{
    uint8_t message[MESSAGE_HEADER + RSTP_PHYSICAL_PORTS] = {LACP_MSG_RSTP_STATUS};
    memcpy(message + MESSAGE_HEADER, flags, RSTP_PHYSICAL_PORTS);

    const int result = send_lacp_data(message, RSTP_PHYSICAL_PORTS);
    if (result < 0)
        printf("Setting lacp_rstp_status is fail");
    return result;
}

int send_lacp_data(const uint8_t *message, uint32_t length)
{
    lacp_frame_t frame = {};
    if (length > sizeof frame.body)
        return -1;
    memcpy(frame.magic, lacp_msg_magic, sizeof frame.magic);
    frame.length = length;
    memcpy(reinterpret_cast<uint8_t *>(&frame) + FRAME_HEADER, message, MESSAGE_HEADER + length);

    // Opened anew for each message: the other daemon may have come and gone.
    return process_write_once(LACP_IF_PIPE, &frame, FRAME_HEADER + MESSAGE_HEADER + length);
}
