/// Writing into named pipes, and each way in which it can fail.
#include "tools/pipe.h"

#include <cerrno>
#include <fstream>
#include <thread>

#include <gtest/gtest.h>

#include "tools_fixture.h"

namespace {

const std::vector<uint8_t> OCTETS = {1, 2, 3, 4};
constexpr auto LONG = std::chrono::seconds(60); ///< nothing takes as long

struct pipe : testing::Test {
    temp_folder_t folder;
    std::string path = folder.path + "/pipe";
};

/// Fills the pipe behind `fd` to its last octet.
void fill(int fd)
{
    const std::vector<uint8_t> zeros(4096);
    while (write(fd, zeros.data(), zeros.size()) > 0) {
    }
}

} // namespace

TEST_F(pipe, octets_arrive_whole)
{
    pipe_reader_t reader(path);
    const pipe_result_t result = write_to_pipe(path, OCTETS);
    EXPECT_TRUE(result.ok()) << result.message;
    EXPECT_EQ(result.message, "");
    EXPECT_EQ(reader.read_all(), OCTETS);
}

TEST_F(pipe, a_missing_one_is_told_and_not_created)
{
    const pipe_result_t result = write_to_pipe(path, OCTETS);
    EXPECT_EQ(result.error, ENOENT);
    EXPECT_EQ(result.message, "no pipe at " + path + ": is the daemon's board running? Start it, and then the daemon.");
    EXPECT_FALSE(std::filesystem::exists(path));
}

TEST_F(pipe, without_a_reader_it_does_not_wait)
{
    ASSERT_EQ(mkfifo(path.c_str(), 0600), 0);
    const pipe_result_t result = write_to_pipe(path, OCTETS);
    EXPECT_EQ(result.error, ENXIO);
    EXPECT_EQ(result.message, "no reader on " + path + ": is the daemon running? Start it.");
}

TEST_F(pipe, a_full_one_takes_nothing)
{
    pipe_reader_t reader(path);
    const int writer = open(path.c_str(), O_WRONLY | O_NONBLOCK);
    ASSERT_GE(writer, 0);
    fill(writer);
    const pipe_result_t result = write_to_pipe(path, OCTETS);
    EXPECT_EQ(result.error, EAGAIN);
    EXPECT_EQ(result.message, path +
                                  " is full: the daemon hangs or is stopped. Look at what it printed last, and "
                                  "start it again.");
    close(writer);
    EXPECT_EQ(reader.read_all().size() % 4096, 0u);
}

TEST_F(pipe, a_long_frame_that_fits_in_part_is_told)
{
    pipe_reader_t reader(path);
    const std::vector<uint8_t> too_long(1 << 20);
    const pipe_result_t result = write_to_pipe(path, too_long);
    EXPECT_EQ(result.error, EMSGSIZE);
    EXPECT_NE(result.message.find("of 1048576 octets fitted into " + path), std::string::npos) << result.message;
}

TEST_F(pipe, a_plain_file_is_left_alone)
{
    std::ofstream(path) << "precious";
    for (const pipe_result_t &result : {write_to_pipe(path, OCTETS), write_to_empty_pipe(path, OCTETS, LONG)}) {
        EXPECT_EQ(result.error, ENOTSUP);
        EXPECT_EQ(result.message, path + " is not a named pipe: remove it and restart the daemon's board");
    }
    EXPECT_EQ(std::filesystem::file_size(path), 8u);
}

TEST_F(pipe, a_folder_is_no_pipe)
{
    const pipe_result_t result = write_to_pipe(folder.path, OCTETS);
    EXPECT_EQ(result.error, EISDIR);
    EXPECT_EQ(result.message, folder.path + " is not a named pipe: remove it and restart the daemon's board");
}

TEST_F(pipe, what_lies_there_unread_is_not_added_to)
{
    pipe_reader_t reader(path);
    ASSERT_TRUE(write_to_empty_pipe(path, OCTETS, {}).ok());
    const pipe_result_t result = write_to_empty_pipe(path, OCTETS, {});
    EXPECT_EQ(result.error, EBUSY);
    EXPECT_EQ(result.message, path +
                                  " holds what the daemon has not read: it hangs or is stopped. Look at what it "
                                  "printed last, and start it again.");
    EXPECT_EQ(reader.read_all(), OCTETS);
    EXPECT_TRUE(write_to_empty_pipe(path, OCTETS, {}).ok());
}

TEST_F(pipe, two_that_write_to_an_empty_one_wait_for_each_other)
{
    pipe_reader_t reader(path);
    constexpr int EACH = 50;
    const auto write_each = [this] {
        for (int i = 0; i < EACH; i++)
            EXPECT_TRUE(write_to_empty_pipe(path, OCTETS, LONG).ok());
    };
    std::thread first(write_each), second(write_each);
    for (int i = 0; i < 2 * EACH; i++)
        EXPECT_EQ(reader.read_next(), OCTETS);
    first.join();
    second.join();
}
