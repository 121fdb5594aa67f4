/// Console reports. They read live values without a lock and never step the engine; a report
/// may mix values from before and after a tick.
#pragma once

#include <cstdint>

void lvt_show_rstp_system_config();
void lvt_show_rstp_port_config();
void lvt_show_rstp_bridge_status();
/// `poag` is 1 to 9; any other number ends the process.
void lvt_show_rstp_port_status(uint32_t poag);
void lvt_show_rstp_statistics();
void lvt_show_aggr_status();
void lvt_show_rstp_aggr_status();
void lvt_show_rstp_stp_state();
void lvt_rstp_lacp_enable_port_show();

/// The help text: which debug commands there are.
void lvt_debug_menu();
