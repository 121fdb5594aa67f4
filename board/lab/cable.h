/// Cables between the lab's machines.
#pragma once

#include <string>

#include "board/lab/node.h"

namespace lab {

/// Where a cable is plugged in.
struct cable_end_t {
    const node_t *node;
    std::string interface; ///< comes into being with the cable
    std::string mac;
};

/// A cable (a veth pair). Both nodes must outlive it; it is plugged in at first.
class cable_t {
public:
    /// Throws std::runtime_error when the interfaces cannot be made.
    cable_t(cable_end_t near, cable_end_t far);

    /// Unplugs the far end: the near end loses its carrier.
    void pull() const;

    /// Plugs the far end in again.
    void plug() const;

private:
    cable_end_t near_;
    cable_end_t far_;
};

} // namespace lab
