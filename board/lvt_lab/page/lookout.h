/// What a lab tells, kept for all readers of its page: all that has happened, and what it is like now.
#pragma once

#include <chrono>
#include <condition_variable>
#include <deque>
#include <memory>
#include <mutex>
#include <string>
#include <thread>

#include "board/lvt_lab/client.h"

namespace lvt_lab {

class lookout_t {
public:
    /// `ended` is called when the lab has ended, in another thread. Throws untold_t when there is no such
    /// lab.
    lookout_t(const std::string &lab, std::function<void()> ended);
    ~lookout_t();
    lookout_t(const lookout_t &) = delete;
    lookout_t &operator=(const lookout_t &) = delete;

    static constexpr size_t EVENTS_MAX = 20'000;

    /// What a reader knows already.
    struct known_t {
        uint64_t event = 0; ///< the number of the latest
        uint64_t look = 0;
    };
    struct news_t {
        std::string events;                      ///< a JSON array; empty for none
        std::shared_ptr<const std::string> view; ///< as `lvt_lab show -j`; nothing when it is known
        bool lab_ended = false;
        bool over = false; ///< nothing will follow
    };

    /// Waits until there is something that `known` lacks, and adds it there.
    news_t wait(known_t &known, std::chrono::milliseconds patience);

    /// While there are readers the lab is looked at once a second, for what no event tells.
    /// Returns what the reader knows who has heard until this event: no look of before.
    known_t add_reader(uint64_t event);
    void remove_reader();

    /// Lets all who wait return.
    void stop();

    bool lab_ended();

private:
    void follow(uint64_t after);
    void look();

    const std::string lab_;
    const std::function<void()> ended_;
    client_t events_client_, view_client_;

    std::mutex mutex_; ///< of all below
    std::condition_variable changed_;
    std::deque<std::string> events_; ///< each as JSON
    uint64_t last_event_ = 0;
    std::shared_ptr<const std::string> view_;
    uint64_t looks_ = 0; ///< how many there were
    unsigned readers_ = 0;
    bool stale_ = true; ///< something has happened since the latest look
    bool lab_ended_ = false;
    bool stops_ = false;

    std::thread follower_, looker_;
};

} // namespace lvt_lab
