#include "board/lvt_lab/client.h"

#include <csignal>
#include <cstdlib>
#include <cstring>
#include <filesystem>

#include <fmt/format.h>
#include <fmt/ranges.h>
#include <sched.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include "board/lab/mounts.h"
#include "board/lab/process.h"
#include "board/lab/within.h"
#include "tools/about.h"
#include "tools/ctl/ctl.h"

namespace lvt_lab {

namespace {

channel_t connected(const std::string &lab)
{
    if (auto channel = connect_to(lab))
        return std::move(*channel);
    throw untold_t(fmt::format("no lab \"{}\" is up: lvt_lab ls tells which are", lab));
}

/// Becomes the program in the node. What it starts ends with the lab, being in its process namespace.
[[noreturn]] void become(const std::vector<fd_t> &place, std::vector<std::string> argv)
{
    enum { USER, PROCESSES, NET, MOUNT, ROOT };
    const auto fail = [&](const char *what) {
        fmt::print(stderr, "lvt_lab: {}: {}\n", what, std::strerror(errno));
        _exit(EXIT_UNTOLD);
    };
    std::error_code gone;
    const std::filesystem::path folder = std::filesystem::current_path(gone);
    const std::filesystem::path programs = lab::own_program().parent_path();
    struct stat own = {}, its = {};
    if (stat("/proc/self/ns/user", &own) != 0 || fstat(place[USER].number(), &its) != 0)
        fail("user namespace");
    if (own.st_ino != its.st_ino && setns(place[USER].number(), CLONE_NEWUSER) != 0)
        fail("the lab's user namespace");
    if (setns(place[PROCESSES].number(), CLONE_NEWPID) != 0)
        fail("the lab's process namespace");
    const pid_t child = fork();
    if (child < 0)
        fail("fork");
    if (child > 0) {
        int status = 0;
        std::signal(SIGINT, SIG_IGN);
        std::signal(SIGQUIT, SIG_IGN);
        while (waitpid(child, &status, 0) != child && errno == EINTR)
            continue;
        _exit(WIFSIGNALED(status) ? 128 + WTERMSIG(status) : WEXITSTATUS(status));
    }
    prctl(PR_SET_PDEATHSIG, SIGHUP);
    if (setns(place[NET].number(), CLONE_NEWNET) != 0 ||
        !lab::enter_mounts(place[MOUNT].number(), place[ROOT].number()))
        fail("the node's namespaces");
    std::filesystem::current_path(folder, gone);
    const char *path = getenv("PATH"), *pages = getenv("MANPATH");
    setenv("PATH", fmt::format("{}:{}:/usr/sbin:/sbin", programs.string(), path ? path : "/usr/bin:/bin").c_str(), 1);
    setenv("MANPATH", fmt::format("{}:{}", (programs.parent_path() / "share/man").string(), pages ? pages : "").c_str(),
           1);
    std::vector<char *> words;
    for (std::string &word : argv)
        words.push_back(word.data());
    words.push_back(nullptr);
    execvp(words[0], words.data());
    fmt::print(stderr, "lvt_lab: {}: {}\n", argv[0], std::strerror(errno));
    _exit(errno == ENOENT ? 127 : 126);
}

} // namespace

std::string which_lab(const std::string &given)
{
    if (!given.empty())
        return given;
    if (const char *set = getenv("LVT_LAB"); set && *set)
        return set;
    const std::vector<std::string> labs = labs_there();
    if (labs.empty())
        throw untold_t("no lab is up: start one, as in lvt_lab up ring 4");
    if (labs.size() > 1)
        throw refused_t(fmt::format("several labs are up: say which with --lab, one of {}", fmt::join(labs, ", ")));
    return labs.front();
}

client_t::client_t(const std::string &lab) : lab_(lab), channel_(connected(lab)) {}

nlohmann::json client_t::ask(const nlohmann::json &request)
{
    channel_.send(request);
    const auto answer = channel_.receive();
    if (!answer)
        throw untold_t(fmt::format("the lab {} has ended", lab_));
    if (answer->contains("refused"))
        throw refused_t(answer->at("refused").get<std::string>());
    return *answer;
}

lab_view_t client_t::view() { return view_of(ask({{"verb", "show"}}).at("view")); }

void client_t::follow(uint64_t after, const std::function<bool(const event_t &)> &take)
{
    channel_.send({{"verb", "events"}, {"after", after}});
    while (const auto told = channel_.receive())
        if (!take(event_of(*told)))
            return;
    throw untold_t(fmt::format("the lab {} has ended", lab_));
}

int run_in_node(const std::string &lab, const std::string &node, const std::vector<std::string> &argv)
{
    client_t client(lab);
    client.ask({{"verb", "enter"}, {"node", node}});
    const std::vector<fd_t> &place = client.channel().descriptors;
    if (place.size() != 5)
        throw untold_t(fmt::format("the lab {} is of another version", lab));
    std::fflush(nullptr);
    const pid_t child = lab::checked(fork(), "fork");
    if (child == 0)
        become(place, argv);
    // The terminal's keys are for the program.
    const auto before = std::signal(SIGINT, SIG_IGN), before_quit = std::signal(SIGQUIT, SIG_IGN);
    int status = 0;
    while (waitpid(child, &status, 0) != child && errno == EINTR)
        continue;
    std::signal(SIGINT, before);
    std::signal(SIGQUIT, before_quit);
    return WIFSIGNALED(status) ? 128 + WTERMSIG(status) : WEXITSTATUS(status);
}

bool wait_until_gone(const std::string &lab)
{
    return lab::within(std::chrono::seconds(10), [&] { return !connect_to(lab); });
}

} // namespace lvt_lab
