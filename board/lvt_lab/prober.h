/// Pings that the lab itself sends, to tell how long hosts were apart: small frames that the cables put in at one
/// host's end and take out at the other's, and an answer the same way back. No host's own tables and timers play a
/// part in it.
#pragma once

#include <atomic>
#include <chrono>
#include <cstdint>
#include <functional>
#include <mutex>
#include <span>
#include <string>
#include <thread>
#include <vector>

namespace lvt_lab {

/// Where a host's cable is.
struct host_end_t {
    std::string name, mac;
    size_t cable;
    unsigned end;
};

class prober_t {
public:
    static constexpr std::chrono::milliseconds PAUSE{10}; ///< from one ping to the next

    /// What became of two hosts since the first ping.
    struct result_t {
        std::string from, to;
        bool before = false;   ///< they reached each other when begin() returned
        bool reached = false;  ///< at least once
        bool apart = false;    ///< now
        double longest_ms = 0; ///< without an answered ping, from one ping to a later one; 0: none was lost
    };

    using put_in_t = std::function<void(size_t cable, unsigned from, std::span<const uint8_t> frame)>;
    /// Told when a pair that was apart is together, after so long without a ping that was answered.
    using back_t = std::function<void(const result_t &pair, double milliseconds)>;

    prober_t(std::vector<host_end_t> hosts, put_in_t put_in, back_t back);
    ~prober_t();
    prober_t(const prober_t &) = delete;
    prober_t &operator=(const prober_t &) = delete;

    /// Begins to ping, or to count anew, and waits a moment for the first answers.
    void begin();

    /// Whether a pair may have come apart a moment ago, or answers are only late.
    bool is_in_doubt();

    /// Ends it. Returns what became of each pair; empty when it did not run.
    std::vector<result_t> end();

    bool runs() const { return runs_; }

    /// Looks at a frame that has come to an end. Returns whether it was one of these.
    bool arrived(size_t cable, unsigned to, std::span<const uint8_t> frame);

private:
    struct pair_t {
        size_t a, b; ///< in hosts_
        result_t result;
        uint32_t last_answered = 0; ///< number of the latest ping that was
        std::chrono::steady_clock::time_point answered_at{};
    };

    bool is_apart(const pair_t &pair, std::chrono::milliseconds patience) const;
    bool stop(); ///< with life_ held; returns whether it ran
    void run();
    void note_answer(pair_t &pair, uint32_t number);
    void send(size_t from, size_t to, uint8_t kind, size_t pair, uint32_t number);

    const std::vector<host_end_t> hosts_;
    const put_in_t put_in_;
    const back_t back_;
    std::mutex life_; ///< of the thread
    std::mutex mutex_;
    std::vector<pair_t> pairs_;
    struct answer_t {
        size_t from, to, pair;
        uint32_t number;
    };
    std::vector<answer_t> owed_; ///< answers that are to be sent
    uint32_t number_ = 0;        ///< of the latest ping
    uint32_t first_ = 0;         ///< of the latest one when begin() returned; 0 until then
    std::chrono::steady_clock::time_point began_{}, asked_at_{}; ///< the latest ping
    std::atomic<bool> runs_ = false;
    std::thread thread_;
};

} // namespace lvt_lab
