/// Start-up and the bodies of the threads. Each runs in a process of its own, which ends when the
/// wait that the test watches is told to fail; what it prints is compared.
#include <fcntl.h>
#include <unistd.h>

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "daemon/rstp_aggr.h"
#include "daemon/rstp_daemon.h"
#include "daemon/semaphores.h"
#include "daemon_fixture.h"

namespace {

class threads : public daemon_test {
protected:
    /// In the process of a death test: standard output counts as well.
    static void join_streams()
    {
        setvbuf(stdout, nullptr, _IONBF, 0);
        dup2(STDERR_FILENO, STDOUT_FILENO);
    }

    static void print(const std::string &text) { fprintf(stderr, "%s", text.c_str()); }

    static bool is_free(sem_t &sem)
    {
        int value = -1;
        sem_getvalue(&sem, &value);
        return value == 1;
    }

    static void print_log()
    {
        for (const std::string &line : board_log())
            print(line + "\n");
    }

    /// The semaphores and files of the log.
    static void print_locks()
    {
        for (const std::string &line : board_log())
            if (line.starts_with("data") || line.starts_with("core") || line == "file")
                print(line + " ");
    }

    /// Starts the daemon with its main thread in the place of a thread. The tick thread is noted.
    static void run_main_thread()
    {
        join_streams();
        board.on_thread = [](void *(*body)(void *)) {
            if (body == rstp_thread)
                body(nullptr);
            print("tick thread\n");
            return 0;
        };
        rstp_init();
    }

    /// Runs the tick thread until it has waited `waits` times; each wait answers the next result.
    static void run_tick_thread(std::vector<int> results)
    {
        size_t waits = 0;
        board.on_second = [&] {
            if (!is_free(rstp_core_sem) || !is_free(rstp_data_sem))
                print("waits with a lock\n");
            if (waits == results.size()) {
                print("time " + std::to_string(lvt_rstp_vars.time) + ", file " +
                      (access((board.folder + "/rstp_monitor").c_str(), R_OK) == 0 ? "there" : "missing") + "\n");
                _exit(0);
            }
            return results[waits++];
        };
        run_ready_tick_thread();
    }

    /// The tick thread in the place of the first thread of a start.
    static void run_ready_tick_thread()
    {
        board.on_sleep = [] { print("not ready\n"); };
        board.on_thread = [](void *(*)(void *)) {
            rstp_tick_thread(nullptr);
            return 0;
        };
        rstp_init();
    }
};

const std::string BANNER =
    "*****************************\n"
    "*   RSTP Initial Complete   *\n"
    "*****************************\n";

} // namespace

// ---- start ------------------------------------------------------------------------------

TEST_F(threads, first_thread_fails)
{
    const auto start = [] {
        join_streams();
        board.on_thread = [](void *(*body)(void *)) {
            print(body == rstp_thread ? "main thread\n" : "another thread\n");
            return EAGAIN;
        };
        rstp_init();
    };
    EXPECT_EXIT(start(), testing::ExitedWithCode(1), testing::StrEq("main thread\nThread creation failed!!\n"));
}

TEST_F(threads, tick_thread_fails)
{
    const auto start = [] {
        join_streams();
        board.on_thread = [](void *(*body)(void *)) {
            if (body == rstp_thread)
                body(nullptr);
            return EAGAIN;
        };
        rstp_init();
    };
    EXPECT_EXIT(start(), testing::ExitedWithCode(1), testing::StrEq("Thread creation failed!!\n"));
}

TEST_F(threads, control_pipe_is_missing)
{
    unlink(path("rstp_if_pipe").c_str());
    EXPECT_EXIT(run_main_thread(), testing::ExitedWithCode(1), testing::StrEq("tick thread\nRSTP pipe initial fail\n"));
}

TEST_F(threads, debug_pipe_is_missing)
{
    unlink(path("rstp_dbg_if_pipe").c_str());
    EXPECT_EXIT(run_main_thread(), testing::ExitedWithCode(1),
                testing::StrEq("tick thread\nRSTP DEBUG pipe initial fail\n"));
}

TEST_F(threads, the_whole_start)
{
    std::string expected;
    for (int entry = 37; entry <= 42; entry++)
        expected += "rule " + std::to_string(entry) + "\n";
    expected += "links 1 1 1 1 1 1, defaults 0\nopens /tmp/port_mux_if_pipe\n";
    for (uint32_t port = 1; port <= 6; port++)
        for (const std::string &line : state_written(port, 4) + state_written(port, 4))
            expected += line + "\n";
    expected += "flush\ntick thread\nopens /tmp/rstp_if_pipe\nopens /tmp/rstp_dbg_if_pipe\n" + BANNER +
                "RSTP: select() failed: Interrupted system call\n";

    const auto start = [] {
        std::fill(std::begin(board.link_words), std::end(board.link_words), LINK_1000_FULL);
        board.on_open = [](const std::string &name) {
            print_log();
            if (name == "/tmp/port_mux_if_pipe") {
                std::string up;
                for (uint32_t port = 1; port <= 6; port++)
                    up += " " + std::to_string(lvt_os_get_linkstate(port));
                print("links" + up + ", defaults " + std::to_string(lvt_rstp_vars.initialised) + "\n");
            }
            print("opens " + name + "\n");
        };
        board.on_wait = [](int, fd_set *) {
            print(board.console);
            return -1;
        };
        join_streams();
        board.on_thread = [](void *(*body)(void *)) {
            if (body == rstp_thread)
                body(nullptr);
            print_log();
            print("tick thread\n");
            return 0;
        };
        rstp_init();
    };
    EXPECT_EXIT(start(), testing::ExitedWithCode(1), testing::StrEq(expected));
}

TEST_F(threads, what_the_start_holds)
{
    // The tables are emptied, the flag is set; when the pipes are open, it is set again.
    const std::string expected = "data+ data- data+ data- main thread\ntick thread\ndata+ data- main loop\n";
    const auto start = [] {
        board.log_locks = true;
        board.on_thread = [](void *(*body)(void *)) {
            print_locks();
            print(body == rstp_thread ? "main thread\n" : "tick thread\n");
            if (body == rstp_thread)
                body(nullptr);
            return 0;
        };
        board.on_wait = [](int, fd_set *) {
            print_locks();
            print("main loop\n");
            _exit(0);
            return 0;
        };
        rstp_init();
    };
    EXPECT_EXIT(start(), testing::ExitedWithCode(0), testing::StrEq(expected));
}

TEST_F(threads, the_start_puts_every_port_alone)
{
    const auto start = [] {
        memset(aggr_port_status, 7, sizeof aggr_port_status);
        memset(aggr_group_status, 0x3F, sizeof aggr_group_status);
        board.on_thread = [](void *(*)(void *)) {
            print(hex(aggr_port_status) + ", " + hex(aggr_group_status) + "\n");
            _exit(0);
            return 0;
        };
        rstp_init();
    };
    EXPECT_EXIT(start(), testing::ExitedWithCode(0), testing::StrEq("00 01 02 03 04 05 06, 00 00 00\n"));
}

TEST_F(threads, pipes_are_opened_for_reading_and_writing)
{
    const auto start = [] {
        static int last = open("/dev/null", O_RDONLY);
        board.on_wait = [](int width, fd_set *) {
            for (int fd = last + 1; fd < width; fd++)
                print(std::to_string(fcntl(fd, F_GETFL) & (O_ACCMODE | O_NONBLOCK)) + "\n");
            return -1;
        };
        run_main_thread();
    };
    // The multiplexer's, then the two that are read.
    const std::string modes =
        std::to_string(O_RDWR | O_NONBLOCK) + "\n" + std::to_string(O_RDWR) + "\n" + std::to_string(O_RDWR) + "\n";
    EXPECT_EXIT(start(), testing::ExitedWithCode(1), HasSubstr(modes));
}

TEST_F(threads, the_main_loop_serves_messages_and_outlives_bad_ones)
{
    lvt_rstp_system_config_t config = LVT_RSTP_SYSTEM_DEFAULTS;
    config.max_age = 28;
    write_control({1, 2, 3, 4, 5, 6, 7, 8});
    write_control(system_config_message(config));
    write_control(port_config_message(default_port_configs())); // what it starts with: no change
    write_control(raw_message(77, {}));
    config.hello_time = 3;
    write_control(system_config_message(config));
    write_debug("debug show system_config");

    const auto start = [] {
        static int waits = 0;
        board.on_wait = [](int, fd_set *) -> std::optional<int> {
            if (!is_free(rstp_core_sem) || !is_free(rstp_data_sem))
                print("waits with a lock\n");
            if (waits++ < 5)
                return {};
            for (const std::string &line : board_log())
                if (line.starts_with("trap"))
                    print(line + "\n");
            print("max age " + std::to_string(lvt_rstp_vars.config.max_age) + ", hello time " +
                  std::to_string(lvt_rstp_vars.config.hello_time) + "\n");
            return 0;
        };
        run_main_thread();
    };
    EXPECT_EXIT(start(), testing::ExitedWithCode(1), HasSubstr("tick thread\nmax age 28, hello time 3\n"));
}

// ---- tick -------------------------------------------------------------------------------

TEST_F(threads, a_tick_follows_each_wait)
{
    boot();
    EXPECT_EXIT(run_tick_thread({0, 0, 0}), testing::ExitedWithCode(0), testing::StrEq("time 3, file there\n"));
}

TEST_F(threads, what_a_tick_holds)
{
    boot();
    const auto body = [] {
        board.on_second = [] {
            print_locks();
            print("waits\n");
            static int waits = 0;
            if (waits++ == 2)
                _exit(0);
            board.log_locks = true;
            return 0;
        };
        run_ready_tick_thread();
    };
    // The file is opened and put in its place without any.
    EXPECT_EXIT(body(), testing::ExitedWithCode(0),
                testing::StrEq("waits\ncore+ core- file file waits\ncore+ core- file file waits\n"));
}

TEST_F(threads, no_tick_before_the_start_is_complete)
{
    const auto body = [] {
        board.on_sleep = [] {
            static int sleeps = 0;
            print("sleeps\n");
            if (++sleeps == 2)
                _exit(0);
        };
        rstp_tick_thread(nullptr);
    };
    EXPECT_EXIT(body(), testing::ExitedWithCode(0), testing::StrEq("sleeps\nsleeps\n"));
}

TEST_F(threads, an_interrupted_wait_begins_anew_without_a_tick)
{
    boot();
    EXPECT_EXIT(run_tick_thread({-1, 0, -1, -1, 1}), testing::ExitedWithCode(0),
                testing::StrEq("time 1, file there\n"));
}

TEST_F(threads, an_interrupted_wait_writes_no_file)
{
    boot();
    EXPECT_EXIT(run_tick_thread({-1}), testing::ExitedWithCode(0), testing::StrEq("time 0, file missing\n"));
}

TEST_F(threads, no_tick_while_the_lock_is_held)
{
    boot();
    const auto body = [] {
        board.on_second = [] {
            static int waits = 0;
            if (waits++)
                _exit(0);
            sem_wait(&rstp_core_sem);
            return 0;
        };
        // The tick must now wait for the lock; an alarm gives it back.
        signal(SIGALRM, [](int) {
            if (lvt_rstp_vars.time == 0)
                print("waited\n");
            sem_post(&rstp_core_sem);
        });
        ualarm(50000, 0);
        run_ready_tick_thread();
    };
    EXPECT_EXIT(body(), testing::ExitedWithCode(0), testing::StrEq("waited\n"));
}
