#include "daemon/rstp_config.h"

#include <cstring>

#include "daemon/lacp.h"
#include "daemon/rstp_aggr.h"
#include "daemon/semaphores.h"
#include "lvt_rstp.h"
#include "state.h"
#include "switch/sw_cfg.h"

LVT_STATE lvt_rstp_system_config_t rstp_system_config;
LVT_STATE lvt_rstp_port_config_t rstp_port_config[RSTP_PORT_CONFIG_RECORDS];

void rstp_global_conf_init()
{
    lvt_rstp_system_config_init(&rstp_system_config);
    // Record 0 is filled from port 1 and so on: at start all records are alike, so that the
    // shift by one shows nowhere, and the path costs stay 0.
    for (uint32_t i = 0; i < RSTP_PORT_CONFIG_RECORDS; i++)
        lvt_rstp_port_config_init(i, &rstp_port_config[i]);
}

int lvt_rstp_set_system_config(const lvt_rstp_system_config_t *config)
{
    {
        sem_guard_t data(rstp_data_sem);
        rstp_system_config = *config;
    }
    sem_guard_t core(rstp_core_sem);
    lvt_rstp_set_config(config);
    return 0;
}

int lvt_rstp_set_aggr_port_config(const lvt_rstp_port_config_t *config)
{
    {
        sem_guard_t data(rstp_data_sem);
        rstp_port_config[0] = *config;
    }
    {
        sem_guard_t core(rstp_core_sem);
        lvt_rstp_set_portconfig(0, config);
    }
    for (uint32_t i = 0; i < RSTP_GROUPS; i++)
        if (aggr_group_entry_member_cnt(i) > 0)
            rstp_aggr_reconfigured(1, RSTP_PHYSICAL_PORTS + 1 + i);
    return 0;
}

int lvt_rstp_set_all_port_config(const lvt_rstp_port_config_t *configs)
{
    uint8_t lacp_status[RSTP_PHYSICAL_PORTS] = {};
    int enabled = 0;

    for (uint32_t port = 1; port <= RSTP_PHYSICAL_PORTS; port++) {
        const lvt_rstp_port_config_t &config = configs[port];
        lacp_status[port - 1] = config.adminEnable;
        if (memcmp(&config, &rstp_port_config[port], sizeof config) == 0)
            continue;
        {
            sem_guard_t data(rstp_data_sem);
            rstp_port_config[port] = config;
        }
        const uint8_t enable = config.adminEnable != 0;
        sw_cfg_trap_portMgmtFrameAction_rstp_set_api(enable, port - 1);
        enabled += enable;
        {
            sem_guard_t core(rstp_core_sem);
            lvt_rstp_set_portconfig(port, &config);
        }
        if (const uint32_t group = rstp_get_aggr_id_by_port(port))
            rstp_aggr_reconfigured(1, group);
    }
    set_lacp_rstp_status(lacp_status);
    return enabled;
}
