/// Memory for many records of one world, side by side and given back at once. Where there is much of it, it comes in
/// the largest pages that the system has, so that the processor knows where they are.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdlib>
#include <new>
#include <vector>

#include <sys/mman.h>

namespace sim {

class rooms_t {
public:
    static constexpr size_t LINE = 64; ///< octets that a processor fetches at once: where each room begins

    rooms_t() = default;
    rooms_t(const rooms_t &) = delete;
    rooms_t &operator=(const rooms_t &) = delete;
    ~rooms_t()
    {
        for (void *block : blocks_)
            free(block);
    }

    /// At most 16 KiB.
    void *take(size_t octets)
    {
        octets = (octets + LINE - 1) / LINE * LINE;
        if (octets > left_)
            add_block();
        left_ -= octets;
        return static_cast<char *>(blocks_.back()) + left_;
    }

private:
    static constexpr size_t PAGE = 4096, SMALL = 4 * PAGE, LARGE = 8 << 20;

    /// As large as all before, so that few rooms take little.
    void add_block()
    {
        left_ = std::clamp(all_, SMALL, LARGE);
        all_ += left_;
        void *block = aligned_alloc(PAGE, left_);
        if (!block)
            throw std::bad_alloc();
        blocks_.push_back(block);
        if (left_ == LARGE)
            madvise(block, LARGE, MADV_HUGEPAGE); // without it, all is as it was, but slower
    }

    std::vector<void *> blocks_;
    size_t left_ = 0; ///< of the last
    size_t all_ = 0;
};

} // namespace sim
