#include "board/lvt_lab/channel.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fstream>

#include <fmt/format.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

namespace lvt_lab {

namespace {

constexpr size_t DESCRIPTORS_MAX = 8;

std::string prefix() { return fmt::format("lvt_lab/{}/", geteuid()); }

/// A name that lives and dies with who listens there.
socklen_t fill_in(sockaddr_un &address, const std::string &lab)
{
    const std::string name = prefix() + lab;
    address = {};
    address.sun_family = AF_UNIX;
    name.copy(address.sun_path + 1, sizeof address.sun_path - 1);
    return static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + 1 + name.size());
}

fd_t new_socket() { return fd_t(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0)); }

/// Whether the other one is this user, as far as user namespaces tell.
bool is_own(const fd_t &socket)
{
    ucred other = {};
    socklen_t size = sizeof other;
    return getsockopt(socket.number(), SOL_SOCKET, SO_PEERCRED, &other, &size) == 0 && other.uid == geteuid();
}

} // namespace

bool channel_t::send(const nlohmann::json &value, const std::vector<int> &given)
{
    const std::string line = value.dump(-1, ' ', false, nlohmann::json::error_handler_t::replace) + "\n";
    if (given.empty())
        return send_octets({line.begin(), line.end()});
    alignas(cmsghdr) char control[CMSG_SPACE(DESCRIPTORS_MAX * sizeof(int))] = {};
    iovec part = {const_cast<char *>(line.data()), line.size()};
    msghdr message = {};
    message.msg_iov = &part;
    message.msg_iovlen = 1;
    message.msg_control = control;
    message.msg_controllen = CMSG_SPACE(given.size() * sizeof(int));
    cmsghdr *header = CMSG_FIRSTHDR(&message);
    header->cmsg_level = SOL_SOCKET;
    header->cmsg_type = SCM_RIGHTS;
    header->cmsg_len = CMSG_LEN(given.size() * sizeof(int));
    memcpy(CMSG_DATA(header), given.data(), given.size() * sizeof(int));
    return sendmsg(number(), &message, MSG_NOSIGNAL) == static_cast<ssize_t>(line.size());
}

bool channel_t::send_octets(const std::vector<uint8_t> &octets)
{
    for (size_t at = 0; at < octets.size();) {
        const ssize_t sent = ::send(number(), octets.data() + at, octets.size() - at, MSG_NOSIGNAL);
        if (sent < 0 && errno == EINTR)
            continue;
        if (sent <= 0)
            return false;
        at += static_cast<size_t>(sent);
    }
    return true;
}

bool channel_t::read_more()
{
    char octets[65536];
    alignas(cmsghdr) char control[CMSG_SPACE(DESCRIPTORS_MAX * sizeof(int))];
    iovec part = {octets, sizeof octets};
    msghdr message = {};
    message.msg_iov = &part;
    message.msg_iovlen = 1;
    message.msg_control = control;
    message.msg_controllen = sizeof control;
    const ssize_t got = recvmsg(number(), &message, MSG_CMSG_CLOEXEC);
    if (got < 0 && errno == EINTR)
        return true;
    if (got <= 0)
        return false;
    for (cmsghdr *header = CMSG_FIRSTHDR(&message); header; header = CMSG_NXTHDR(&message, header))
        if (header->cmsg_level == SOL_SOCKET && header->cmsg_type == SCM_RIGHTS)
            for (size_t at = 0; CMSG_LEN(at + sizeof(int)) <= header->cmsg_len; at += sizeof(int)) {
                int descriptor;
                memcpy(&descriptor, CMSG_DATA(header) + at, sizeof descriptor);
                descriptors.emplace_back(descriptor);
            }
    pending_.append(octets, static_cast<size_t>(got));
    return true;
}

bool channel_t::wait(int milliseconds) const
{
    pollfd polled = {number(), POLLIN, 0};
    return pending_.find('\n') != std::string::npos || poll(&polled, 1, milliseconds) > 0;
}

std::optional<nlohmann::json> channel_t::receive()
{
    size_t end;
    while ((end = pending_.find('\n')) == std::string::npos)
        if (!read_more())
            return {};
    nlohmann::json value = nlohmann::json::parse(pending_.substr(0, end), nullptr, false);
    pending_.erase(0, end + 1);
    if (value.is_discarded())
        return {};
    return value;
}

std::string channel_t::receive_octets()
{
    while (pending_.empty() && read_more())
        continue;
    return std::exchange(pending_, {});
}

bool is_lab_name(const std::string &name)
{
    constexpr size_t LETTERS_MAX = 40;
    return !name.empty() && name.size() <= LETTERS_MAX && std::ranges::all_of(name, [](char c) {
        return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || strchr("-_.", c);
    });
}

fd_t listen_for_clients(const std::string &lab)
{
    constexpr int WAITING_MAX = 64;
    sockaddr_un address;
    const socklen_t size = fill_in(address, lab);
    fd_t listener = new_socket();
    if (bind(listener.number(), reinterpret_cast<const sockaddr *>(&address), size) != 0 ||
        listen(listener.number(), WAITING_MAX) != 0)
        return fd_t();
    return listener;
}

std::optional<channel_t> accept_client(const fd_t &listener)
{
    for (;;) {
        fd_t client(accept4(listener.number(), nullptr, nullptr, SOCK_CLOEXEC));
        if (!client && errno != EINTR && errno != ECONNABORTED)
            return {};
        if (client && is_own(client))
            return channel_t(std::move(client));
    }
}

std::optional<channel_t> connect_to(const std::string &lab)
{
    sockaddr_un address;
    const socklen_t size = fill_in(address, lab);
    fd_t socket = new_socket();
    if (connect(socket.number(), reinterpret_cast<const sockaddr *>(&address), size) != 0 || !is_own(socket))
        return {};
    return channel_t(std::move(socket));
}

std::vector<std::string> labs_there()
{
    std::vector<std::string> labs;
    std::ifstream sockets("/proc/net/unix");
    const std::string start = "@" + prefix();
    for (std::string line; std::getline(sockets, line);)
        if (const size_t at = line.find(start); at != std::string::npos)
            labs.push_back(line.substr(at + start.size()));
    std::ranges::sort(labs);
    const auto twice = std::ranges::unique(labs); // a connection has the name, too
    labs.erase(twice.begin(), twice.end());
    return labs;
}

} // namespace lvt_lab
