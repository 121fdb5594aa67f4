#include "board/lab/node.h"

#include <exception>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <stdexcept>
#include <thread>

#include <arpa/inet.h>
#include <fcntl.h>
#include <fmt/format.h>
#include <linux/if_packet.h>
#include <net/ethernet.h>
#include <net/if.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/socket.h>
#include <sys/statvfs.h>
#include <unistd.h>

namespace lab {

namespace {

/// A thread can change its namespaces without those of the process.
void in_thread(const std::function<void()> &action)
{
    std::exception_ptr thrown;
    std::thread thread([&] {
        try {
            action();
        } catch (...) {
            thrown = std::current_exception();
        }
    });
    thread.join();
    if (thrown)
        std::rethrow_exception(thrown);
}

void write_if_allowed(const char *path, const char *text) { std::ofstream(path) << text; }

/// The folder that holds bin/ and lib/ with the running program and its companions.
std::filesystem::path programs_folder()
{
    return std::filesystem::read_symlink("/proc/self/exe").parent_path().parent_path();
}

void make_tmpfs() { checked(mount("tmpfs", "/tmp", "tmpfs", MS_NOSUID | MS_NODEV, "mode=1777"), "tmpfs on /tmp"); }

/// Gives the thread's mount namespace an /etc of its own, which starts as the machine's. Where no
/// overlay is allowed, as in some containers, nothing can be stored there: the machine's own is for
/// the machine.
void make_etc()
{
    make_tmpfs(); // for what is written; it stays with the overlay
    std::filesystem::create_directory("/tmp/upper");
    std::filesystem::create_directory("/tmp/work");
    const char folders[] = "lowerdir=/etc,upperdir=/tmp/upper,workdir=/tmp/work";
    const bool done = mount("overlay", "/etc", "overlay", 0, folders) == 0;
    checked(umount("/tmp"), "/tmp");
    if (done)
        return;
    checked(mount("/etc", "/etc", nullptr, MS_BIND | MS_REC, nullptr), "/etc on itself");
    struct statvfs etc = {};
    checked(statvfs("/etc", &etc), "/etc");
    const unsigned long kept = etc.f_flag & (ST_NOSUID | ST_NODEV | ST_NOEXEC); // those may be locked
    checked(mount(nullptr, "/etc", nullptr, MS_BIND | MS_REMOUNT | MS_RDONLY | kept, nullptr), "/etc read-only");
}

/// Gives the thread's mount namespace a /tmp of its own. Programs that were built below /tmp stay
/// where they are.
void make_tmp()
{
    const std::filesystem::path programs = programs_folder();
    const bool hidden = programs.native().starts_with("/tmp/");
    fd_t folder;
    if (hidden)
        folder = fd_t(checked(open(programs.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC), programs));

    make_tmpfs();
    if (hidden) {
        std::filesystem::create_directories(programs);
        const std::string source = fmt::format("/proc/thread-self/fd/{}", folder.number());
        checked(mount(source.c_str(), programs.c_str(), nullptr, MS_BIND | MS_REC, nullptr), programs);
    }
}

/// Only the frames that somebody means to send: no IPv6 and its own announcements.
void make_quiet()
{
    write_if_allowed("/proc/sys/net/ipv6/conf/all/disable_ipv6", "1");
    write_if_allowed("/proc/sys/net/ipv6/conf/default/disable_ipv6", "1");
}

} // namespace

node_t::node_t(std::string name, int number) : name_(std::move(name)), number_(number)
{
    in_thread([this] {
        checked(unshare(CLONE_NEWNET | CLONE_NEWNS), "namespaces of " + name_);
        checked(mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr), "private mounts");
        make_etc();
        make_tmp();
        make_quiet();
        // For tools that look there; not every container allows it.
        mount("sysfs", "/sys", "sysfs", MS_NOSUID | MS_NODEV | MS_NOEXEC | MS_RDONLY, nullptr);
        net_ = fd_t(checked(open("/proc/thread-self/ns/net", O_RDONLY | O_CLOEXEC), "network namespace"));
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

void node_t::in_net(const std::function<void()> &action) const
{
    in_thread([&] {
        checked(setns(net_.number(), CLONE_NEWNET), "network namespace of " + name_);
        action();
    });
}

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
    const std::filesystem::path folder = std::filesystem::current_path();
    checked(unshare(CLONE_FS), "own root folder");
    checked(setns(mount_.number(), CLONE_NEWNS), "mount namespace of " + name_);
    checked(setns(net_.number(), CLONE_NEWNET), "network namespace of " + name_);
    if (chdir(folder.c_str()) != 0)
        checked(chdir("/"), "/");
}

} // namespace lab
