/// Writing into the daemon's named pipes, never creating anything.
#pragma once

#include <chrono>
#include <cstdint>
#include <span>
#include <string>

struct pipe_result_t {
    int error = 0;       ///< 0, or the errno value that says why
    std::string message; ///< for people: the pipe, the likely cause, the next step

    bool ok() const { return error == 0; }
};

/// Writes `octets` into the named pipe at `path` in one piece. A frame of up to 4096 octets goes in
/// whole or not at all.
///
/// patience  how long a full pipe is waited for; by default not at all.
///
/// Errors: ENOENT no such pipe; ENXIO or EPIPE nobody reads it; EAGAIN it is full; EMSGSIZE only
/// part of a long frame fitted; ENOTSUP it is no pipe (nothing is written); else as open and write.
[[nodiscard]] pipe_result_t write_to_pipe(const std::string &path, std::span<const uint8_t> octets,
                                          std::chrono::milliseconds patience = {});

/// As write_to_pipe, for a reader that takes whatever lies in its pipe as one text: writes only once
/// nothing else waits there. Callers of this function wait for each other.
///
/// patience  how long the reader has to take what was written before.
///
/// Errors: as write_to_pipe, and EBUSY when the reader did not take it (nothing is written).
[[nodiscard]] pipe_result_t write_to_empty_pipe(const std::string &path, std::span<const uint8_t> octets,
                                                std::chrono::milliseconds patience);
