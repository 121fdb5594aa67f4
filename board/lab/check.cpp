// The start-up check: what the lab needs is tried out for real, and what fails is named.
#include "board/lab/world.h"

#include <cerrno>
#include <cstring>
#include <fstream>
#include <functional>
#include <system_error>

#include <arpa/inet.h>
#include <fcntl.h>
#include <fmt/format.h>
#include <net/ethernet.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include "board/lab/mounts.h"
#include "board/lab/privileges.h"

namespace lab {

namespace {

constexpr char CONTAINER_CURE[] =
    "in a container: start it with --cap-add SYS_ADMIN --cap-add NET_ADMIN\n"
    "    --security-opt seccomp=unconfined --security-opt apparmor=unconfined, or with --privileged;\n"
    "    in a chroot, where only root may have it, and anywhere else: run it as root";

constexpr char CHROOT_CURE[] =
    "this is a chroot, where the kernel lets only root with all capabilities have namespaces: run it as root";

constexpr char PROC_CURE[] = "mkdir -p /proc && mount -t proc proc /proc";

long setting(const char *name)
{
    std::ifstream file(fmt::format("/proc/sys/{}", name));
    long value = -1;
    file >> value;
    return value;
}

/// Where it is none, this is a chroot; where it is one, it may be one.
bool root_is_mount_point()
{
    struct statx root = {};
    statx(AT_FDCWD, "/", 0, 0, &root);
    return (root.stx_attributes_mask & ~root.stx_attributes & STATX_ATTR_MOUNT_ROOT) == 0;
}

std::string cure_for_user_namespace(int error)
{
    if (error == ENOENT)
        return PROC_CURE;
    if (setting("kernel/unprivileged_userns_clone") == 0)
        return "sudo sysctl -w kernel.unprivileged_userns_clone=1, or run it as root";
    if (setting("user/max_user_namespaces") == 0)
        return "sudo sysctl -w user.max_user_namespaces=15000, or run it as root";
    if (setting("kernel/apparmor_restrict_unprivileged_userns") == 1)
        return "sudo sysctl -w kernel.apparmor_restrict_unprivileged_userns=0, or run it as root";
    return CONTAINER_CURE;
}

std::string cure_for_namespace(int error, const char *limit)
{
    if (error == ENOSPC)
        return fmt::format("sudo sysctl -w user.{}=15000", limit);
    if (error == EINVAL)
        return "a kernel with namespaces (CONFIG_NAMESPACES), for a chroot Linux 5.8; every Debian kernel has them";
    return cure_for_user_namespace(error);
}

std::string cure_for_module(const char *module)
{
    return fmt::format("sudo modprobe {} (on the host, if this is a container)", module);
}

void make_link(const char *words)
{
    // The program tells no errno; the usual one stands for all.
    if (run({.argv = {"ip", "-batch", "-"}}, fmt::format("link add {}\n", words)).exit_code != 0)
        throw std::system_error(EOPNOTSUPP, std::generic_category(), words);
}

struct trial_t {
    const char *what;
    std::function<void(const user_t &)> attempt;
    std::function<std::string(int error)> cure;
};

/// In the order of their need; each builds on those before it. A process namespace comes last:
/// it ends with the first process in it.
const trial_t trials[] = {
    {"the device /dev/null",
     [](const user_t &) { const fd_t null(checked(open("/dev/null", O_RDWR | O_CLOEXEC), "open")); },
     [](int) { return std::string("as root: rm -f /dev/null && mknod -m 666 /dev/null c 1 3"); }},
    {"a user namespace, to be root in",
     [](const user_t &user) {
         if (user.flags != 0)
             checked(unshare(user.flags), "unshare");
         take_root(user);
     },
     [](int error) { return root_is_mount_point() ? cure_for_user_namespace(error) : CHROOT_CURE; }},
    {"a mount namespace",
     [](const user_t &) {
         checked(unshare(CLONE_NEWNS), "unshare");
         make_mounts_private();
     },
     [](int error) { return cure_for_namespace(error, "max_mnt_namespaces"); }},
    {"/proc", [](const user_t &) { ensure_proc(); }, [](int) { return std::string(PROC_CURE); }},
    {"the folder of this program, for the root of a user namespace",
     [](const user_t &) { checked(access(own_program().c_str(), X_OK), "access"); },
     [](int) { return std::string("run it as the user who owns that folder"); }},
    {"a /tmp of its own (tmpfs)", [](const user_t &) { checked(mount("tmpfs", "/tmp", "tmpfs", 0, nullptr), "mount"); },
     [](int error) { return error == ENOENT ? "mkdir -m 1777 /tmp" : CONTAINER_CURE; }},
    {"a network namespace", [](const user_t &) { checked(unshare(CLONE_NEWNET), "unshare"); },
     [](int error) { return cure_for_namespace(error, "max_net_namespaces"); }},
    {"packet sockets",
     [](const user_t &) {
         const fd_t socket_fd(checked(socket(AF_PACKET, SOCK_RAW | SOCK_CLOEXEC, htons(ETH_P_ALL)), "socket"));
     },
     [](int) { return cure_for_module("af_packet"); }},
    {"virtual Ethernet cables (veth)", [](const user_t &) { make_link("name a0 type veth peer name a1"); },
     [](int) { return cure_for_module("veth"); }},
    {"a kernel bridge with spanning tree", [](const user_t &) { make_link("name br0 type bridge stp_state 1"); },
     [](int) { return cure_for_module("bridge"); }},
    {"a process namespace", [](const user_t &) { checked(unshare(CLONE_NEWPID), "unshare"); },
     [](int error) { return cure_for_namespace(error, "max_pid_namespaces"); }},
};

struct failure_t {
    size_t trial;
    int error;
};

/// Goes through the trials up to the first failure, and tells it.
[[noreturn]] void try_all(int report)
{
    const user_t user = this_user();
    for (size_t i = 0; i < std::size(trials); i++) {
        try {
            trials[i].attempt(user);
        } catch (const std::system_error &error) {
            const failure_t failure = {i, error.code().value()};
            [[maybe_unused]] const ssize_t told = write(report, &failure, sizeof failure);
            break;
        }
    }
    _exit(0);
}

const char *reason_of(int error) { return error == ENOSPC ? "no more of them are allowed" : std::strerror(error); }

std::string text_of(const std::vector<lack_t> &lacks)
{
    std::string text = "This machine cannot run the simulated network yet. What is missing:\n";
    for (const lack_t &lack : lacks)
        text += fmt::format("  - {}\n    {}\n", lack.what, lack.cure);
    return text;
}

} // namespace

cannot_run_t::cannot_run_t(std::vector<lack_t> lacks) : std::runtime_error(text_of(lacks)), lacks_(std::move(lacks)) {}

std::vector<lack_t> find_lacks()
{
    std::vector<lack_t> lacks;
    if (find_program("ip").empty())
        lacks.push_back({"the program ip", "sudo apt-get install iproute2"});
    if (find_program("ping").empty())
        lacks.push_back({"the program ping", "sudo apt-get install iputils-ping"});
    if (!lacks.empty())
        return lacks;

    int ends[2];
    checked(pipe2(ends, O_CLOEXEC), "pipe");
    const fd_t report(ends[0]);
    fd_t report_end(ends[1]);
    const pid_t child = checked(bare_fork(), "fork");
    if (child == 0)
        try_all(report_end.number());

    report_end = fd_t();
    failure_t failure;
    if (read(report.number(), &failure, sizeof failure) == sizeof failure) {
        const trial_t &trial = trials[failure.trial];
        lacks.push_back({fmt::format("{}: {}", trial.what, reason_of(failure.error)), trial.cure(failure.error)});
    }
    waitpid(child, nullptr, 0);
    return lacks;
}

} // namespace lab
