/// Child processes that go with their owner.
#pragma once

#include <chrono>
#include <filesystem>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include <sys/types.h>

#include "board/lvt_board/fd.h"

namespace lab {

/// Throws std::system_error with `what` and errno when `result` is negative; else returns it.
int checked(int result, const std::string &what);

/// The namespaces that a process starts in; -1: those of the caller.
struct place_t {
    int net = -1;
    int mount = -1;
    int root = -1; ///< goes with `mount`: the folder there that is the root and the working folder
};

/// What to start, and how.
struct command_t {
    std::vector<std::string> argv;
    std::vector<std::string> environment = {}; ///< NAME=value, added to the caller's
    int in = -1;                               ///< descriptors; -1: /dev/null
    int out = -1;
    int err = -1;
    std::vector<int> keep_open = {}; ///< further descriptors that the program gets
    int dies_with_parent = 0;        ///< the signal that it gets when the thread that started it ends; 0: none
    bool with_terminal = false;      ///< stays in the caller's process group, so that Ctrl-C reaches it
    place_t place = {};
};

/// A child process. It is killed when the object goes.
class process_t {
public:
    process_t() = default;
    explicit process_t(pid_t pid) : pid_(pid) {}
    process_t(process_t &&other) noexcept;
    process_t &operator=(process_t &&other) noexcept;
    ~process_t();

    pid_t pid() const { return pid_; }
    bool running();

    /// The exit code, or 128 + signal; nothing while it runs.
    std::optional<int> exit_code();

    /// Waits for the end as long as it takes; returns the exit code as above.
    int wait();

    void signal(int number);

    /// Asks it to end (SIGTERM), and kills it when it has not done so after `patience`.
    /// Returns the exit code as above.
    int stop(std::chrono::milliseconds patience = std::chrono::seconds(2));

private:
    pid_t pid_ = -1;
    std::optional<int> exit_code_;
};

/// Starts a program. Its name is looked up in PATH.
/// Throws std::system_error when it cannot be started.
process_t start(const command_t &command);

struct outcome_t {
    int exit_code;      ///< or 128 + signal
    std::string output; ///< standard output and standard error together
};

/// Runs a program to its end, with `input` as its standard input; `hear` gets each line of the output at once.
/// Throws std::system_error when it cannot be started.
outcome_t run(command_t command, const std::string &input = {},
              const std::function<void(const std::string &line)> &hear = {});

/// Looks a program up in PATH; empty, with errno, when there is none.
std::string find_program(const std::string &name);

/// Where the running program lies, without symbolic links. Before the program enters a world of its own it must
/// not have changed its working folder. Throws std::filesystem::filesystem_error, a std::system_error.
std::filesystem::path own_program();

/// The path of a program of ours: what the environment says in `variable`, so that another build's can be tried, or
/// else the one called `name` beside the running program or, as installed, in the sbin/ or bin/ beside its folder.
std::string program(const char *variable, const char *name);

/// A fork without the C library's handlers, so that the child has one thread and nothing else.
/// It is for children that soon run another program, or end by _exit.
///
/// flags  namespaces that the child gets, as clone(2) takes them.
///
/// Returns as fork does, -1 included.
pid_t bare_fork(int flags = 0);

} // namespace lab
