/// Timer values: BPDU form and comparison.
#pragma once

#include "rstp/bpdu.h"
#include "rstp/records.h"

/// Writes the four times into a BPDU, as whole seconds.
void STP_set_times(const timevalues_t *times, bpdu_t *bpdu);

/// Reads the four times of a BPDU; fractions of a second are dropped.
void STP_get_times(const bpdu_t *bpdu, timevalues_t *out);

/// 1 when all four are equal, else 0.
int STP_eq_times(const timevalues_t *a, const timevalues_t *b);
