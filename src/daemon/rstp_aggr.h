/// Which ports are aggregated: the tables, and the queue of groups to set up anew. Runs on the
/// main thread.
#pragma once

#include "rstp/records.h"

/// Octet p: the group (7 to 9) of port p; below 7 it stands alone. Octet 0 is no port.
extern uint8_t aggr_port_status[RSTP_PHYSICAL_PORTS + 1];
/// Octet g - 7: bit i set when port i + 1 is a member of group g.
extern uint8_t aggr_group_status[RSTP_GROUPS];

/// Puts every port alone.
void rstp_aggr_init();
/// Empties the queue. Called with `rstp_data_sem` held.
void rstp_aggr_clear_pending();

/// Takes a report of seven octets and sets `changed[g - 7]` for groups to set up anew. A port
/// reported 0 leaves its group without flagging it; a port that moves from group to group
/// flags the new one only. Values above 9 count as 0.
void set_aggr_port_status(const uint8_t *status, uint8_t *changed);
/// Derives aggr_group_status from aggr_port_status.
void trans_aggr_status_to_group();
/// Members of the group with index 0 to 2.
uint32_t aggr_group_entry_member_cnt(uint32_t index);
/// The group of port 1 to 6, or 0 when it stands alone.
uint32_t rstp_get_aggr_id_by_port(uint32_t port);
/// Sets `members[p]` of seven octets for each port p of group 7 to 9. Returns 0.
int lvt_aggr_mgmt_members_get(uint32_t group, uint8_t *members);

/// Queues group 7 to 9. `kind` is always 1. Takes `rstp_data_sem`.
void rstp_aggr_reconfigured(uint32_t kind, uint32_t group);
/// Sets up every queued group in the adaptation layer, or deletes it when it has no members.
/// Takes `rstp_data_sem`, then `rstp_core_sem`. When memory is short the queue is kept.
void rstp_aggr_apply_pending();
