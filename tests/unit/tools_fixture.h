/// A folder of its own for a test, with named pipes in it.
#pragma once

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <thread>
#include <vector>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

/// Makes a folder that goes away with the test.
struct temp_folder_t {
    std::string path = (std::filesystem::temp_directory_path() / "lvt_tools_XXXXXX").string();

    temp_folder_t()
    {
        if (!mkdtemp(path.data()))
            abort();
        std::filesystem::create_directory(path + "/tmp");
    }
    ~temp_folder_t() { std::filesystem::remove_all(path); }
    temp_folder_t(const temp_folder_t &) = delete;
    temp_folder_t &operator=(const temp_folder_t &) = delete;
};

/// Makes a named pipe and, as the daemon does, reads it: never blocking, so that a test cannot hang.
struct pipe_reader_t {
    std::string path;
    int fd;

    explicit pipe_reader_t(const std::string &pipe_path) : path(pipe_path)
    {
        if (mkfifo(path.c_str(), 0600) != 0)
            abort();
        fd = open(path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
        if (fd < 0)
            abort();
    }
    ~pipe_reader_t() { close(fd); }
    pipe_reader_t(const pipe_reader_t &) = delete;
    pipe_reader_t &operator=(const pipe_reader_t &) = delete;

    /// All that is in the pipe now.
    std::vector<uint8_t> read_all()
    {
        std::vector<uint8_t> octets;
        uint8_t buffer[4096];
        for (ssize_t count; (count = read(fd, buffer, sizeof buffer)) > 0;)
            octets.insert(octets.end(), buffer, buffer + count);
        return octets;
    }

    /// What one read takes, as soon as there is something; nothing when it does not come.
    std::vector<uint8_t> read_next() const
    {
        std::vector<uint8_t> octets(4096);
        const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(10);
        ssize_t count;
        while ((count = read(fd, octets.data(), octets.size())) <= 0 && std::chrono::steady_clock::now() < deadline)
            std::this_thread::sleep_for(std::chrono::milliseconds(1)); // poll does not wait without a writer
        octets.resize(static_cast<size_t>(std::max<ssize_t>(count, 0)));
        return octets;
    }
};
