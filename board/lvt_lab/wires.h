/// The lab's cables. Each end is a virtual interface in its node, whose peer is here; a thread of its own carries
/// the frames from peer to peer, so that all that a cable does to them is done here.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <span>
#include <string>
#include <vector>

#include "board/lvt_lab/way.h"

namespace lvt_lab {

/// What went one way.
struct traffic_t {
    uint64_t frames = 0, octets = 0, bpdus = 0;
    uint64_t lost = 0; ///< of these frames
};

/// Who looks at the cables' frames. Called in the thread that carries them: must not wait, nor call wires_t.
struct observer_t {
    /// A frame that is not lost sets out at end `from` of a cable.
    std::function<void(size_t cable, unsigned from, std::span<const uint8_t> frame)> sent;
    /// A frame has come to end `to`. Returns whether it is kept away from the node there.
    std::function<bool(size_t cable, unsigned to, std::span<const uint8_t> frame)> arrived;
};

class wires_t {
public:
    /// `seed` is that of all that is drawn.
    wires_t(size_t cables, uint64_t seed, observer_t observer);
    ~wires_t();
    wires_t(const wires_t &) = delete;
    wires_t &operator=(const wires_t &) = delete;

    /// The name here of the peer of an end.
    static std::string interface(size_t cable, unsigned end);

    /// Binds to the peers, which are there now and down, and begins to carry. Throws std::system_error.
    void begin();

    // A cable has link while it is plugged in and both its nodes have power. At first it is not plugged in. These
    // throw std::system_error.
    void plug(size_t cable, bool plugged);
    void power(size_t cable, unsigned end, bool powered);

    bool plugged(size_t cable) const;
    bool has_link(size_t cable) const;

    /// What is done to frames that end `from` sends, from now on.
    void set_quality(size_t cable, unsigned from, const topology::quality_t &quality);
    topology::quality_t quality(size_t cable, unsigned from) const;

    traffic_t traffic(size_t cable, unsigned from) const;

    /// Sends a frame as if the node at end `from` did.
    void put_in(size_t cable, unsigned from, std::span<const uint8_t> frame);

private:
    struct state_t;
    std::unique_ptr<state_t> state_;
};

} // namespace lvt_lab
