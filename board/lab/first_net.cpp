#include "board/lab/first_net.h"

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <sstream>
#include <vector>

#include <fcntl.h>
#include <fmt/format.h>
#include <net/if.h>
#include <nlohmann/json.hpp>
#include <sys/file.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include "board/bridge/gate_table.h"
#include "board/lab/privileges.h"
#include "board/lab/process.h"
#include "board/lab/within.h"
#include "board/lab/world.h"
#include "tools/bridge_notes.h"

namespace lab {

namespace {

namespace fs = std::filesystem;

constexpr char FOUND[] = "LVT_FIRST_NET"; ///< "descriptor:prefix", for who runs inside
constexpr char HELPER[] = "/sbin/bridge-stp";
constexpr char MARK[] = "# It is here for the time of a test.\n"; ///< its last line, where a guard has put it there

[[noreturn]] void refuse(const std::string &what, const std::string &cure)
{
    throw cannot_run_t(std::vector{lack_t{what, cure}});
}

std::string text_of(const fs::path &path)
{
    std::ostringstream text;
    text << std::ifstream(path).rdbuf();
    return text.str();
}

/// Who uses the helper locks its folder, together with others; who puts it there or takes it away, alone.
void lock(const fd_t &folder, int how) { checked(flock(folder.number(), how), "lock of /sbin"); }

/// Whether what the kernel asks is there and serves.
bool has_helper(const std::string &ours)
{
    if (!fs::exists(HELPER))
        return false;
    const std::string there = text_of(HELPER);
    if (there != ours && !there.ends_with(MARK))
        refuse(fmt::format("the kernel asks another program, {}", HELPER), "run it where there is none, or ours");
    return true;
}

void put_helper(const std::string &ours)
{
    const fd_t file(open(HELPER, O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0755));
    const std::string text = ours + MARK;
    if (!file || fchmod(file.number(), 0755) != 0 ||
        write(file.number(), text.data(), text.size()) != static_cast<ssize_t>(text.size())) {
        const int error = errno;
        if (file)
            fs::remove(HELPER);
        refuse(fmt::format("{} cannot be put there: {}", HELPER, std::strerror(error)), "run it where that may be");
    }
}

std::vector<std::string> interfaces(const std::string &prefix)
{
    std::vector<std::string> names;
    struct if_nameindex *all = if_nameindex();
    for (const struct if_nameindex *each = all; each != nullptr && each->if_index != 0; each++)
        if (std::string(each->if_name).starts_with(prefix))
            names.emplace_back(each->if_name);
    if_freenameindex(all);
    return names;
}

/// An lvt_bridge that is killed while it starts leaves its tables behind.
void sweep_firewall(const std::string &prefix)
{
    try {
        std::istringstream tables(run({.argv = {"nft", "list", "tables"}}).output);
        for (std::string word, family, name; tables >> word >> family >> name;)
            if (name.starts_with(gate_table(prefix)))
                run({.argv = {"nft", "delete", "table", family, name}});
    } catch (const std::system_error &) { // there is no nft
    }
}

void sweep(const fd_t &folder, const std::string &prefix)
{
    within(
        5s,
        [&] {
            for (const std::string &name : interfaces(prefix))
                run({.argv = {"ip", "link", "delete", name}}); // which may have gone with its peer
            return interfaces(prefix).empty();
        },
        100ms);
    sweep_firewall(prefix);
    std::error_code refused;
    for (const auto &entry : fs::directory_iterator(BRIDGE_NOTES_FOLDER, refused)) {
        const std::string name = entry.path().filename();
        if (name.starts_with(prefix) || name.starts_with("." + prefix))
            fs::remove(entry.path(), refused);
    }
    if (flock(folder.number(), LOCK_EX | LOCK_NB) != 0)
        return; // who is there still does the rest
    if (text_of(HELPER).ends_with(MARK))
        fs::remove(HELPER, refused);
    rmdir(BRIDGE_NOTES_FOLDER); // unless somebody has noted something
}

/// Forks a process that nobody knows: killing all the caller's descendants does not reach it.
void start_sweeper(const fd_t &folder, const std::string &prefix, int alive, int alive_end, int done)
{
    const pid_t first = checked(fork(), "fork");
    if (first != 0) {
        waitpid(first, nullptr, 0);
        return;
    }
    setsid();
    if (fork() != 0)
        _exit(EXIT_SUCCESS);
    close(alive_end);
    const int nowhere = open("/dev/null", O_RDWR); // who waits for the end of the output must not wait for this
    for (const int stream : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO})
        dup2(nowhere, stream);
    for (char octet; read(alive, &octet, 1) > 0;)
        ;
    try {
        sweep(folder, prefix);
    } catch (const std::exception &) { // nobody listens
    }
    close(done);
    _exit(EXIT_SUCCESS);
}

/// Tries out whether the kernel asks the helper.
void try_out(const std::string &prefix)
{
    const std::string name = prefix + "try";
    fs::create_directories(BRIDGE_NOTES_FOLDER);
    std::ofstream(fmt::format("{}/{}.claim", BRIDGE_NOTES_FOLDER, name)) << getpid() << '\n';
    const outcome_t made = run({.argv = {"ip", "-batch", "-"}},
                               fmt::format("link add {0} type bridge\nlink set {0} type bridge stp_state 1\n", name));
    const outcome_t shown = run({.argv = {"ip", "-details", "-json", "link", "show", "dev", name}});
    run({.argv = {"ip", "link", "delete", name}});
    const auto links = nlohmann::json::parse(shown.output, nullptr, false);
    if (made.exit_code != 0 || !links.is_array() || links.empty())
        refuse(fmt::format("no bridge can be made here: {}", made.output), "run it as root");
    if (links[0]["linkinfo"]["info_data"].value("stp_state", 0) != 2)
        refuse(fmt::format("the kernel does not ask {} here", HELPER),
               "run it in the machine's first network namespace, and with its root folder");
}

} // namespace

std::string first_net_t::name(int machine, const std::string &plain) const
{
    return net < 0 ? plain : fmt::format("{}{:x}{}", prefix, machine, plain);
}

void guard_first_net(const fs::path &helper)
{
    if (const first_net_t inside = first_net(); inside.net >= 0) {
        fcntl(inside.net, F_SETFD, FD_CLOEXEC);
        return;
    }
    if (geteuid() != 0 || this_user().flags != 0)
        refuse("only root changes the machine's first network namespace", "run it as root");
    fd_t folder(checked(open("/sbin", O_RDONLY | O_DIRECTORY | O_CLOEXEC), "/sbin"));
    const std::string ours = text_of(helper);
    if (ours.empty())
        refuse(fmt::format("there is no {}", helper.string()), "run it from a checkout");
    lock(folder, LOCK_SH);
    while (!has_helper(ours)) {
        lock(folder, LOCK_EX); // from here to there, and back, the lock is nobody's for a moment
        if (!has_helper(ours))
            put_helper(ours);
        lock(folder, LOCK_SH);
    }

    const std::string prefix = fmt::format("t{:x}_", getpid());
    int alive[2], done[2];
    checked(pipe2(alive, O_CLOEXEC), "pipe");
    checked(pipe2(done, O_CLOEXEC), "pipe");
    std::fflush(nullptr);
    start_sweeper(folder, prefix, alive[0], alive[1], done[1]);
    close(done[1]);
    folder = fd_t();
    const pid_t child = checked(fork(), "fork");
    if (child == 0) {
        prctl(PR_SET_PDEATHSIG, SIGKILL);
        try_out(prefix);
        const int net = checked(open("/proc/self/ns/net", O_RDONLY), "/proc/self/ns/net");
        setenv(FOUND, fmt::format("{}:{}", net, prefix).c_str(), 1);
        return;
    }
    int status = 0;
    waitpid(child, &status, 0);
    close(alive[1]);
    for (char octet; read(done[0], &octet, 1) > 0;)
        ;
    _exit(WIFSIGNALED(status) ? 128 + WTERMSIG(status) : WEXITSTATUS(status));
}

first_net_t first_net()
{
    const std::string found = getenv(FOUND) != nullptr ? getenv(FOUND) : "";
    const size_t colon = found.find(':');
    if (colon == std::string::npos)
        return {};
    return {std::atoi(found.c_str()), found.substr(colon + 1)};
}

} // namespace lab
