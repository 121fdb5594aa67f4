/// Asking the kernel about interfaces and bridges, and telling it, in the network namespace of the thread that opened
/// the connection.
#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "board/netlink/interface.h"

struct mnl_socket;
struct nlmsghdr;

/// Requests that change something return 0, or the errno value that is the kernel's refusal. All others, and those
/// that change something where no answer comes, throw std::system_error.
class netlink_t {
public:
    netlink_t();

    /// The interface with that name or number, with what it tells as a bridge; nothing when there is none.
    std::optional<interface_t> find(const std::string &name);
    std::optional<interface_t> find(int index);

    /// The ports of the bridge with that number, by number, with their states.
    std::vector<interface_t> ports_of(int bridge);

    [[nodiscard]] int set_port_state(int port, port_state_t state);

    /// Forgets the addresses that were learned at a port. Those that somebody set by hand to stay do.
    [[nodiscard]] int flush_port(int port);

    /// Switches a bridge's STP on or off; whose STP it then is, the kernel decides.
    [[nodiscard]] int set_stp(int bridge, bool on);

    /// Makes a virtual cable between two new interfaces, both switched on; `mac` is the first one's.
    void make_cable(const std::string &near, const std::string &far, const std::array<std::uint8_t, 6> &mac);

private:
    using message_fn = std::function<void(std::span<const std::uint8_t>)>;

    int exchange(nlmsghdr *request, const message_fn &take = {});
    std::optional<interface_t> get(nlmsghdr *request);
    void set_running(const std::string &name);

    std::unique_ptr<mnl_socket, void (*)(mnl_socket *)> socket_;
    unsigned sequence_ = 0;
};
