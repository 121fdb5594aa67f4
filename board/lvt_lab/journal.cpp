#include "board/lvt_lab/journal.h"

namespace lvt_lab {

using std::chrono::system_clock;

double journal_t::now() const
{
    return std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - began_).count();
}

uint64_t journal_t::add(event_t event)
{
    const std::lock_guard lock(mutex_);
    event.number = ++last_;
    event.ms = now();
    event.unix_ms =
        std::chrono::duration_cast<std::chrono::milliseconds>(system_clock::now().time_since_epoch()).count();
    events_.push_back(std::move(event));
    if (events_.size() > EVENTS_MAX)
        events_.pop_front();
    added_.notify_all();
    return last_;
}

std::vector<event_t> journal_t::after(uint64_t known, std::chrono::milliseconds patience)
{
    std::unique_lock lock(mutex_);
    added_.wait_for(lock, patience, [&] { return last_ > known; });
    const size_t fresh = std::min<uint64_t>(last_ > known ? last_ - known : 0, events_.size());
    return {events_.end() - static_cast<std::ptrdiff_t>(fresh), events_.end()};
}

uint64_t journal_t::last()
{
    const std::lock_guard lock(mutex_);
    return last_;
}

} // namespace lvt_lab
