/// What no single report tells, only several of them one after the other.
#pragma once

#include <array>
#include <chrono>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "tools/ctl/status.h"

/// What was seen until now, by this command and by those before it.
class history_t {
public:
    /// Begins with what earlier commands have seen on this board, as far as that is known.
    history_t(const ctl_t &ctl, reading_t &first);

    /// Takes the next report. Its time of the last topology change, which the daemon estimates anew each
    /// second, becomes that of the first report that told of this change.
    void take(reading_t &next);

    /// Leaves it to the commands that come after, if this is the daemon's user. What cannot be kept is not.
    void keep(const ctl_t &ctl) const;

    /// For how long at least the port has counted no received BPDU, as of the last report.
    std::chrono::seconds silence_of(int port) const;

    /// In which role the port was when it was last seen to count one; another when it was seen down since then.
    int role_when_heard(int port) const { return ports_.at(static_cast<size_t>(port) - 1).role; }

    /// Whether it was watched without a gap since then, so that there still is what there was.
    bool is_watched(int port) const { return ports_.at(static_cast<size_t>(port) - 1).heard >= watched_since_; }

private:
    using time_point_t = std::chrono::system_clock::time_point;

    struct port_t {
        uint32_t received, sent; ///< BPDUs
        time_point_t heard;
        int role;
    };

    std::string text() const;
    static std::optional<history_t> find(const ctl_t &ctl);
    history_t() = default;
    bool is_before(const reading_t &reading) const;
    void begin_with(const reading_t &reading);

    time_point_t written_;       ///< the last report
    time_point_t watched_since_; ///< no report was missed since
    bridge_status_t last_;       ///< of this only what is told of topology changes
    std::array<port_t, RSTP_PORTS> ports_;
};

/// Whether a bridge has to speak there, but was not heard for three hello times: at a root port, alternate or backup,
/// and at a designated port that was watched since it was one of them and heard an RSTP bridge, which would answer.
bool is_deaf(const reading_t &reading, const history_t &history, int port);

struct note_t {
    std::string text; ///< may have several lines
    bool trouble;     ///< surely; else it may be as it should be
};

/// Which ports hear nothing that they should hear, or that nobody at all is heard, and the likely cause; none when all
/// is well.
std::vector<note_t> silence_notes(const reading_t &reading, const history_t &history);
