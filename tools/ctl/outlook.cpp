#include "tools/ctl/outlook.h"

#include <cstring>

#include <fmt/format.h>

#include "tools/ctl/status.h"

namespace {

bool is_on(const settings_t &settings, int port) { return settings.ports[static_cast<size_t>(port)].adminEnable; }

bool goes_off(const settings_t &before, const settings_t &after, int port)
{
    return is_on(before, port) && !is_on(after, port);
}

bool cuts(const port_status_t &port) { return port.role == ROLE_ALTERNATE || port.role == ROLE_BACKUP; }

/// A bridge was heard there, and the port takes part.
bool leads_to_bridge(const port_status_t &port)
{
    return (port.role == ROLE_ROOT || port.role == ROLE_DESIGNATED) && !port.edge && port.received.all() > 0;
}

template <typename record_t>
bool same(const record_t &a, const record_t &b)
{
    return std::memcmp(&a, &b, sizeof a) == 0;
}

bool same_times(const lvt_rstp_system_config_t &a, const lvt_rstp_system_config_t &b)
{
    return a.max_age == b.max_age && a.hello_time == b.hello_time && a.forward_delay == b.forward_delay;
}

class outlook_t {
public:
    outlook_t(const settings_t &before, const settings_t &after, const bridge_status_t &now)
        : before_(before), after_(after), now_(now),
          dark_(2 * (now.is_root() ? int{after.bridge.forward_delay} : now.forward_delay))
    {
    }

    std::vector<std::string> lines()
    {
        bridge();
        for (int port = 1; port <= static_cast<int>(FRONT_PORTS); port++)
            if (now_.port(port).group == 0)
                front_port(port);
        groups();
        if (lines_.empty())
            lines_.emplace_back("nothing changes that is known");
        return lines_;
    }

private:
    template <typename... args_t>
    void say(fmt::format_string<args_t...> format, args_t &&...args)
    {
        lines_.push_back(fmt::format(format, std::forward<args_t>(args)...));
    }

    void bridge()
    {
        const unsigned from = before_.bridge.bridge_priority, to = after_.bridge.bridge_priority;
        if (from != to) {
            const bool takes_over = !now_.is_root() && to <= now_.root.prio;
            const bool gives_up = now_.is_root() && to > from;
            say("bridge priority {} -> {}: {}", from, to,
                takes_over       ? "this bridge may become the root, and all roles may change"
                : gives_up       ? "another bridge may become the root, and all roles may change"
                : now_.is_root() ? std::string("this bridge stays the root")
                                 : "the root stays; its neighbours' roles may change where paths cost the same");
            if (takes_over || gives_up)
                say("while roles change, a port toward another bridge may be dark for {} s", dark_);
        }
        if (!same_times(before_.bridge, after_.bridge))
            say("times of the bridge: max age {} s, hello time {} s, forward delay {} s; {}", after_.bridge.max_age,
                after_.bridge.hello_time, after_.bridge.forward_delay,
                now_.is_root() ? "the whole tree takes them over" : "they count once this bridge is the root");
        if (before_.bridge.force_version != after_.bridge.force_version)
            say("all ports speak {}", after_.bridge.force_version < 2 ? "STP only" : "RSTP");
    }

    void front_port(int port)
    {
        const port_status_t &status = now_.port(port);
        const lvt_rstp_port_config_t &from = before_.ports[static_cast<size_t>(port)];
        const lvt_rstp_port_config_t &to = after_.ports[static_cast<size_t>(port)];
        if (goes_off(before_, after_, port)) {
            const bool dark = state_name(now_, port) != "forwarding";
            say("port {} leaves the tree: {} -> off; {}", port, role_name(status),
                dark ? "it will forward, which it does not do now" : "it goes on forwarding, whatever else does");
            if (cuts(status))
                say("port {} cuts a loop now, in which frames would run", port);
        } else if (!from.adminEnable && to.adminEnable)
            say("port {} joins the tree: it forwards now, and is dark for {} s toward another bridge{}", port, dark_,
                to.adminEdge ? ", 3 s toward a host" : " or a host");
        else if (to.adminEnable && !same(from, to)) {
            const bool ranks = from.adminPathCost != to.adminPathCost || from.port_priority != to.port_priority;
            say("port {} gets other settings: {}", port,
                ranks ? fmt::format(
                            "roles may change, of this port ({}) and others; one that changes may be dark for {} s",
                            role_name(status), dark_)
                      : fmt::format("it tries RSTP anew for 3 s{}",
                                    status.role == ROLE_DESIGNATED && status.edge && !to.adminEdge
                                        ? "; the next time its link comes up it is dark for " + fmt::to_string(dark_) +
                                              " s"
                                        : ""));
        }
    }

    void groups()
    {
        const bool other = after_.groups_stated && (!before_.groups_stated || before_.groups != after_.groups);
        if (other || !same(before_.ports[0], after_.ports[0]))
            say("groups are formed anew: their ports are dark until the tree has settled, {} s at most", dark_);
    }

    const settings_t &before_, &after_;
    const bridge_status_t &now_;
    const int dark_; ///< seconds, until a designated port toward another bridge forwards
    std::vector<std::string> lines_;
};

} // namespace

std::vector<std::string> outlook(const settings_t &before, const settings_t &after, const bridge_status_t &now)
{
    return outlook_t(before, after, now).lines();
}

std::string loop_opened(const settings_t &before, const settings_t &after, const bridge_status_t &now)
{
    for (int port = 1; port <= static_cast<int>(FRONT_PORTS); port++) {
        if (!goes_off(before, after, port) || now.port(port).group)
            continue;
        if (cuts(now.port(port)))
            return fmt::format(
                "port {} is {} and cuts a loop: with spanning tree off there it forwards, and frames "
                "would run in the loop",
                port, role_name(now.port(port)));
        for (int other = 1; other <= static_cast<int>(RSTP_PORTS); other++)
            if (other != port && cuts(now.port(other)) && leads_to_bridge(now.port(port)))
                return fmt::format(
                    "port {} leads to another bridge, and port {} cuts a loop: with spanning tree off "
                    "at port {}, port {} may forward, and frames would run in the loop",
                    port, other, port, other);
    }
    return "";
}
