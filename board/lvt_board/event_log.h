/// The board's diary: one line per event, `SECONDS TOPIC key=value ... | words`, written at once.
/// The keys are for programs, the words after the bar for people; either may be missing.
#pragma once

#include <chrono>
#include <cstdio>
#include <memory>
#include <string>

#include <fmt/format.h>

/// A clock that starts with the board.
class board_clock_t {
public:
    std::chrono::microseconds now() const
    {
        const auto elapsed = std::chrono::steady_clock::now() - start_;
        return std::chrono::duration_cast<std::chrono::microseconds>(elapsed);
    }
    double seconds() const { return std::chrono::duration<double>(now()).count(); }

private:
    std::chrono::steady_clock::time_point start_ = std::chrono::steady_clock::now();
};

class event_log_t {
public:
    explicit event_log_t(const board_clock_t &clock) : clock_(clock) {}

    /// Begins an empty file at `path`; throws std::system_error when that fails. Without a file,
    /// lines are dropped.
    void open(const std::string &path);

    template <typename... arguments_t>
    void line(const char *topic, fmt::format_string<arguments_t...> format, arguments_t &&...arguments)
    {
        if (file_)
            write(topic, fmt::format(format, std::forward<arguments_t>(arguments)...));
    }

private:
    void write(const char *topic, const std::string &text);

    const board_clock_t &clock_;
    std::unique_ptr<std::FILE, int (*)(std::FILE *)> file_{nullptr, std::fclose};
};
