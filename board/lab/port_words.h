/// Roles and states of ports in words, at most ten letters each.
#pragma once

namespace lab {

/// role  an lvt_rstp_port_role_t
const char *role_word(int role);

/// state  a port_state_t; the word tells what the port does with frames
const char *state_word(int state);

} // namespace lab
