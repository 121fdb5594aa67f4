/// Bridge identifiers and priority vectors: creation, comparison, BPDU form.
#pragma once

#include "rstp/bpdu.h"
#include "rstp/records.h"

enum : int { VECT_EQUAL = 0, VECT_BETTER = 1, VECT_WORSE = 2 };

/// Fills `out` from its five parts.
void STP_VECT_create(prio_vector_t *out, const bridge_id_t *root, uint32_t root_path_cost,
                     const bridge_id_t *design_bridge, uint32_t design_port, uint32_t bridge_port);

/// Compares field by field, lower being better, `bridge_port` included.
/// Returns VECT_BETTER when `a` is better than `b`, VECT_WORSE or VECT_EQUAL.
int STP_VECT_compare_vector(const prio_vector_t *a, const prio_vector_t *b);

/// 1 when all five fields are equal, else 0.
int STP_VECT_eq_vector(const prio_vector_t *a, const prio_vector_t *b);

/// 1 when priority and address are equal, else 0.
int STP_VECT_eq_bridge_id(const bridge_id_t *a, const bridge_id_t *b);

/// Writes the vector into a BPDU. The port identifier is cut to 16 bits.
void STP_VECT_set_vector(const prio_vector_t *vector, bpdu_t *bpdu);

/// Reads the vector of a BPDU. Leaves `out->bridge_port` to the caller.
void STP_VECT_get_vector(const bpdu_t *bpdu, prio_vector_t *out);
