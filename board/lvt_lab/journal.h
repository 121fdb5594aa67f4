/// What has happened in a lab, kept for who asks and who waits.
#pragma once

#include <chrono>
#include <condition_variable>
#include <deque>
#include <mutex>
#include <vector>

#include "board/lvt_lab/view.h"

namespace lvt_lab {

class journal_t {
public:
    static constexpr size_t EVENTS_MAX = 100'000;

    /// Its number and its times are filled in: those of now.
    uint64_t add(event_t event);

    /// Milliseconds since the journal began.
    double now() const;

    /// The events after number `known`, at once when there are some, else as soon as there are, or none after
    /// `patience`.
    std::vector<event_t> after(uint64_t known, std::chrono::milliseconds patience = {});

    /// The number of the latest event.
    uint64_t last();

private:
    const std::chrono::steady_clock::time_point began_ = std::chrono::steady_clock::now();
    std::mutex mutex_;
    std::condition_variable added_;
    std::deque<event_t> events_;
    uint64_t last_ = 0;
};

} // namespace lvt_lab
