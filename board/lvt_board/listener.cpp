#include "lvt_board/listener.h"

#include <cerrno>
#include <cstring>
#include <span>
#include <stdexcept>
#include <system_error>

#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include "board_socket.h"
#include "lvt_board/reports.h"

namespace {

constexpr std::size_t REQUEST_OCTETS_MAX = 8192;
static_assert(REQUEST_OCTETS_MAX >= sizeof(board_mdio_request_t));

constexpr int CALLERS_WAITING_MAX = 16;

using octets_t = std::vector<char>;

fd_t new_socket()
{
    fd_t made(socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
    if (!made)
        throw std::system_error(errno, std::generic_category(), "cannot open a socket");
    return made;
}

sockaddr_un address_of(const std::string &path)
{
    sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    if (path.size() >= sizeof address.sun_path)
        throw std::runtime_error("the path of the board's socket is too long: " + path);
    path.copy(address.sun_path, path.size());
    return address;
}

template <typename record_t>
octets_t octets_of(const record_t &record)
{
    const auto *first = reinterpret_cast<const char *>(&record);
    return {first, first + sizeof record};
}

board_head_t head_of(board_kind_t kind, int result, std::size_t length)
{
    return {BOARD_MAGIC, kind, result, static_cast<std::uint32_t>(length)};
}

octets_t answer_mdio(board_t &board, std::span<const char> request)
{
    board_mdio_request_t asked;
    if (request.size() != sizeof asked)
        return {};
    std::memcpy(&asked, request.data(), sizeof asked);
    return octets_of(head_of(BOARD_MDIO, board.mdio(asked.batch), 0));
}

octets_t answer_link(board_t &board)
{
    board_link_answer_t answer = {};
    const int result = board.link_monitor(answer.status);
    answer.head = head_of(BOARD_LINK, result, sizeof answer.status);
    return octets_of(answer);
}

octets_t answer_text(board_t &board, std::span<const char> request)
{
    const auto text = request.subspan(sizeof(board_head_t));
    nlohmann::json answer;
    int result = 0;
    try {
        answer = board_answer(board, nlohmann::json::parse(text.begin(), text.end()));
    } catch (const std::exception &problem) {
        answer = problem.what();
        result = -1;
    }
    const std::string words = answer.dump(-1, ' ', false, nlohmann::json::error_handler_t::replace);
    octets_t octets = octets_of(head_of(BOARD_TEXT, result, words.size()));
    octets.insert(octets.end(), words.begin(), words.end());
    return octets;
}

} // namespace

void refuse_second_board(const std::string &path)
{
    const sockaddr_un address = address_of(path);
    const fd_t caller = new_socket();
    if (connect(caller.number(), reinterpret_cast<const sockaddr *>(&address), sizeof address) == 0 || errno == EAGAIN)
        throw std::runtime_error("another board is running at " + path);
}

listener_t::listener_t(const std::string &path) : path_(path), socket_(new_socket())
{
    const sockaddr_un address = address_of(path);
    if ((unlink(path.c_str()) != 0 && errno != ENOENT) ||
        bind(socket_.number(), reinterpret_cast<const sockaddr *>(&address), sizeof address) != 0 ||
        listen(socket_.number(), CALLERS_WAITING_MAX) != 0)
        throw std::system_error(errno, std::generic_category(), "cannot listen at " + path);
}

listener_t::~listener_t() { unlink(path_.c_str()); }

void listener_t::accept_caller()
{
    fd_t caller(accept4(socket_.number(), nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK));
    if (caller)
        callers.push_back(std::move(caller));
}

bool serve(board_t &board, const fd_t &caller)
{
    std::array<char, REQUEST_OCTETS_MAX> buffer;
    const ssize_t got = recv(caller.number(), buffer.data(), buffer.size(), MSG_TRUNC);
    if (got < 0 && (errno == EAGAIN || errno == EINTR))
        return true;

    board_head_t head;
    if (got < static_cast<ssize_t>(sizeof head) || got > static_cast<ssize_t>(buffer.size()))
        return false;
    const auto request = std::span(buffer).first(static_cast<std::size_t>(got));
    std::memcpy(&head, request.data(), sizeof head);
    if (head.magic != BOARD_MAGIC || head.length != request.size() - sizeof head)
        return false;

    board.catch_up_with_daemon();

    octets_t answer;
    switch (head.kind) {
    case BOARD_MDIO:
        answer = answer_mdio(board, request);
        break;
    case BOARD_LINK:
        answer = answer_link(board);
        break;
    case BOARD_TEXT:
        answer = answer_text(board, request);
        break;
    }
    // A caller that does not fetch its answers is not waited for.
    return !answer.empty() &&
           send(caller.number(), answer.data(), answer.size(), MSG_NOSIGNAL) == static_cast<ssize_t>(answer.size());
}
