/// What no single report tells, only several of them one after the other.
#pragma once

#include <array>
#include <chrono>
#include <string>
#include <vector>

#include "tools/ctl/status.h"

/// What was seen while somebody watched.
class history_t {
public:
    explicit history_t(const reading_t &first);

    /// Takes the next report. Its time of the last topology change, which the daemon estimates anew each
    /// second, becomes that of the first report that told of this change.
    void take(reading_t &next);

    /// For how long the port has counted no received BPDU, as of the last report.
    std::chrono::seconds silence_of(int port) const;

private:
    reading_t last_;
    std::array<std::chrono::system_clock::time_point, RSTP_PORTS> heard_;
};

/// Whether the port stands where a neighbour has to speak every hello time, but was not heard for three:
/// as root port, alternate or backup.
bool is_deaf(const reading_t &reading, const history_t &history, int port);

/// Lines that say which ports hear nothing that they should hear, or that nobody at all is heard, and the
/// likely cause; none when all is well.
std::vector<std::string> silence_notes(const reading_t &reading, const history_t &history);
