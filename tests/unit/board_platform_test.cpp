// The stand-ins for the board's libraries, against a board that is played by the test.
#include <gtest/gtest.h>

#include <chrono>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iterator>
#include <sstream>
#include <thread>

#include <sys/socket.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include "board_socket.h"
#include "platform/lvt_com.h"

namespace {

using namespace std::chrono_literals;

/// A directory of its own, with the environment pointing to a socket in it.
class board_library : public testing::Test {
protected:
    board_library()
    {
        char name[] = "/tmp/unit_board.XXXXXX";
        directory_ = mkdtemp(name);
        path_ = directory_ / "board.sock";
        setenv(BOARD_SOCKET_VARIABLE, path_.c_str(), 1);

        // What an earlier test left open would be the first thing to be used.
        mdio_multi_t nothing = {};
        link_mon_status_t status;
        mdio_intf_access_multi(&nothing);
        link_mon_intf_param_get(&status);
    }

    ~board_library() override
    {
        close_board();
        std::filesystem::remove_all(directory_);
    }

    void open_board()
    {
        listener_ = socket(AF_UNIX, SOCK_SEQPACKET, 0);
        sockaddr_un address = {};
        address.sun_family = AF_UNIX;
        std::strcpy(address.sun_path, path_.c_str());
        ASSERT_EQ(bind(listener_, reinterpret_cast<sockaddr *>(&address), sizeof address), 0);
        ASSERT_EQ(listen(listener_, 4), 0);
    }

    void close_board()
    {
        if (board_.joinable())
            board_.join();
        for (int *fd : {&caller_, &listener_})
            if (*fd >= 0)
                close(std::exchange(*fd, -1));
        std::filesystem::remove(path_);
    }

    /// Answers the next request, on the connection that is there or on the next one, with what
    /// `answer` makes of it. The board's side runs until the request is served.
    void play(std::function<std::string(const std::string &request)> answer)
    {
        if (board_.joinable())
            board_.join();
        board_ = std::thread([this, answer = std::move(answer)] {
            if (caller_ < 0)
                caller_ = accept(listener_, nullptr, nullptr);
            std::string request(4096, '\0');
            const ssize_t got = recv(caller_, request.data(), request.size(), 0);
            request.resize(got > 0 ? static_cast<std::size_t>(got) : 0);
            const std::string words = answer(request);
            if (!words.empty())
                send(caller_, words.data(), words.size(), MSG_NOSIGNAL);
        });
    }

    std::filesystem::path directory_, path_;
    int listener_ = -1, caller_ = -1;
    std::thread board_;
};

template <typename record_t>
std::string octets_of(const record_t &record)
{
    return {reinterpret_cast<const char *>(&record), sizeof record};
}

template <typename record_t>
record_t record_of(const std::string &octets)
{
    record_t record = {};
    EXPECT_EQ(octets.size(), sizeof record);
    std::memcpy(&record, octets.data(), std::min(octets.size(), sizeof record));
    return record;
}

std::string mdio_answer(int result) { return octets_of(board_head_t{BOARD_MAGIC, BOARD_MDIO, result, 0}); }

mdio_multi_t one_write()
{
    mdio_multi_t batch = {};
    batch.count = 1;
    batch.operations[0] = {MDIO_OP_WRITE, 0x123, 0, 0x456};
    return batch;
}

TEST_F(board_library, without_a_board_calls_fail_at_once)
{
    mdio_multi_t batch = one_write();
    link_mon_status_t status;
    const auto start = std::chrono::steady_clock::now();
    EXPECT_NE(mdio_intf_access_multi(&batch), 0);
    EXPECT_NE(link_mon_intf_param_get(&status), 0);
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(BOARD_PATIENCE_MS));
}

TEST_F(board_library, a_batch_reaches_the_board_whole)
{
    open_board();
    board_mdio_request_t seen = {};
    play([&](const std::string &request) {
        seen = record_of<board_mdio_request_t>(request);
        return mdio_answer(0);
    });
    mdio_multi_t batch = one_write();
    EXPECT_EQ(mdio_intf_access_multi(&batch), 0);
    board_.join();
    EXPECT_EQ(seen.head.magic, BOARD_MAGIC);
    EXPECT_EQ(seen.head.kind, BOARD_MDIO);
    EXPECT_EQ(seen.head.length, sizeof batch);
    EXPECT_EQ(std::memcmp(&seen.batch, &batch, sizeof batch), 0);
}

TEST_F(board_library, the_board_decides_the_result_and_the_connection_stays)
{
    open_board();
    mdio_multi_t batch = one_write();
    for (const int result : {0, -1, 0, 7}) {
        play([=](const std::string &) { return mdio_answer(result); });
        EXPECT_EQ(mdio_intf_access_multi(&batch), result);
    }
}

TEST_F(board_library, link_words_arrive)
{
    open_board();
    play([](const std::string &) {
        board_link_answer_t answer = {{BOARD_MAGIC, BOARD_LINK, 0, sizeof(link_mon_status_t)}, {}};
        for (std::uint32_t i = 0; i < LINK_MON_PORTS; i++)
            answer.status.status[i] = 0x140 + i;
        return octets_of(answer);
    });
    link_mon_status_t status = {};
    EXPECT_EQ(link_mon_intf_param_get(&status), 0);
    for (std::uint32_t i = 0; i < LINK_MON_PORTS; i++)
        EXPECT_EQ(status.status[i], 0x140 + i);
}

TEST_F(board_library, a_refused_link_question_leaves_the_record_alone)
{
    open_board();
    play([](const std::string &) {
        return octets_of(board_link_answer_t{{BOARD_MAGIC, BOARD_LINK, -1, sizeof(link_mon_status_t)}, {}});
    });
    link_mon_status_t status = {};
    status.status[3] = 0x55;
    EXPECT_EQ(link_mon_intf_param_get(&status), -1);
    EXPECT_EQ(status.status[3], 0x55u);
}

TEST_F(board_library, a_board_that_hangs_costs_less_than_two_seconds)
{
    open_board(); // nobody accepts, nobody answers
    mdio_multi_t batch = one_write();
    const auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(mdio_intf_access_multi(&batch), -1);
    EXPECT_LT(std::chrono::steady_clock::now() - start, 2s);
}

TEST_F(board_library, answers_that_are_none_fail_and_the_next_call_connects_anew)
{
    const std::string bad_answers[] = {
        "?",
        octets_of(board_head_t{BOARD_MAGIC + 1, BOARD_MDIO, 0, 0}),
        octets_of(board_head_t{BOARD_MAGIC, BOARD_LINK, 0, 0}),
        mdio_answer(0) + "and more",
    };
    open_board();
    mdio_multi_t batch = one_write();
    for (const std::string &bad : bad_answers) {
        play([&](const std::string &) { return bad; });
        EXPECT_EQ(mdio_intf_access_multi(&batch), -1);
        board_.join();
        close(std::exchange(caller_, -1));

        play([](const std::string &) { return mdio_answer(0); });
        EXPECT_EQ(mdio_intf_access_multi(&batch), 0);
    }
}

TEST_F(board_library, a_board_that_starts_again_is_found_again)
{
    mdio_multi_t batch = one_write();
    open_board();
    play([](const std::string &) { return mdio_answer(0); });
    EXPECT_EQ(mdio_intf_access_multi(&batch), 0);

    close_board();
    EXPECT_EQ(mdio_intf_access_multi(&batch), -1);

    open_board();
    play([](const std::string &) { return mdio_answer(0); });
    EXPECT_EQ(mdio_intf_access_multi(&batch), 0);
}

TEST_F(board_library, threads_share_a_connection_without_mixing_answers)
{
    open_board();
    constexpr int calls = 200;
    std::thread board([this] {
        const int caller = accept(listener_, nullptr, nullptr);
        for (int i = 0; i < 4 * calls; i++) {
            board_mdio_request_t request = {};
            if (recv(caller, &request, sizeof request, 0) != sizeof request)
                break;
            const std::string answer = mdio_answer(static_cast<int>(request.batch.operations[0].value));
            send(caller, answer.data(), answer.size(), MSG_NOSIGNAL);
        }
        close(caller);
    });
    std::vector<std::thread> threads;
    std::array<int, 4> wrong{};
    for (int t = 0; t < 4; t++)
        threads.emplace_back([t, &wrong] {
            for (int i = 0; i < calls; i++) {
                mdio_multi_t batch = one_write();
                batch.operations[0].value = static_cast<std::uint32_t>(t * calls + i);
                wrong[static_cast<std::size_t>(t)] += mdio_intf_access_multi(&batch) != t * calls + i;
            }
        });
    for (std::thread &thread : threads)
        thread.join();
    board.join();
    EXPECT_EQ(wrong, (std::array<int, 4>{}));
}

// ---- console ---------------------------------------------------------------------------

/// What a child that runs `body` writes to its standard output before it is killed: the console
/// must not leave anything in a buffer.
std::string output_of_child(const std::function<void()> &body)
{
    int ends[2];
    EXPECT_EQ(pipe(ends), 0);
    const pid_t child = fork();
    if (child == 0) {
        dup2(ends[1], STDOUT_FILENO);
        body();
        _exit(0);
    }
    close(ends[1]);
    std::string output;
    char chunk[512];
    for (ssize_t got; (got = read(ends[0], chunk, sizeof chunk)) > 0;)
        output.append(chunk, static_cast<std::size_t>(got));
    close(ends[0]);
    waitpid(child, nullptr, 0);
    return output;
}

TEST(board_console, goes_to_standard_output_at_once)
{
    EXPECT_EQ(output_of_child([] {
                  unsetenv("LVT_CONSOLE");
                  if (osPrintfConsole("port %d: %s\n", 3, "up") != 11)
                      osPrintfConsole("wrong count");
                  osPrintfConsole("no line end");
              }),
              "port 3: up\nno line end");
}

TEST(board_console, is_appended_to_the_file_that_is_named)
{
    char path[] = "/tmp/unit_board_console.XXXXXX";
    close(mkstemp(path));
    std::ofstream(path) << "before\n";
    EXPECT_EQ(output_of_child([&] {
                  setenv("LVT_CONSOLE", path, 1);
                  osPrintfConsole("one %d\n", 1);
                  osPrintfConsole("two");
              }),
              "");
    std::stringstream text;
    text << std::ifstream(path).rdbuf();
    EXPECT_EQ(text.str(), "before\none 1\ntwo");
    unlink(path);
}

TEST(board_console, falls_back_to_standard_output)
{
    EXPECT_EQ(output_of_child([] {
                  setenv("LVT_CONSOLE", "/nonexistent/console", 1);
                  osPrintfConsole("still here");
              }),
              "still here");
}

} // namespace
