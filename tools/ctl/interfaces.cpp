#include "tools/ctl/interfaces.h"

namespace {

enum block_t : uint32_t { INTERFACE = 1, OLD_PACKET = 2, SIMPLE_PACKET = 3, PACKET = 6, SECTION = 0x0A0D0D0A };

constexpr size_t BLOCK_HEAD_OCTETS = 8;                    ///< type, length
constexpr size_t BLOCK_OCTETS_MIN = BLOCK_HEAD_OCTETS + 4; ///< the length once more at the end
constexpr size_t BLOCK_OCTETS_MAX = 1 << 24;
constexpr uint16_t NAME_OPTION = 2; ///< of an interface

} // namespace

/// Of two or four octets.
uint32_t interfaces_t::number(std::span<const uint8_t> octets) const
{
    uint32_t value = 0;
    for (size_t i = 0; i < octets.size(); i++)
        value = value << 8 | octets[big_endian_ ? i : octets.size() - 1 - i];
    return value;
}

/// Behind link type and snap length stand options: a kind, a length, as many octets, filled up to words of four.
void interfaces_t::take_interface(std::span<const uint8_t> body)
{
    interfaces_.emplace_back();
    for (size_t at = 8; at + 4 <= body.size();) {
        const uint32_t kind = number(body.subspan(at, 2)), length = number(body.subspan(at + 2, 2));
        at += 4;
        if (kind == 0 || at + length > body.size())
            return;
        if (kind == NAME_OPTION)
            interfaces_.back().assign(body.begin() + static_cast<long>(at),
                                      body.begin() + static_cast<long>(at + length));
        at += (length + 3) / 4 * 4;
    }
}

/// Returns whether a whole block was there.
bool interfaces_t::take_block()
{
    if (over_ || pending_.size() < BLOCK_OCTETS_MIN)
        return false;
    const std::span<const uint8_t> all = pending_;
    const uint32_t type = number(all.first(4));
    if (type == SECTION) { // reads the same from either end; what follows the length tells the order of octets
        big_endian_ = all[BLOCK_HEAD_OCTETS] == 0x1A;
        interfaces_.clear();
        is_begun_ = true;
    }
    const size_t length = number(all.subspan(4, 4));
    if (!is_begun_ || length < BLOCK_OCTETS_MIN || length > BLOCK_OCTETS_MAX) {
        over_ = true;
        pending_.clear();
        return false;
    }
    if (pending_.size() < length)
        return false;

    const std::span<const uint8_t> body = all.subspan(BLOCK_HEAD_OCTETS, length - BLOCK_OCTETS_MIN);
    if (type == INTERFACE)
        take_interface(body);
    if (type == PACKET || type == OLD_PACKET || type == SIMPLE_PACKET) {
        const size_t index = type == SIMPLE_PACKET || body.size() < 4 ? 0
                             : type == PACKET                         ? number(body.first(4))
                                                                      : number(body.first(2));
        frames_.push_back(index < interfaces_.size() ? interfaces_[index] : "");
    }
    pending_.erase(pending_.begin(), pending_.begin() + static_cast<long>(length));
    return true;
}

void interfaces_t::take(std::span<const uint8_t> octets)
{
    if (over_)
        return;
    pending_.insert(pending_.end(), octets.begin(), octets.end());
    while (take_block()) {
    }
}

std::string interfaces_t::next_frame()
{
    if (frames_.empty())
        return {};
    std::string name = std::move(frames_.front());
    frames_.pop_front();
    return name;
}
