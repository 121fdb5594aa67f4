/// The settings as the control pipe brings them, and the daemon's copies of them.
#pragma once

#include "platform/messages.h"

/// Guarded by `rstp_data_sem`; written by the main thread only. Record 0 belongs to the
/// groups, 1 to 6 to the ports.
extern lvt_rstp_system_config_t rstp_system_config;
extern lvt_rstp_port_config_t rstp_port_config[RSTP_PORT_CONFIG_RECORDS];

/// Loads the copies from the adaptation layer, once at start.
void rstp_global_conf_init();

/// Applies bridge settings. Returns 0.
int lvt_rstp_set_system_config(const lvt_rstp_system_config_t *config);

/// Applies the groups' settings and queues every group that has members. Returns 0.
int lvt_rstp_set_aggr_port_config(const lvt_rstp_port_config_t *config);

/// Applies the settings of ports 1 to 6 that changed, queues their groups, and tells the
/// link-aggregation daemon. `configs` has seven records; record 0 is not used. Returns how many
/// ports changed and are enabled.
int lvt_rstp_set_all_port_config(const lvt_rstp_port_config_t *configs);
