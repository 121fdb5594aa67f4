#include "board/lvt_lab/page/lookout.h"

#include <nlohmann/json.hpp>
#include <sys/socket.h>

#include "tools/ctl/ctl.h"

namespace lvt_lab {

using nlohmann::json;
using std::chrono::milliseconds;

lookout_t::lookout_t(const std::string &lab, std::function<void()> ended)
    : lab_(lab), ended_(std::move(ended)), events_client_(lab), view_client_(lab)
{
    follower_ = std::thread([this] {
        try {
            events_client_.follow(0, [this](const event_t &event) {
                const std::lock_guard lock(mutex_);
                events_.push_back(to_json(event).dump(-1, ' ', false, json::error_handler_t::replace));
                if (events_.size() > EVENTS_MAX)
                    events_.pop_front();
                last_event_ = event.number;
                stale_ = true;
                changed_.notify_all();
                return !stops_;
            });
        } catch (const untold_t &) {
            const std::lock_guard lock(mutex_);
            lab_ended_ = !stops_;
            stops_ = true;
            changed_.notify_all();
        }
        if (lab_ended())
            ended_();
    });
    looker_ = std::thread([this] { look(); });
}

lookout_t::~lookout_t()
{
    stop();
    follower_.join();
    looker_.join();
}

void lookout_t::stop()
{
    const std::lock_guard lock(mutex_);
    stops_ = true;
    changed_.notify_all();
    shutdown(events_client_.channel().number(), SHUT_RDWR);
}

bool lookout_t::lab_ended()
{
    const std::lock_guard lock(mutex_);
    return lab_ended_;
}

void lookout_t::look()
{
    constexpr milliseconds BURST(15), REGULARLY(1000);
    std::unique_lock lock(mutex_);
    for (;;) {
        changed_.wait(lock, [this] { return stops_ || readers_ > 0; });
        changed_.wait_for(lock, REGULARLY, [this] { return stops_ || (readers_ > 0 && stale_); });
        if (stops_)
            return;
        if (readers_ == 0)
            continue;
        // Events come in bursts.
        changed_.wait_for(lock, BURST, [this] { return stops_; });
        stale_ = false;
        lock.unlock();
        std::string text;
        try {
            json told = view_client_.ask({{"verb", "show"}});
            told["view"]["event"] = told["event"];
            text = told["view"].dump(-1, ' ', false, json::error_handler_t::replace);
        } catch (const refused_t &) { // the lab has ended, which the other thread sees, too
            return;
        }
        lock.lock();
        view_ = std::make_shared<const std::string>(std::move(text));
        looks_++;
        changed_.notify_all();
    }
}

lookout_t::news_t lookout_t::wait(known_t &known, milliseconds patience)
{
    std::unique_lock lock(mutex_);
    changed_.wait_for(lock, patience, [&] { return stops_ || last_event_ > known.event || looks_ > known.look; });
    news_t news = {.events = {}, .view = nullptr, .lab_ended = lab_ended_, .over = stops_};
    if (last_event_ > known.event) {
        const size_t fresh = std::min<uint64_t>(last_event_ - known.event, events_.size());
        for (size_t i = events_.size() - fresh; i < events_.size(); i++)
            news.events += (news.events.empty() ? "[" : ",") + events_[i];
        news.events += "]";
    }
    if (looks_ > known.look)
        news.view = view_;
    known = {last_event_, looks_};
    return news;
}

lookout_t::known_t lookout_t::add_reader(uint64_t event)
{
    const std::lock_guard lock(mutex_);
    readers_++;
    stale_ = true;
    changed_.notify_all();
    return {event, looks_};
}

void lookout_t::remove_reader()
{
    const std::lock_guard lock(mutex_);
    readers_--;
}

} // namespace lvt_lab
