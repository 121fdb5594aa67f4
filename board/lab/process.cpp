#include "board/lab/process.h"

#include <cerrno>
#include <climits>
#include <csignal>
#include <cstdlib>
#include <sstream>
#include <system_error>
#include <utility>

#include <fcntl.h>
#include <sched.h>
#include <sys/auxv.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include "board/lab/mounts.h"
#include "board/lab/within.h"

namespace lab {

namespace {

int exit_code_of(int status) { return WIFSIGNALED(status) ? 128 + WTERMSIG(status) : WEXITSTATUS(status); }

std::vector<char *> pointers_to(std::vector<std::string> &strings)
{
    std::vector<char *> pointers;
    for (std::string &string : strings)
        pointers.push_back(string.data());
    pointers.push_back(nullptr);
    return pointers;
}

std::vector<std::string> environment_with(const std::vector<std::string> &additions)
{
    std::vector<std::string> all = additions;
    for (char **entry = environ; *entry != nullptr; entry++) {
        const std::string name = std::string(*entry).substr(0, std::string(*entry).find('=') + 1);
        bool replaced = false;
        for (const std::string &addition : additions)
            replaced = replaced || addition.starts_with(name);
        if (!replaced)
            all.push_back(*entry);
    }
    return all;
}

/// What is handed to the child, prepared before the fork: after it only system calls are safe.
struct launch_t {
    const char *program;
    char *const *argv;
    char *const *environment;
    const command_t *command;
    int report; ///< takes errno when the program cannot be started; closes when it could
};

[[noreturn]] void give_up(const launch_t &launch)
{
    const int error = errno;
    [[maybe_unused]] const ssize_t told = write(launch.report, &error, sizeof error);
    _exit(127);
}

/// Puts `fd`, or /dev/null, in the place of a standard descriptor.
bool put(int fd, int place)
{
    if (fd < 0)
        fd = open("/dev/null", O_RDWR);
    if (fd == place)
        return fcntl(fd, F_SETFD, 0) == 0;
    return dup2(fd, place) >= 0;
}

[[noreturn]] void become(const launch_t &launch)
{
    const command_t &command = *launch.command;

    sigset_t none;
    sigemptyset(&none);
    sigprocmask(SIG_SETMASK, &none, nullptr);
    std::signal(SIGINT, SIG_DFL);
    std::signal(SIGTERM, SIG_DFL);
    std::signal(SIGPIPE, SIG_DFL);

    if (command.dies_with_parent != 0)
        prctl(PR_SET_PDEATHSIG, command.dies_with_parent);
    if (!command.with_terminal)
        setsid();
    if (command.place.net >= 0 && setns(command.place.net, CLONE_NEWNET) != 0)
        give_up(launch);
    if (command.place.mount >= 0 && !enter_mounts(command.place.mount, command.place.root))
        give_up(launch);

    // Copies above the standard three first, so that none of them is overwritten before its turn.
    const int in = command.in < 0 ? -1 : fcntl(command.in, F_DUPFD_CLOEXEC, 3);
    const int out = command.out < 0 ? -1 : fcntl(command.out, F_DUPFD_CLOEXEC, 3);
    const int err = command.err < 0 ? -1 : fcntl(command.err, F_DUPFD_CLOEXEC, 3);
    if (!put(in, STDIN_FILENO) || !put(out, STDOUT_FILENO) || !put(err, STDERR_FILENO))
        give_up(launch);
    for (const int fd : command.keep_open)
        fcntl(fd, F_SETFD, 0);

    execve(launch.program, launch.argv, launch.environment);
    give_up(launch);
}

} // namespace

int checked(int result, const std::string &what)
{
    if (result < 0)
        throw std::system_error(errno, std::generic_category(), what);
    return result;
}

pid_t bare_fork(int flags)
{
    return static_cast<pid_t>(syscall(SYS_clone, flags | SIGCHLD, nullptr, nullptr, nullptr, nullptr));
}

std::string find_program(const std::string &name)
{
    if (name.find('/') != std::string::npos)
        return access(name.c_str(), X_OK) == 0 ? name : "";
    errno = ENOENT;
    const char *path = getenv("PATH");
    std::istringstream folders(path != nullptr ? path : "/usr/sbin:/usr/bin:/sbin:/bin");
    for (std::string folder; std::getline(folders, folder, ':');) {
        const std::string candidate = folder + "/" + name;
        if (access(candidate.c_str(), X_OK) == 0)
            return candidate;
    }
    return "";
}

std::filesystem::path own_program()
{
    // Not what /proc/self/exe says: in a chroot, that is a path outside as soon as this process has left the
    // mount namespace that it was started in.
    return std::filesystem::canonical(reinterpret_cast<const char *>(getauxval(AT_EXECFN)));
}

std::string program(const char *variable, const char *name)
{
    if (const char *path = getenv(variable); path != nullptr && *path != '\0')
        return path;
    const std::filesystem::path beside = own_program().replace_filename(name);
    if (std::filesystem::exists(beside))
        return beside;
    for (const char *folder : {"sbin", "bin"}) {
        const std::filesystem::path installed = beside.parent_path().parent_path() / folder / name;
        if (std::filesystem::exists(installed))
            return installed;
    }
    return beside;
}

process_t start(const command_t &command)
{
    const std::string program = find_program(command.argv.at(0));
    if (program.empty())
        throw std::system_error(errno, std::generic_category(), command.argv.at(0));

    std::vector<std::string> argv = command.argv;
    std::vector<std::string> environment = environment_with(command.environment);
    const std::vector<char *> argv_pointers = pointers_to(argv);
    const std::vector<char *> environment_pointers = pointers_to(environment);

    int ends[2];
    checked(pipe2(ends, O_CLOEXEC), "pipe");
    const fd_t report(ends[0]);
    fd_t report_end(ends[1]);
    const launch_t launch = {program.c_str(), argv_pointers.data(), environment_pointers.data(), &command,
                             report_end.number()};

    const pid_t pid = checked(fork(), "fork");
    if (pid == 0)
        become(launch);
    process_t process(pid);

    report_end = fd_t();
    int error;
    if (read(report.number(), &error, sizeof error) == sizeof error)
        throw std::system_error(error, std::generic_category(), program);
    return process;
}

outcome_t run(command_t command, const std::string &input, const std::function<void(const std::string &)> &hear)
{
    const fd_t in(checked(memfd_create("input", MFD_CLOEXEC), "memfd"));
    for (size_t at = 0; at < input.size();)
        at +=
            static_cast<size_t>(checked(static_cast<int>(write(in.number(), &input[at], input.size() - at)), "memfd"));
    lseek(in.number(), 0, SEEK_SET);

    int ends[2];
    checked(pipe2(ends, O_CLOEXEC), "pipe");
    const fd_t output(ends[0]);
    fd_t output_end(ends[1]);
    command.in = in.number();
    command.out = command.err = output_end.number();
    process_t process = start(command);
    output_end = fd_t();

    outcome_t outcome = {};
    char octets[4096];
    for (size_t heard = 0;;) {
        const ssize_t got = read(output.number(), octets, sizeof octets);
        if (got < 0 && errno == EINTR)
            continue;
        if (got <= 0)
            break;
        outcome.output.append(octets, static_cast<size_t>(got));
        for (size_t end; hear && (end = outcome.output.find('\n', heard)) != std::string::npos; heard = end + 1)
            hear(outcome.output.substr(heard, end - heard));
    }
    outcome.exit_code = process.wait();
    return outcome;
}

process_t::process_t(process_t &&other) noexcept
    : pid_(std::exchange(other.pid_, -1)), exit_code_(std::exchange(other.exit_code_, {}))
{
}

process_t &process_t::operator=(process_t &&other) noexcept
{
    std::swap(pid_, other.pid_);
    std::swap(exit_code_, other.exit_code_);
    return *this;
}

process_t::~process_t()
{
    if (running()) {
        signal(SIGKILL);
        wait();
    }
}

std::optional<int> process_t::exit_code()
{
    int status;
    if (pid_ > 0 && !exit_code_ && waitpid(pid_, &status, WNOHANG) == pid_)
        exit_code_ = exit_code_of(status);
    return exit_code_;
}

bool process_t::running() { return pid_ > 0 && !exit_code(); }

int process_t::wait()
{
    int status;
    while (pid_ > 0 && !exit_code_) {
        if (waitpid(pid_, &status, 0) == pid_)
            exit_code_ = exit_code_of(status);
        else if (errno != EINTR)
            checked(-1, "waitpid");
    }
    return exit_code_.value_or(0);
}

void process_t::signal(int number)
{
    if (running())
        kill(pid_, number);
}

int process_t::stop(std::chrono::milliseconds patience)
{
    signal(SIGTERM);
    const auto ended = [this] { return !running(); };
    if (!within(patience, ended, 5ms))
        signal(SIGKILL);
    return wait();
}

} // namespace lab
