/// Texts on the console that tests of the parts and of the whole daemon both know, octet for octet.
#pragma once

/// What a debug command shows that is none.
constexpr char MENU[] =
    "===================================================\n"
    "The RSTP debug command:\n"
    "echo debug show system_config > /tmp/rstp_dbg_if_pipe - show the rstp system config\n"
    "echo debug show port_config > /tmp/rstp_dbg_if_pipe - show the rstp port config\n"
    "echo debug show bridge_status > /tmp/rstp_dbg_if_pipe - show the rstp bridge status\n"
    "echo debug show rstp_port_status [1-64] > /tmp/rstp_dbg_if_pipe - show the rstp port status\n"
    "echo debug show rstp_statistics > /tmp/rstp_dbg_if_pipe - show the rstp statistics\n"
    "echo debug show port_status > /tmp/rstp_dbg_if_pipe - show the port status\n"
    "echo debug show aggr_status > /tmp/rstp_dbg_if_pipe - show the aggr status\n"
    "echo debug show rstp_aggr_status > /tmp/rstp_dbg_if_pipe - show the rstp core aggr status\n"
    "echo debug show rstp_stp_state > /tmp/rstp_dbg_if_pipe - show the rstp stp state\n"
    "echo debug show bpdu_filter > /tmp/rstp_dbg_if_pipe - show the bpdu_filter state\n"
    "echo debug show l2pt_trap > /tmp/rstp_dbg_if_pipe - show the l2pt stp state\n"
    "echo debug bpdu_filter [enable | disable] > /tmp/rstp_dbg_if_pipe - set the bpdu_filter state\n"
    "echo debug show lacp_port_config > /tmp/rstp_dbg_if_pipe - Show lacp port state\n"
    "echo debug l2pt_trap <port> <trap> > /tmp/rstp_dbg_if_pipe - l2pt stp trap set\n"
    "===================================================\n";

/// Of port 3 while spanning tree is off, without the rules around it.
constexpr char PORT_3_STATUS[] =
    "RSTP PORT STATUS: PoAG=3\n"
    "poag_number=3\n"
    "vlan_id=1\n"
    "designated_root: Prio=0, ID=00:00:00:00:00:00\n"
    "designated_root_cost=0\n"
    "designated_bridge: Prio=0, ID=00:00:00:00:00:00\n"
    "designated_port=0\n"
    "rstp_role=5\n"
    "port_state=5\n"
    "is_p2p=1\n"
    "is_edge=1\n"
    "stp_neigb=0\n"
    "oper_pathcost=0\n"
    "part_of_aggr=0\n"
    "stp_viewable=0\n"
    "port statistcs:\n"
    "stp_frame_xmits=0\n"
    "stp_frame_recvs=0\n"
    "rstp_frame_xmits=0\n"
    "rstp_frame_recvs=0\n"
    "tcn_frame_xmits=0\n"
    "tcn_frame_recvs=0\n"
    "unknown_frame_recvs=0\n"
    "illegal_frame_recvs=0\n";
