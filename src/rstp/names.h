/// Names of port roles and port states for people, in fields of 16 characters each.
#pragma once

#include "rstp/records.h"

constexpr size_t RSTP_NAME_FIELD = 16;

/// By lvt_rstp_port_role_t.
inline constexpr char lvt_rstp_role_names[][RSTP_NAME_FIELD] = {"Disabled", "Alternate",  "Backup",
                                                                "Root",     "Designated", "Non-STP"};

/// By the port state of reports and of the status file. Nothing is ever listening.
inline constexpr char lvt_rstp_state_names[][RSTP_NAME_FIELD] = {"Disabled", "Blocking",   "Listening",
                                                                 "Learning", "Forwarding", "Non-STP"};

static_assert(sizeof lvt_rstp_role_names == (ROLE_NON_STP + 1) * RSTP_NAME_FIELD &&
              sizeof lvt_rstp_state_names == sizeof lvt_rstp_role_names);
