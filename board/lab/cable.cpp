#include "board/lab/cable.h"

#include <fmt/format.h>

namespace lab {

namespace {

void set_up(const cable_end_t &end)
{
    end.node->ip(fmt::format("link set {0} addrgenmode none\nlink set {0} up", end.interface));
}

} // namespace

cable_t::cable_t(cable_end_t near, cable_end_t far) : near_(std::move(near)), far_(std::move(far))
{
    const int far_net = far_.node->place().net;
    near_.node->ip(fmt::format("link add name {} address {} type veth peer name {} address {} netns /proc/self/fd/{}",
                               near_.interface, near_.mac, far_.interface, far_.mac, far_net),
                   {far_net});
    set_up(near_);
    set_up(far_);
}

void cable_t::pull() const { far_.node->ip(fmt::format("link set {} down", far_.interface)); }

void cable_t::plug() const { far_.node->ip(fmt::format("link set {} up", far_.interface)); }

} // namespace lab
