#include "board/lab/node.h"

#include <fstream>
#include <sstream>
#include <stdexcept>

#include <arpa/inet.h>
#include <fcntl.h>
#include <fmt/format.h>
#include <linux/if_packet.h>
#include <net/ethernet.h>
#include <net/if.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/socket.h>
#include <unistd.h>

#include "board/lab/mounts.h"
#include "board/lab/namespaces.h"

namespace lab {

node_t::node_t(std::string name, int number, const std::vector<std::filesystem::path> &programs, int net)
    : name_(std::move(name)), number_(number)
{
    in_thread([&] {
        checked(unshare(CLONE_NEWNS), "mount namespace of " + name_); // with the world's mounts, as private
        make_etc();
        make_tmp(programs);
        if (net < 0) {
            net_ = enter_new_net();
        } else {
            checked(setns(net, CLONE_NEWNET), "network namespace of " + name_);
            net_ = fd_t(checked(fcntl(net, F_DUPFD_CLOEXEC, 0), "network namespace of " + name_));
        }
        // For tools that look there; not every container allows it.
        mount("sysfs", "/sys", "sysfs", MS_NOSUID | MS_NODEV | MS_NOEXEC | MS_RDONLY, nullptr);
        mount_ = fd_t(checked(open("/proc/thread-self/ns/mnt", O_RDONLY | O_CLOEXEC), "mount namespace"));
        root_ = fd_t(checked(open("/", O_PATH | O_DIRECTORY | O_CLOEXEC), "/"));
    });
}

std::string node_t::mac(int port) const
{
    return fmt::format("02:00:00:{:02x}:{:02x}:{:02x}", number_ / 256, number_ % 256, port);
}

std::string node_t::path(const std::string &path) const
{
    return fmt::format("/proc/self/fd/{}{}", root_.number(), path);
}

std::string node_t::read(const std::string &file) const
{
    std::ifstream stream(path(file));
    std::ostringstream text;
    text << stream.rdbuf();
    return text.str();
}

process_t node_t::start(command_t command) const
{
    command.place = place();
    return lab::start(command);
}

outcome_t node_t::run(command_t command, const std::string &input) const
{
    command.place = place();
    return lab::run(std::move(command), input);
}

void node_t::ip(const std::string &commands, std::vector<int> keep_open) const
{
    const outcome_t outcome = run({.argv = {"ip", "-batch", "-"}, .keep_open = std::move(keep_open)}, commands + "\n");
    if (outcome.exit_code != 0)
        throw std::runtime_error(fmt::format("{}: ip refused:\n{}\nIt said: {}", name_, commands, outcome.output));
}

void node_t::in_net(const std::function<void()> &action) const { lab::in_net(net_.number(), action); }

fd_t node_t::packet_socket(const std::string &interface) const
{
    fd_t result;
    in_net([&] {
        sockaddr_ll address = {};
        address.sll_family = AF_PACKET;
        address.sll_protocol = htons(ETH_P_ALL);
        address.sll_ifindex = static_cast<int>(if_nametoindex(interface.c_str()));
        if (address.sll_ifindex == 0)
            checked(-1, name_ + ": " + interface);
        // Deaf until it is bound, so that it hears nothing of other interfaces.
        result = fd_t(checked(socket(AF_PACKET, SOCK_RAW | SOCK_CLOEXEC, 0), "packet socket"));
        checked(bind(result.number(), reinterpret_cast<const sockaddr *>(&address), sizeof address), interface);
    });
    return result;
}

void node_t::enter() const
{
    std::error_code gone;
    const std::filesystem::path folder = std::filesystem::current_path(gone);
    if (!enter_mounts(mount_.number(), root_.number()))
        checked(-1, "mount namespace of " + name_);
    checked(setns(net_.number(), CLONE_NEWNET), "network namespace of " + name_);
    std::filesystem::current_path(folder, gone); // else it is the node's root folder
}

} // namespace lab
