/// What all BPDU frames have in common, for those that make or explain them.
#pragma once

#include <cstdint>

#include "rstp/bpdu.h"

/// Octets of a BPDU from its protocol identifier on; those of an unknown type are told as those of a
/// configuration BPDU.
uint32_t bpdu_octets(uint8_t type);

/// A frame of this type that tells nothing yet: destination, length, LLC, version and type are there,
/// all else is zero.
bpdu_t blank_bpdu(uint8_t type);
