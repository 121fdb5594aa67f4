/// Switch register access, from the board library libmdio_intf.so.
#pragma once

#include <cstddef>
#include <cstdint>

constexpr uint32_t MDIO_OPS_MAX = 44;

enum : uint32_t {
    MDIO_OP_WRITE = 9,   ///< write `value` to the register
    MDIO_OP_MODIFY = 10, ///< replace the bits that `mask` selects with those of `value`
    MDIO_OP_WAIT = 11,   ///< wait until (register & mask) equals value
};

struct mdio_op_t {
    uint32_t op;
    uint32_t reg;
    uint32_t mask;
    uint32_t value;
};

struct mdio_multi_t {
    uint32_t count; ///< operations in use, at most MDIO_OPS_MAX
    mdio_op_t operations[MDIO_OPS_MAX];
};

static_assert(sizeof(mdio_op_t) == 16 && offsetof(mdio_op_t, reg) == 4 && offsetof(mdio_op_t, mask) == 8 &&
                  offsetof(mdio_op_t, value) == 12 && sizeof(mdio_multi_t) == 4 + 16 * MDIO_OPS_MAX &&
                  offsetof(mdio_multi_t, operations) == 4,
              "the board library reads this layout");

/// Executes the operations of `request` in order, on the chip, in one call.
/// Returns 0, or nonzero when the chip could not be reached or a wait ran out.
extern "C" int mdio_intf_access_multi(mdio_multi_t *request);
