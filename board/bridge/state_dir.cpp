#include "board/bridge/state_dir.h"

#include <array>
#include <cerrno>
#include <cstddef>
#include <cstring>
#include <system_error>

#include <fcntl.h>
#include <fmt/format.h>
#include <sys/file.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

namespace {

[[noreturn]] void fail(const std::string &what) { throw std::system_error(errno, std::generic_category(), what); }

/// A name of which there is one in a network namespace; without a number where it is taken.
fd_t take_name(const std::string &bridge)
{
    sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    const std::string name = "lvt_bridge/" + bridge;
    name.copy(address.sun_path + 1, sizeof address.sun_path - 1); // after a zero, it is no file's
    const auto length = static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + 1 + name.size());
    fd_t made(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
    if (!made)
        fail("socket");
    if (bind(made.number(), reinterpret_cast<const sockaddr *>(&address), length) == 0)
        return made;
    if (errno != EADDRINUSE)
        fail("the name of " + bridge);
    return {};
}

} // namespace

state_dir_t::state_dir_t(const std::filesystem::path &folder, const std::string &bridge) : bridge_(bridge)
{
    std::filesystem::create_directories(folder);
    folder_ = fd_t(open(folder.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC));
    if (!folder_)
        fail(folder);
    lock_ = fd_t(openat(folder_.number(), name(BRIDGE_LOCK).c_str(), O_RDWR | O_CREAT | O_CLOEXEC | O_NOFOLLOW, 0644));
    if (!lock_)
        fail(folder / name(BRIDGE_LOCK));
    const bool locked = flock(lock_.number(), LOCK_EX | LOCK_NB) == 0;
    if (!locked && errno != EWOULDBLOCK)
        fail(folder / name(BRIDGE_LOCK));
    if (locked)
        name_ = take_name(bridge);
    if (!name_)
        throw ruled_already_t(fmt::format("{} is ruled by another lvt_bridge already", bridge));
}

state_dir_t::~state_dir_t() { unlinkat(folder_.number(), name(BRIDGE_REPORT).c_str(), 0); }

bool state_dir_t::claimed() const { return faccessat(folder_.number(), name(".claim").c_str(), F_OK, 0) == 0; }

void state_dir_t::claim() const { write(name(".claim"), fmt::format("{}\n", getpid())); }

void state_dir_t::unclaim() const { unlinkat(folder_.number(), name(".claim").c_str(), 0); }

void state_dir_t::write_report(const std::string &text)
{
    if (text == report_)
        return;
    write(name(BRIDGE_REPORT), text);
    report_ = text;
}

std::string state_dir_t::ports() const
{
    const fd_t file(openat(folder_.number(), name(".ports").c_str(), O_RDONLY | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK));
    std::string text;
    std::array<char, 4096> octets;
    ssize_t got = 0;
    while (file && text.size() < octets.size() && (got = read(file.number(), octets.data(), octets.size())) > 0)
        text.append(octets.data(), static_cast<std::size_t>(got));
    return text;
}

void state_dir_t::write_ports(const std::string &text) const { write(name(".ports"), text); }

/// Whoever reads the file finds the old text or the new one.
void state_dir_t::write(const std::string &file, const std::string &text) const
{
    const std::string fresh = "." + file;
    const int flags = O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC | O_NOFOLLOW;
    const fd_t out(openat(folder_.number(), fresh.c_str(), flags, 0644));
    if (!out || ::write(out.number(), text.data(), text.size()) != static_cast<ssize_t>(text.size()) ||
        renameat(folder_.number(), fresh.c_str(), folder_.number(), file.c_str()) != 0)
        fail(file);
}
