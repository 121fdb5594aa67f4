/// Running lvt_rstpctl, as a program, on a board's file system that a test prepares.
#pragma once

#include <algorithm>
#include <atomic>
#include <chrono>
#include <climits>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <optional>
#include <thread>

#include <fmt/format.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/inotify.h>
#include <sys/wait.h>

#include "platform/messages.h"
#include "program.h"
#include "tests/this_build.h"
#include "tools/messages.h"
#include "tools_fixture.h"

/// Runs the tool with a command line in shell syntax.
inline run_t run(const std::string &arguments)
{
    return run_command(fmt::format("\"{}\" {}", rstpctl_program(), arguments));
}

/// A status file: port 1 root, port 2 alternate, both towards an STP bridge; port 3 designated, to a
/// host; ports 4 to 6 off, no groups.
constexpr char STATUS[] = R"(@rstp_bridge_overview
bridge_overview=61440:02-00-00-00-01-00,20,2,15,0,32768:02-00-00-01-11-00,1

@rstp_bridge_time
bridge_time=2026/11/20 14:08:15,3,72

@rstp_port_status
port01=8000,0,1,1,3,4,0,32768:02-00-00-01-11-00/1
port02=8000,0,1,1,1,1,0,32768:02-00-00-01-11-00/2
port03=8000,1,1,0,4,4,0,61440:02-00-00-00-01-00/3
port04=0,1,1,0,5,5,0,0:00-00-00-00-00-00/0
port05=0,1,1,0,5,5,0,0:00-00-00-00-00-00/0
port06=0,1,1,0,5,5,0,0:00-00-00-00-00-00/0
port07=0,1,1,0,5,5,0,0:00-00-00-00-00-00/0
port08=0,1,1,0,5,5,0,0:00-00-00-00-00-00/0
port09=0,1,1,0,5,5,0,0:00-00-00-00-00-00/0

@rstp_statistics
port01=4,5,6,7,20,8,9,10
port02=3,0,0,0,20,0,0,0
port03=23,0,0,0,0,0,0,0
port04=0,0,0,0,0,0,0,0
port05=0,0,0,0,0,0,0,0
port06=0,0,0,0,0,0,0,0
port07=0,0,0,0,0,0,0,0
port08=0,0,0,0,0,0,0,0
port09=0,0,0,0,0,0,0,0
!
)";

/// `text` with its one `part` replaced.
inline std::string replaced(std::string text, const std::string &part, const std::string &by)
{
    const size_t at = text.find(part);
    if (at == std::string::npos || text.find(part, at + 1) != std::string::npos)
        ADD_FAILURE() << "there is not one \"" << part << "\" in the text";
    else
        text.replace(at, part.size(), by);
    return text;
}

/// Sees when a file in a folder has been read and closed.
class reads_t {
public:
    explicit reads_t(const std::string &folder) : fd_(inotify_init1(IN_CLOEXEC))
    {
        if (fd_ < 0 || inotify_add_watch(fd_, folder.c_str(), IN_CLOSE_NOWRITE) < 0)
            abort();
    }
    ~reads_t() { close(fd_); }
    reads_t(const reads_t &) = delete;
    reads_t &operator=(const reads_t &) = delete;

    /// Waits for the next time, but no longer than anything should take. Folders do not count.
    void wait() const
    {
        alignas(inotify_event) char buffer[4096];
        for (pollfd input = {fd_, POLLIN, 0}; poll(&input, 1, 10'000) == 1;) {
            bool file = false;
            const ssize_t size = read(fd_, buffer, sizeof buffer);
            for (ssize_t at = 0; at < size;) {
                const auto *event = reinterpret_cast<const inotify_event *>(buffer + at);
                file = file || !(event->mask & IN_ISDIR);
                at += static_cast<ssize_t>(sizeof *event + event->len);
            }
            if (file)
                return;
        }
        ADD_FAILURE() << "nobody read the file";
    }

private:
    int fd_;
};

/// A board's file system with both pipes, as --root finds it.
struct ctl : testing::Test {
    temp_folder_t board;
    pipe_reader_t control{board.path + RSTP_IF_PIPE};
    pipe_reader_t debug{board.path + RSTP_DBG_IF_PIPE};

    /// The age of a report that stays the only one while even a command that starts slowly looks at it.
    static constexpr auto FRESH_FOR_LONG = std::chrono::milliseconds(-2500);

    std::optional<std::chrono::milliseconds> age; ///< of the last report when a command starts, if the daemon is dead

    /// Runs a command while the daemon reports the same again and again, unless it is dead.
    run_t run_on_board(const std::string &arguments)
    {
        using namespace std::chrono_literals;
        date_report(age.value_or(0ms));
        std::atomic<bool> over = age.has_value();
        std::thread daemon([&] {
            for (; !over; std::this_thread::sleep_for(20ms))
                date_report(0ms);
        });
        const run_t result = run("--root " + board.path + " " + arguments);
        over = true;
        daemon.join();
        return result;
    }

    void date_report(std::chrono::milliseconds how_old) const
    {
        const std::string status = board.path + RSTP_MONITOR_FILE;
        std::error_code none;
        if (std::filesystem::is_regular_file(status, none))
            std::filesystem::last_write_time(status, std::filesystem::file_time_type::clock::now() - how_old, none);
    }

    std::string path(const std::string &name) const { return board.path + "/" + name; }

    /// Puts a file in place whole, as the daemon does.
    void write_file(const std::string &file_path, const std::string &text) const
    {
        std::ofstream(file_path + ".new") << text;
        std::filesystem::rename(file_path + ".new", file_path);
    }
    std::string read_file(const std::string &file_path) const
    {
        std::ifstream file(file_path);
        return {std::istreambuf_iterator<char>(file), {}};
    }

    /// What the daemon, which lives, reports from now on.
    void report(const std::string &status_text)
    {
        age.reset();
        put_report(status_text);
    }
    void put_report(const std::string &status_text) const
    {
        const std::string next = board.path + RSTP_MONITOR_FILE + ".new";
        std::ofstream(next) << status_text;
        // The time at which the kernel says that a file was written may be the same for two of them.
        std::filesystem::last_write_time(next, std::filesystem::file_time_type::clock::now());
        std::filesystem::rename(next, board.path + RSTP_MONITOR_FILE);
    }

    /// Runs a command that watches while the daemon reports one state after the other. Each is there
    /// until the command has read it; after the last the file is gone, which ends the command.
    run_t run_through(const std::vector<std::string> &reports, const std::string &arguments)
    {
        report(reports.front());
        const reads_t reads(board.path + "/tmp");
        std::thread daemon([&] {
            for (size_t i = 1; i < reports.size(); i++) {
                reads.wait();
                put_report(reports[i]);
            }
            reads.wait();
            std::filesystem::remove(board.path + RSTP_MONITOR_FILE);
        });
        age = FRESH_FOR_LONG; // until the next
        const run_t result = run_on_board(arguments);
        daemon.join();
        age.reset();
        return result;
    }

    /// Runs a command that must send exactly `frame` and say so in one line.
    void expect_sends(const std::string &arguments, const std::vector<uint8_t> &frame)
    {
        const run_t result = run_on_board(arguments);
        EXPECT_EQ(result.status, 0) << arguments;
        EXPECT_TRUE(is_one_line(result.output, {"sent: ", "applied ", "set in "})) << arguments << "\n"
                                                                                   << result.output;
        EXPECT_EQ(control.read_all(), frame) << arguments;
    }
    /// The same, and the line is "sent: `words`".
    void expect_sends(const std::string &arguments, const std::vector<uint8_t> &frame, const std::string &words)
    {
        expect_says(arguments, "sent: " + words + "\n");
        EXPECT_EQ(control.read_all(), frame) << arguments;
    }

    static bool is_one_line(const std::string &text, const std::vector<std::string> &beginnings)
    {
        return text.find('\n') == text.size() - 1 && std::ranges::any_of(beginnings, [&](const std::string &beginning) {
                   return text.starts_with(beginning);
               });
    }

    /// Runs a command that must send nothing and say `text`.
    void expect_fails(const std::string &arguments, int status, const std::string &text)
    {
        const run_t result = run_on_board(arguments);
        EXPECT_EQ(result.status, status) << arguments;
        EXPECT_EQ(result.output, text) << arguments;
        EXPECT_EQ(control.read_all().size() + debug.read_all().size(), 0u) << arguments;
    }
    void expect_refused(const std::string &arguments, const std::string &reason)
    {
        expect_fails(arguments, 1, "lvt_rstpctl: " + reason + "\n");
    }
    void expect_untold(const std::string &arguments, const std::string &reason)
    {
        expect_fails(arguments, 3, "lvt_rstpctl: " + reason + "\n");
    }
    void expect_usage(const std::string &arguments, const std::string &reason)
    {
        expect_fails(arguments, 2, reason + "\nRun with --help for more information.\n");
    }
    /// Runs a command that must succeed and say `text`.
    void expect_says(const std::string &arguments, const std::string &text)
    {
        const run_t result = run_on_board(arguments);
        EXPECT_EQ(result.status, 0) << arguments;
        EXPECT_EQ(result.output, text) << arguments;
    }
};
