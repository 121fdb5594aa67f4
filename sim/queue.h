/// What is to happen, in the order of its time; at one time, in the order in which it was put in.
///
/// Nearly all of it lies within a second: it waits in a wheel of one bucket for each millisecond, so that
/// putting in and taking out cost the same among ten switches and ten thousand.
#pragma once

#include <algorithm>
#include <array>
#include <cstdint>
#include <vector>

namespace sim {

using moment_t = uint64_t; ///< microseconds since the world began

template <typename what_t>
class queue_t {
public:
    struct entry_t {
        moment_t at;
        uint64_t order;
        what_t what;
    };

    /// `at` is not before the moment of the entry that was taken last.
    void put(moment_t at, const what_t &what)
    {
        const entry_t entry = {at, order_++, what};
        size_++;
        const uint64_t bucket = at / BUCKET;
        if (bucket <= bucket_) {
            near_.push_back(entry);
            std::push_heap(near_.begin(), near_.end(), later);
        } else if (bucket - bucket_ < WHEEL)
            wheel_[bucket % WHEEL].push_back(entry);
        else {
            far_.push_back(entry);
            std::push_heap(far_.begin(), far_.end(), later);
        }
    }

    bool empty() const { return size_ == 0; }
    size_t size() const { return size_; }

    /// The next entry. The queue is not empty.
    const entry_t &next()
    {
        advance();
        return near_.front();
    }

    entry_t take()
    {
        advance();
        std::pop_heap(near_.begin(), near_.end(), later);
        const entry_t entry = near_.back();
        near_.pop_back();
        size_--;
        return entry;
    }

private:
    static constexpr moment_t BUCKET = 1024;
    static constexpr uint64_t WHEEL = 2048;
    static constexpr size_t MOST_KEPT = 8; ///< entries that an empty bucket keeps room for

    static bool later(const entry_t &a, const entry_t &b) { return a.at != b.at ? a.at > b.at : a.order > b.order; }

    void advance()
    {
        while (near_.empty()) {
            bucket_++;
            if (near_.capacity() > MOST_KEPT)
                near_ = std::vector<entry_t>(); // an empty list would keep the room
            near_.swap(wheel_[bucket_ % WHEEL]);
            while (!far_.empty() && far_.front().at / BUCKET - bucket_ < WHEEL) {
                std::pop_heap(far_.begin(), far_.end(), later);
                const entry_t entry = far_.back();
                far_.pop_back();
                const uint64_t bucket = entry.at / BUCKET;
                (bucket == bucket_ ? near_ : wheel_[bucket % WHEEL]).push_back(entry);
            }
            std::make_heap(near_.begin(), near_.end(), later);
        }
    }

    std::vector<entry_t> near_; ///< a heap: the bucket under way and what came late
    std::array<std::vector<entry_t>, WHEEL> wheel_;
    std::vector<entry_t> far_; ///< a heap
    uint64_t bucket_ = 0;
    uint64_t order_ = 0;
    size_t size_ = 0;
};

} // namespace sim
