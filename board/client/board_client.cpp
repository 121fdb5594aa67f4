#include "client/board_client.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <utility>

#include <nlohmann/json.hpp>
#include <sys/socket.h>
#include <sys/time.h>
#include <sys/un.h>
#include <unistd.h>

#include "board_socket.h"

namespace {

constexpr timeval PATIENCE = {2, 0};
constexpr std::size_t ANSWER_OCTETS_MAX = 1 << 20;

[[noreturn]] void fail(const std::string &what) { throw board_error_t(what + ": " + std::strerror(errno)); }

} // namespace

std::string board_socket_path()
{
    const char *path = std::getenv(BOARD_SOCKET_VARIABLE);
    return path != nullptr && *path != '\0' ? path : BOARD_SOCKET;
}

board_client_t::board_client_t(const std::string &path)
{
    sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    if (path.size() >= sizeof address.sun_path)
        throw board_error_t("the path of the board's socket is too long: " + path);
    path.copy(address.sun_path, path.size());

    fd_ = socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0);
    if (fd_ < 0)
        fail("cannot open a socket");
    if (setsockopt(fd_, SOL_SOCKET, SO_RCVTIMEO, &PATIENCE, sizeof PATIENCE) != 0 ||
        setsockopt(fd_, SOL_SOCKET, SO_SNDTIMEO, &PATIENCE, sizeof PATIENCE) != 0 ||
        connect(fd_, reinterpret_cast<const sockaddr *>(&address), sizeof address) != 0) {
        const int error = errno;
        close(fd_);
        errno = error;
        fail("no board at " + path);
    }
}

board_client_t::board_client_t(board_client_t &&other) noexcept : fd_(std::exchange(other.fd_, -1)) {}

board_client_t::~board_client_t()
{
    if (fd_ >= 0)
        close(fd_);
}

nlohmann::json board_client_t::ask(const nlohmann::json &request)
{
    const std::string text = request.dump();
    board_head_t head = {BOARD_MAGIC, BOARD_TEXT, 0, static_cast<std::uint32_t>(text.size())};
    std::string packet(reinterpret_cast<const char *>(&head), sizeof head);
    packet += text;
    if (send(fd_, packet.data(), packet.size(), MSG_NOSIGNAL) < 0)
        fail("the board is gone");

    packet.resize(ANSWER_OCTETS_MAX);
    ssize_t got;
    do
        got = recv(fd_, packet.data(), packet.size(), 0);
    while (got < 0 && errno == EINTR);
    if (got < 0)
        fail("the board does not answer");
    if (got < static_cast<ssize_t>(sizeof head))
        throw board_error_t("the board hung up");
    std::memcpy(&head, packet.data(), sizeof head);
    packet.resize(static_cast<std::size_t>(got));

    const auto answer = nlohmann::json::parse(packet.begin() + sizeof head, packet.end(), nullptr, false);
    if (head.magic != BOARD_MAGIC || head.kind != BOARD_TEXT || answer.is_discarded())
        throw board_error_t("the board gives an answer that is none");
    if (head.result != 0)
        throw board_refusal_t(answer.is_string() ? answer.get<std::string>() : answer.dump());
    return answer;
}

nlohmann::json board_client_t::show(const std::string &what) { return ask({{"show", what}}); }

std::vector<board_port_t> board_client_t::ports()
{
    std::vector<board_port_t> ports;
    for (const auto &port : show("ports"))
        ports.push_back({port.at("port"), port.at("chip"), port.at("present"), port.at("link"), port.at("mbit"),
                         port.at("full_duplex"), port.at("state"), port.at("state_name"), port.at("trunk")});
    return ports;
}

board_port_t board_client_t::port(unsigned front)
{
    for (board_port_t &port : ports())
        if (port.port == front)
            return port;
    throw board_error_t("there is no port " + std::to_string(front));
}

std::uint32_t board_client_t::register_value(std::uint32_t reg)
{
    return ask({{"show", "register"}, {"register", reg}});
}

std::vector<board_address_t> board_client_t::addresses()
{
    const auto table = show("addresses");
    std::vector<board_address_t> addresses;
    for (const auto &entry : table.at("learned"))
        addresses.push_back({entry.at("address"), entry.at("port"), entry.at("age")});
    return addresses;
}

bool board_client_t::is_trapped(const std::string &address)
{
    const auto table = show("addresses");
    for (const auto &trapped : table.at("trapped"))
        if (trapped == address)
            return true;
    return false;
}

nlohmann::json board_client_t::messages() { return show("messages"); }

void board_client_t::set_speed(unsigned front, unsigned mbit, bool full_duplex)
{
    ask({{"set", "speed"}, {"port", front}, {"mbit", mbit}, {"full_duplex", full_duplex}});
}

void board_client_t::clear_speed(unsigned front) { ask({{"set", "speed"}, {"port", front}}); }

void board_client_t::set_trunk(unsigned group, const std::vector<unsigned> &fronts)
{
    ask({{"set", "trunk"}, {"group", group}, {"ports", fronts}});
}

void board_client_t::set_mdio_failures(std::uint64_t batches) { ask({{"set", "mdio-fail"}, {"value", batches}}); }

void board_client_t::set_mdio_fail(bool on) { ask({{"set", "mdio-fail"}, {"value", on}}); }

void board_client_t::set_link_fail(bool on) { ask({{"set", "link-fail"}, {"value", on}}); }

void board_client_t::set_pipes_unread(bool on) { ask({{"set", "pipes-unread"}, {"value", on}}); }
