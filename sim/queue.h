/// What is to happen, in the order of its time; at one time, in the order in which it was put in.
///
/// Nearly all of it lies within two seconds: it waits in a wheel of one bucket for each millisecond, so that
/// putting in and taking out cost the same among ten switches and ten thousand. A bucket is put in order when its
/// time has come.
#pragma once

#include <algorithm>
#include <array>
#include <bit>
#include <cstdint>
#include <utility>
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
            late_.push_back(entry);
            std::push_heap(late_.begin(), late_.end(), later);
        } else if (bucket - bucket_ < WHEEL)
            put_on_wheel(entry);
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
        return is_late_next() ? late_.front() : near_.back();
    }

    entry_t take()
    {
        advance();
        size_--;
        if (is_late_next()) {
            std::pop_heap(late_.begin(), late_.end(), later);
            const entry_t entry = late_.back();
            late_.pop_back();
            return entry;
        }
        const entry_t entry = near_.back();
        near_.pop_back();
        return entry;
    }

    /// An entry that will soon be the next, or null: the `ahead`th of those that are in order already.
    const entry_t *soon(size_t ahead) const
    {
        return near_.size() > ahead ? &near_[near_.size() - 1 - ahead] : nullptr;
    }

private:
    static constexpr moment_t BUCKET = 1024;
    static constexpr uint64_t WHEEL = 2048;
    static constexpr uint64_t BITS = 64;
    static constexpr uint32_t NONE = UINT32_MAX;

    /// An entry that waits on the wheel; the last that was put into a bucket is its first.
    struct waiting_t {
        entry_t entry;
        uint32_t next;
    };

    static bool later(const entry_t &a, const entry_t &b) { return a.at != b.at ? a.at > b.at : a.order > b.order; }

    bool is_late_next() const { return !late_.empty() && (near_.empty() || later(near_.back(), late_.front())); }

    void put_on_wheel(const entry_t &entry)
    {
        const uint64_t bucket = entry.at / BUCKET % WHEEL;
        uint32_t place = free_;
        if (place == NONE) {
            place = static_cast<uint32_t>(waiting_.size());
            waiting_.emplace_back();
        } else
            free_ = waiting_[place].next;
        uint64_t &word = filled_[bucket / BITS];
        const uint64_t bit = uint64_t{1} << bucket % BITS;
        waiting_[place] = {entry, (word & bit) != 0 ? wheel_[bucket] : NONE};
        wheel_[bucket] = place;
        word |= bit;
    }

    /// The next bucket with something in it. There is one on the wheel.
    uint64_t next_filled() const
    {
        uint64_t bucket = bucket_ + 1;
        uint64_t word = filled_[bucket % WHEEL / BITS] >> bucket % BITS;
        while (word == 0) {
            bucket += BITS - bucket % BITS;
            word = filled_[bucket % WHEEL / BITS];
        }
        return bucket + static_cast<uint64_t>(std::countr_zero(word));
    }

    void advance()
    {
        if (!near_.empty() || !late_.empty())
            return;
        // The far ones wait behind those on the wheel.
        bucket_ = size_ > far_.size() ? next_filled() : far_.front().at / BUCKET;
        while (!far_.empty() && far_.front().at / BUCKET - bucket_ < WHEEL) {
            std::pop_heap(far_.begin(), far_.end(), later);
            put_on_wheel(far_.back());
            far_.pop_back();
        }
        const uint64_t bucket = bucket_ % WHEEL;
        for (uint32_t place = wheel_[bucket]; place != NONE;) {
            near_.push_back(waiting_[place].entry);
            const uint32_t next = std::exchange(waiting_[place].next, free_);
            free_ = std::exchange(place, next);
        }
        filled_[bucket / BITS] &= ~(uint64_t{1} << bucket % BITS);
        std::sort(near_.begin(), near_.end(), later);
    }

    std::vector<entry_t> near_; ///< the bucket under way, in order: the next is the last
    std::vector<entry_t> late_; ///< a heap: what was put into that bucket when it was under way
    std::vector<entry_t> far_;  ///< a heap: what has no place on the wheel yet
    std::vector<waiting_t> waiting_;
    uint32_t free_ = NONE; ///< the first place in waiting_ that has nothing
    std::array<uint32_t, WHEEL> wheel_;
    std::array<uint64_t, WHEEL / BITS> filled_ = {}; ///< a bit for each bucket of the wheel: it has something
    uint64_t bucket_ = 0;
    uint64_t order_ = 0;
    size_t size_ = 0;
};

} // namespace sim
