#include "tree_speaker.h"

#include <algorithm>
#include <array>

#include <linux/if_ether.h>
#include <linux/if_packet.h>
#include <poll.h>
#include <sys/socket.h>

#include "board/lab/within.h"
#include "tools/hex.h"

namespace lab {

namespace {

using clock_t = std::chrono::steady_clock;

} // namespace

// ---- hearing ----------------------------------------------------------------------------------

listener_t::listener_t(const node_t &node, const std::string &interface, bool tap)
    : socket_(node.packet_socket(interface)), tap_(tap), thread_([this] { listen(); })
{
}

listener_t::~listener_t()
{
    ending_ = true;
    thread_.join();
}

void listener_t::listen()
{
    std::array<uint8_t, 2048> frame;
    while (!ending_) {
        pollfd readable = {socket_.number(), POLLIN, 0};
        if (poll(&readable, 1, 20) <= 0)
            continue;
        sockaddr_ll from = {};
        socklen_t from_octets = sizeof from;
        const ssize_t got = recvfrom(socket_.number(), frame.data(), frame.size(), MSG_DONTWAIT,
                                     reinterpret_cast<sockaddr *>(&from), &from_octets);
        const bool outgoing = from.sll_pkttype == PACKET_OUTGOING;
        if (got < static_cast<ssize_t>(offsetof(bpdu_t, flags)) || (outgoing && !tap_) ||
            !std::equal(std::begin(lvt_rstp_slowmac), std::end(lvt_rstp_slowmac), frame.begin()))
            continue;
        const bpdu_t bpdu = read_bpdu(std::span(frame).first(static_cast<size_t>(got)));
        const std::lock_guard lock(mutex_);
        heard_.push_back({clock_t::now(), bpdu, outgoing});
    }
}

std::vector<heard_bpdu_t> listener_t::heard() const
{
    const std::lock_guard lock(mutex_);
    return heard_;
}

size_t listener_t::count(const std::function<bool(const bpdu_t &)> &is_wanted, clock_t::time_point since) const
{
    const std::lock_guard lock(mutex_);
    return static_cast<size_t>(std::count_if(heard_.begin(), heard_.end(), [&](const heard_bpdu_t &heard) {
        return heard.at >= since && is_wanted(heard.bpdu);
    }));
}

// ---- speaking ---------------------------------------------------------------------------------

speaker_t::speaker_t(const node_t &node) : listener_t(node, "eth0")
{
    const auto mac = read_address(node.mac()).value();
    std::copy(mac.begin(), mac.end(), source_.source);
    thread_ = std::thread([this] { talk(); });
}

speaker_t::~speaker_t()
{
    ending_ = true;
    thread_.join();
}

void speaker_t::say_once(bpdu_t bpdu) const
{
    std::copy(std::begin(source_.source), std::end(source_.source), bpdu.source);
    std::vector<uint8_t> frame = frame_of(bpdu);
    frame.resize(std::max<size_t>(frame.size(), ETH_ZLEN));
    // It may find the cable unplugged.
    [[maybe_unused]] const ssize_t sent = send(socket().number(), frame.data(), frame.size(), MSG_DONTWAIT);
}

void speaker_t::say(std::vector<bpdu_t> bpdus, std::chrono::milliseconds pause)
{
    const std::lock_guard lock(words_);
    bpdus_ = std::move(bpdus);
    pause_ = pause;
    topic_++;
}

void speaker_t::say(const bpdu_t &bpdu, std::chrono::milliseconds pause) { say(std::vector{bpdu}, pause); }

void speaker_t::be_silent() { say(std::vector<bpdu_t>{}, std::chrono::milliseconds(20)); }

void speaker_t::talk()
{
    unsigned topic = 0;
    size_t next = 0;
    while (!ending_) {
        std::chrono::milliseconds pause;
        {
            const std::lock_guard lock(words_);
            if (topic != topic_) {
                topic = topic_;
                next = 0;
            }
            pause = bpdus_.empty() ? std::chrono::milliseconds(20) : pause_;
            if (!bpdus_.empty())
                say_once(bpdus_[next++ % bpdus_.size()]);
        }
        within(
            pause, [&] { return ending_ || topic != topic_; }, std::min(pause, 20ms));
    }
}

} // namespace lab
