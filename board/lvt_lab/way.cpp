#include "board/lvt_lab/way.h"

#include <algorithm>

namespace lvt_lab {

arrivals_t way_t::set_out(moment_t now)
{
    arrivals_t arrivals;
    if (quality.dead || (quality.lost && random_.per_million(quality.lost)))
        return arrivals;
    const unsigned copies = quality.doubled && random_.per_million(quality.doubled) ? 2 : 1;
    while (arrivals.count < copies) {
        const auto most = static_cast<uint64_t>(quality.jitter.count());
        const topology::span_t jitter(most ? random_.below(most + 1) : 0);
        last_arrival_ = std::max(last_arrival_, now + quality.delay + jitter);
        arrivals.at[arrivals.count++] = last_arrival_;
    }
    return arrivals;
}

} // namespace lvt_lab
