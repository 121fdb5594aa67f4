#include "lvt_board/pipes.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <system_error>

#include <fcntl.h>
#include <fmt/format.h>
#include <sys/stat.h>
#include <unistd.h>

#include "chip/ports.h"
#include "platform/messages.h"
#include "tools/hex.h"

namespace {

constexpr const char *PIPES[] = {RSTP_IF_PIPE, RSTP_DBG_IF_PIPE, LACP_IF_PIPE, PORT_MUX_IF_PIPE};

[[noreturn]] void fail(const char *what, const char *path)
{
    throw std::system_error(errno, std::generic_category(), fmt::format("cannot {} the pipe {}", what, path));
}

// For the board's user alone: what anybody reads out of a pipe, its reader does not get.
void create(const char *path)
{
    if ((unlink(path) != 0 && errno != ENOENT) || mkfifo(path, 0600) != 0)
        fail("create", path);
}

// Open for writing too, so that the pipe does not end whenever its last writer leaves.
reader_t open_reader(const char *path)
{
    fd_t pipe(open(path, O_RDWR | O_NONBLOCK | O_CLOEXEC));
    if (!pipe)
        fail("open", path);
    return {path, std::move(pipe), {}};
}

void take_in(reader_t &reader)
{
    std::array<std::uint8_t, 4096> chunk;
    ssize_t got;
    while ((got = read(reader.pipe.number(), chunk.data(), chunk.size())) > 0)
        reader.pending.insert(reader.pending.end(), chunk.begin(), chunk.begin() + got);
}

// Without its magic nothing tells where the next message begins, so all that is pending goes.
heard_t give_up(reader_t &reader, const char *pipe)
{
    heard_t heard = {{"pipe", pipe}, {"error", "not a message"}, {"raw", hex(reader.pending, "")}};
    reader.pending.clear();
    return heard;
}

// False as soon as what is pending cannot become a message.
template <std::size_t N>
bool begins_with(const reader_t &reader, const std::uint8_t (&magic)[N])
{
    const auto there = std::min(reader.pending.size(), N);
    return std::equal(magic, magic + there, reader.pending.begin());
}

// The first message_t's worth of pending octets; what is not there yet is 0.
template <typename message_t>
message_t first_of(const reader_t &reader)
{
    message_t message = {};
    std::memcpy(&message, reader.pending.data(), std::min(reader.pending.size(), sizeof message));
    return message;
}

std::string take_out(reader_t &reader, std::size_t count)
{
    std::string raw = hex(std::span(reader.pending).first(count), "");
    reader.pending.erase(reader.pending.begin(), reader.pending.begin() + static_cast<std::ptrdiff_t>(count));
    return raw;
}

} // namespace

pipes_t::pipes_t()
{
    std::for_each(std::begin(PIPES), std::end(PIPES), create);
    lacp = open_reader(LACP_IF_PIPE);
    mux = open_reader(PORT_MUX_IF_PIPE);
}

pipes_t::~pipes_t() { std::for_each(std::begin(PIPES), std::end(PIPES), unlink); }

std::vector<heard_t> lacp_read(reader_t &lacp)
{
    constexpr std::size_t header = offsetof(lacp_frame_t, body);
    take_in(lacp);

    std::vector<heard_t> all;
    while (!lacp.pending.empty()) {
        const auto frame = first_of<lacp_frame_t>(lacp);
        if (!begins_with(lacp, lacp_msg_magic) || frame.length > sizeof frame.body) {
            all.push_back(give_up(lacp, "lacp"));
            break;
        }
        const std::size_t size = header + frame.length;
        if (lacp.pending.size() < size)
            break;

        heard_t heard = {{"pipe", "lacp"}, {"type", frame.type}};
        if (frame.type == LACP_MSG_RSTP_STATUS && frame.length == BOARD_PORTS) {
            auto &enabled = heard["enabled"] = heard_t::array();
            for (unsigned port = 1; port <= BOARD_PORTS; port++)
                if (frame.body[port - 1] != 0)
                    enabled.push_back(port);
        }
        heard["raw"] = take_out(lacp, size);
        all.push_back(std::move(heard));
    }
    return all;
}

std::vector<heard_t> mux_read(reader_t &mux)
{
    take_in(mux);

    std::vector<heard_t> all;
    while (!mux.pending.empty()) {
        const auto message = first_of<port_mux_msg_t>(mux);
        if (!begins_with(mux, PORT_MUX_MAGIC)) {
            all.push_back(give_up(mux, "mux"));
            break;
        }
        if (mux.pending.size() < sizeof message)
            break;

        heard_t heard = {{"pipe", "mux"}, {"type", message.type}};
        if (message.type == PORT_MUX_MSG_FORWARDING) {
            heard["port"] = message.l2port;
            heard["forwarding"] = message.forwarding != 0;
        }
        heard["raw"] = take_out(mux, sizeof message);
        all.push_back(std::move(heard));
    }
    return all;
}
