#include "board/lvt_lab/prober.h"

#include <algorithm>
#include <array>
#include <cstring>

#include "tools/hex.h"

namespace lvt_lab {

namespace {

constexpr size_t PAIRS_MAX = 8;
constexpr uint8_t ASK = 1, ANSWER = 2;
constexpr std::chrono::milliseconds FIRST_ANSWERS{60};
constexpr std::chrono::milliseconds LATE_ANSWERS{500}; ///< on a busy machine
constexpr std::chrono::minutes LENGTH_MAX{2};          ///< of pinging a network that does not come to rest

/// Of the type that is free for experiments.
struct probe_t {
    std::array<uint8_t, 6> destination, source;
    std::array<uint8_t, 2> type;
    std::array<char, 4> mark;
    uint8_t kind;
    uint8_t pair;
    std::array<uint8_t, 4> number;
    std::array<uint8_t, 36> rest;
};
static_assert(sizeof(probe_t) == 60);

constexpr std::array<uint8_t, 2> TYPE = {0x88, 0xB5};
constexpr std::array<char, 4> MARK = {'p', 'i', 'n', 'g'};

double ms_of(uint32_t pings) { return static_cast<double>(pings) * static_cast<double>(prober_t::PAUSE.count()); }

} // namespace

prober_t::prober_t(std::vector<host_end_t> hosts, put_in_t put_in, back_t back)
    : hosts_(std::move(hosts)), put_in_(std::move(put_in)), back_(std::move(back))
{
}

prober_t::~prober_t() { end(); }

void prober_t::begin()
{
    if (hosts_.size() < 2)
        return;
    {
        const std::lock_guard order(life_);
        stop();
        const std::lock_guard lock(mutex_);
        pairs_.clear();
        owed_.clear();
        number_ = first_ = 0;
        began_ = asked_at_ = std::chrono::steady_clock::now();
        // Round in a circle: who reaches the next reaches all.
        const size_t count = hosts_.size() == 2 ? 1 : std::min(hosts_.size(), PAIRS_MAX);
        for (size_t i = 0; i < count; i++) {
            const size_t to = (i + 1) % hosts_.size();
            pairs_.push_back({i, to, {hosts_[i].name, hosts_[to].name}, 0, began_});
        }
        runs_ = true;
        thread_ = std::thread([this] { run(); });
    }
    std::this_thread::sleep_for(FIRST_ANSWERS);
    const std::lock_guard lock(mutex_);
    first_ = number_;
}

std::vector<prober_t::result_t> prober_t::end()
{
    const std::lock_guard order(life_);
    if (!stop())
        return {};
    std::vector<result_t> results;
    const std::lock_guard lock(mutex_);
    for (const pair_t &pair : pairs_) {
        results.push_back(pair.result);
        results.back().apart = is_apart(pair, LATE_ANSWERS);
        if (results.back().apart)
            results.back().longest_ms = std::max(results.back().longest_ms, ms_of(number_ - pair.last_answered));
    }
    return results;
}

bool prober_t::is_in_doubt()
{
    const std::lock_guard lock(mutex_);
    return std::ranges::any_of(
        pairs_, [this](const pair_t &pair) { return is_apart(pair, FIRST_ANSWERS) && !is_apart(pair, LATE_ANSWERS); });
}

bool prober_t::is_apart(const pair_t &pair, std::chrono::milliseconds patience) const
{
    return asked_at_ - pair.answered_at > patience;
}

bool prober_t::stop()
{
    if (!runs_.exchange(false))
        return false;
    thread_.join();
    return true;
}

void prober_t::run()
{
    for (auto next = std::chrono::steady_clock::now(); runs_; next += PAUSE) {
        std::vector<answer_t> asks;
        {
            const std::lock_guard lock(mutex_);
            if (next - began_ > LENGTH_MAX)
                return;
            number_++;
            asked_at_ = std::chrono::steady_clock::now();
            for (size_t i = 0; i < pairs_.size(); i++)
                asks.push_back({pairs_[i].a, pairs_[i].b, i, number_});
        }
        for (const answer_t &ask : asks)
            send(ask.from, ask.to, ASK, ask.pair, ask.number);
        // Answers leave as soon as this thread sees them: the one that carries frames may not send any.
        while (runs_ && std::chrono::steady_clock::now() < next + PAUSE) {
            std::vector<answer_t> answers;
            {
                const std::lock_guard lock(mutex_);
                answers.swap(owed_);
            }
            for (const answer_t &answer : answers)
                send(answer.from, answer.to, ANSWER, answer.pair, answer.number);
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        }
    }
}

void prober_t::send(size_t from, size_t to, uint8_t kind, size_t pair, uint32_t number)
{
    probe_t probe = {};
    probe.destination = *read_address(hosts_[to].mac);
    probe.source = *read_address(hosts_[from].mac);
    probe.type = TYPE;
    probe.mark = MARK;
    probe.kind = kind;
    probe.pair = static_cast<uint8_t>(pair);
    memcpy(probe.number.data(), &number, sizeof number);
    put_in_(hosts_[from].cable, hosts_[from].end, {reinterpret_cast<const uint8_t *>(&probe), sizeof probe});
}

bool prober_t::arrived(size_t cable, unsigned to, std::span<const uint8_t> frame)
{
    probe_t probe;
    if (frame.size() != sizeof probe)
        return false;
    memcpy(&probe, frame.data(), sizeof probe);
    if (probe.type != TYPE || probe.mark != MARK)
        return false;
    const auto is_at = [&](const host_end_t &host) { return host.cable == cable && host.end == to; };
    const std::lock_guard lock(mutex_);
    uint32_t number = 0;
    memcpy(&number, probe.number.data(), sizeof number);
    if (probe.pair < pairs_.size()) {
        pair_t &pair = pairs_[probe.pair];
        if (probe.kind == ASK && is_at(hosts_[pair.b]))
            owed_.push_back({pair.b, pair.a, probe.pair, number});
        if (probe.kind == ANSWER && is_at(hosts_[pair.a]) && number > pair.last_answered && number <= number_)
            note_answer(pair, number);
    }
    return std::ranges::any_of(hosts_, is_at); // also those that a switch floods
}

void prober_t::note_answer(pair_t &pair, uint32_t number)
{
    const uint32_t missed = number - pair.last_answered - 1;
    pair.result.before = pair.result.before || !first_ || number <= first_;
    pair.result.reached = true;
    if (missed) {
        pair.result.longest_ms = std::max(pair.result.longest_ms, ms_of(missed));
        back_(pair.result, ms_of(missed));
    }
    pair.last_answered = number;
    pair.answered_at = std::chrono::steady_clock::now();
}

} // namespace lvt_lab
