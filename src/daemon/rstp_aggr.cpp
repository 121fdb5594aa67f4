#include "daemon/rstp_aggr.h"

#include <cstdlib>
#include <cstring>

#include "daemon/semaphores.h"
#include "lvt_rstp.h"
#include "process/process.h"
#include "state.h"

LVT_STATE uint8_t aggr_port_status[RSTP_PHYSICAL_PORTS + 1];
LVT_STATE uint8_t aggr_group_status[RSTP_GROUPS];

namespace {

constexpr uint32_t FIRST_GROUP = RSTP_PHYSICAL_PORTS + 1;
constexpr uint32_t LAST_GROUP = RSTP_PORTS;
constexpr size_t MEMBER_OCTETS = RSTP_PHYSICAL_PORTS + 1;

// Bits 1 to 3 for groups 7 to 9.
LVT_STATE uint8_t aggr_reconfig_pending;
LVT_STATE uint8_t aggr_group_active; ///< had members when it was last applied

uint8_t group_bit(uint32_t group) { return static_cast<uint8_t>(1u << (group - RSTP_PHYSICAL_PORTS)); }

bool is_group(uint8_t value) { return value >= FIRST_GROUP; }

/// Applies one group; `members` is room for the list. Called with `rstp_data_sem` held.
void apply(uint32_t group, uint8_t *members)
{
    const uint8_t bit = group_bit(group);
    aggr_reconfig_pending &= static_cast<uint8_t>(~bit);
    aggr_group_active &= static_cast<uint8_t>(~bit);

    memset(members, 0, MEMBER_OCTETS);
    lvt_aggr_mgmt_members_get(group, members);
    for (uint32_t port = 1; port <= RSTP_PHYSICAL_PORTS; port++)
        if (members[port])
            aggr_group_active |= bit;

    sem_guard_t core(rstp_core_sem);
    if (aggr_group_active & bit)
        lvt_rstp_aggr_add(group, members);
    else
        lvt_rstp_aggr_del(group);
}

} // namespace

void rstp_aggr_init()
{
    for (uint8_t port = 0; port <= RSTP_PHYSICAL_PORTS; port++)
        aggr_port_status[port] = port;
    memset(aggr_group_status, 0, sizeof aggr_group_status);
}

void rstp_aggr_clear_pending()
{
    aggr_reconfig_pending = 0;
    aggr_group_active = 0;
}

void set_aggr_port_status(const uint8_t *status, uint8_t *changed)
{
    for (uint8_t port = 1; port <= RSTP_PHYSICAL_PORTS; port++) {
        const uint8_t now = status[port] > LAST_GROUP ? 0 : status[port];
        const uint8_t old = aggr_port_status[port];
        if (now == 0) {
            aggr_port_status[port] = port;
            continue;
        }
        if (now == old)
            continue;
        aggr_port_status[port] = now;
        const uint8_t group = is_group(now) ? now : old;
        if (is_group(group))
            changed[group - FIRST_GROUP] = 1;
    }
}

void trans_aggr_status_to_group()
{
    memset(aggr_group_status, 0, sizeof aggr_group_status);
    for (uint32_t i = 0; i < RSTP_PHYSICAL_PORTS; i++)
        if (const uint8_t group = aggr_port_status[i + 1]; is_group(group))
            aggr_group_status[group - FIRST_GROUP] |= static_cast<uint8_t>(1u << i);
}

uint32_t aggr_group_entry_member_cnt(uint32_t index)
{
    uint32_t count = 0;
    for (uint32_t i = 0; i < RSTP_PHYSICAL_PORTS; i++)
        count += aggr_group_status[index] >> i & 1;
    return count;
}

uint32_t rstp_get_aggr_id_by_port(uint32_t port)
{
    return is_group(aggr_port_status[port]) ? aggr_port_status[port] : 0;
}

int lvt_aggr_mgmt_members_get(uint32_t group, uint8_t *members)
{
    for (uint32_t i = 0; i < RSTP_PHYSICAL_PORTS; i++)
        if (aggr_group_status[group - FIRST_GROUP] >> i & 1)
            members[i + 1] = 1;
    return 0;
}

void rstp_aggr_reconfigured(uint32_t kind, uint32_t group)
{
    sem_guard_t data(rstp_data_sem);
    aggr_reconfig_pending |= static_cast<uint8_t>(1u << ((kind + 1) * 3 + group - 12));
}

void rstp_aggr_apply_pending()
{
    auto *members = static_cast<uint8_t *>(process_alloc(MEMBER_OCTETS));
    if (!members)
        return;
    {
        sem_guard_t data(rstp_data_sem);
        for (uint32_t group = FIRST_GROUP; group <= LAST_GROUP; group++)
            if (aggr_reconfig_pending & group_bit(group))
                apply(group, members);
    }
    free(members);
}
