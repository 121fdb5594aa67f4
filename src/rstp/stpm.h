/// Life of a bridge record.
#pragma once

#include "rstp/records.h"

/// Takes a bridge record from the free list and puts it, disabled, at the head of the bridges
/// in use. Returns null when none is free.
stpm_t *STP_stpm_create(uint16_t vlan_id);

/// Gives a bridge record back to the free list.
void STP_stpm_free(stpm_t *bridge);

/// Disables a bridge without ports and gives its record back.
void STP_stpm_delete(stpm_t *bridge);

/// Enables (nonzero) or disables a bridge; nothing happens when it is so already. Returns 0 or
/// the error of STP_stpm_start, after which the bridge counts as enabled all the same.
int STP_stpm_enable(stpm_t *bridge, uint8_t enable);

/// Starts a bridge: takes its address, initialises its ports, enters their machines (all must
/// be at Begin) and begins a pass. Returns 0, or STP_BRIDGE_ID_USED, which changes nothing.
int STP_stpm_start(stpm_t *bridge);

/// Nothing: machines and hardware stay as they are.
void STP_stpm_stop(stpm_t *bridge);

/// Returns STP_BRIDGE_ID_USED when another enabled bridge has the same identifier, else 0.
int STP_stpm_check_bridge_priority(const stpm_t *bridge);

/// Makes the ports that take part select their roles anew and restart migration, after a
/// change of the bridge's settings.
void STP_stpm_update_after_bridge_management(stpm_t *bridge);

/// Looks for a running topology change timer. Returns 1 and notes the first port in list order
/// that has one, else 0.
int check_topoch(stpm_t *bridge);
