#include "feed.h"

#include <fcntl.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <stdexcept>

#include "board/lab/within.h"
#include "tools/bpdu_frame.h"
#include "tools/messages.h"

using namespace std::chrono_literals;

namespace {

std::vector<uint8_t> neighbours_bpdu()
{
    const bridge_id_t root = {4096, {}};
    const told_t told = {.root = root, .cost = 0, .bridge = root};
    return received_message(1, frame_of(bpdu_of(BPDU_TYPE_RST, told, bpdu_role_flags(BPDU_ROLE_DESIGNATED))));
}

} // namespace

feed_t::feed_t(const lab::node_t &node)
    : pipe_(lab::checked(open(node.path(RSTP_IF_PIPE).c_str(), O_RDWR | O_CLOEXEC), RSTP_IF_PIPE))
{
}

void feed_t::put(const std::vector<uint8_t> &message)
{
    lab::checked(static_cast<int>(write(pipe_.number(), message.data(), message.size())), "write to the control pipe");
}

void feed_t::take_part()
{
    port_configs_t configs = default_port_configs();
    port_statuses_t links = {};
    for (uint32_t port = 1; port <= 3; port++) {
        configs[port].adminEnable = 1;
        links[port - 1] = LINK_UP;
    }
    put(port_status_message(links));
    put(port_config_message(configs));
}

void feed_t::bpdus(int count)
{
    static const std::vector<uint8_t> bpdu = neighbours_bpdu();
    for (int i = 0; i < count; i++)
        put(bpdu);

    int held = 1;
    if (!lab::within(20s, [&] { return ioctl(pipe_.number(), FIONREAD, &held) == 0 && held == 0; }))
        throw std::runtime_error("the control pipe is not read");
}
