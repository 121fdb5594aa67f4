/// The platform: logical port numbers, links, MAC addresses, and frames out of the CPU port.
/// What the engine itself calls of it is declared in rstp/stp_out.h.
#pragma once

#include <netpacket/packet.h>

#include <cstddef>
#include <cstdint>

#include "platform/messages.h"
#include "l2_proto_utility/cpu_tag.h"
#include "rstp/stp_out.h"

// ---- logical ports ----------------------------------------------------------------------

/// Front port to chip port, by front port - 1; ports 5 and 6 are crossed on the board. 255: none.
extern const int32_t sw_to_phy_port_map_arr[8];
/// Chip port to front port - 1. The chip's port 0, the CPU, pairs with no front port.
extern const int32_t phy_to_sw_port_map_arr[8];

/// 1 when `l2port` is a physical port, 1 to 6, else 0.
int l2port_is_port(uint32_t l2port);
/// 1 when `l2port` is a port or an aggregation group, 1 to 9, else 0.
int l2port_is_poag(uint32_t l2port);
/// The same as l2port_is_poag.
int l2port_is_valid(uint32_t l2port);
/// Gives unit (always 1) and port of a physical port. Returns 1, or 0 with both untouched.
int l2port2port(uint32_t l2port, uint32_t *unit, uint32_t *port);
/// Gives unit and number of a port or group, 1 to 9. Returns 1, or 0 with both untouched.
int l2port2poag(uint32_t l2port, uint32_t *unit, uint32_t *poag);

// ---- links ------------------------------------------------------------------------------

struct lvt_port_status_t {
    uint8_t link;   ///< nonzero: up
    uint32_t speed; ///< a code, not Mbit/s
    uint8_t duplex; ///< 1: full
};

struct lvt_port_info_t {
    uint8_t link;
    uint32_t speed;
    uint8_t zero1;
    uint8_t zero2;
    uint32_t zero3;
};

using lvt_port_mgmt_status_t = lvt_port_status_t;

/// Bit `index` (0-based port) of a port bitmap, 0 or 1.
int lvt_is_port_status_change(uint32_t index, const uint8_t *pbm);
/// Sets bit `index` of a port bitmap.
void lvt_pbm_set(uint32_t index, uint8_t *pbm);

/// Reads the ports named in `pbm` from the link monitor. Returns how many changed their link;
/// changes of speed and duplex are taken silently. A monitor that fails changes nothing.
int lvt_port_status_update(const uint8_t *pbm);
/// Takes the driver's report of all six ports (24 octets) and sets the bit of each port that
/// differs in anything; `changed` is one octet. Returns 0.
int lvt_port_status_update_from_drv_msg(const uint8_t *body, uint8_t *changed);
/// Sets in `pbm` the ports that differ from the link monitor, and changes nothing else.
void lvt_port_status_polling(uint8_t *pbm);
/// Link and speed code of port 1 to 6. Returns 0.
int lvt_port_info_get(uint32_t port, lvt_port_info_t *info);
/// Link, speed code and duplex of port 1 to 6; the unit is ignored. Returns 0.
int lvt_port_mgmt_status_get(uint32_t unit, uint32_t port, lvt_port_mgmt_status_t *status);

/// Link of a physical port, 0 or 1; 0 for any other number.
int lvt_os_get_linkstate(uint32_t l2port);
/// Speed of a physical port in Mbit/s, with or without link; 0 for any other number.
uint32_t lvt_os_get_linkspeed(uint32_t l2port);
/// 1 when a physical port has link and full duplex, else 0.
int lvt_os_get_linkduplex(uint32_t l2port);

/// Prints the link table to the console.
void lvt_show_port_status();

// ---- MAC addresses ----------------------------------------------------------------------

extern uint8_t g_systemmac[RSTP_MAC_OCTETS]; ///< zero until it could be read
extern const uint8_t g_zeromac[RSTP_MAC_OCTETS];

/// Reads the address of the CPU interface. Returns 0, or -1 after a message.
int lvt_mac_addr_get(uint8_t *mac);
/// The address of port 1 to 6: the system's plus the port number. Returns 0.
int lvt_os_get_portmac(uint32_t l2port, uint8_t *mac);
/// Writes `base` plus index + 1, counted in the last three octets only.
void misc_instantiate_mac(uint8_t *mac, const uint8_t *base, uint32_t index);
/// Writes `mac` as text into `text` (18 octets) and returns it.
char *misc_mac_txt(const uint8_t *mac, char *text);
/// The same in a static buffer.
const char *mac_txt(const uint8_t *mac);

/// Names for people, in static buffers or constants.
const char *l2port_txt(uint32_t l2port);
const char *link_state_txt(uint32_t link);
const char *link_duplex_txt(uint32_t duplex);

// ---- switches of other functions --------------------------------------------------------

int bpdu_filter_en_set(uint8_t enable);
uint8_t bpdu_filter_en_get();
/// Trap setting of port index 0 to 5; any other index is left alone and reads 0.
int l2pt_trap_set(uint32_t index, uint8_t value);
uint8_t l2pt_trap_get(uint32_t index);

// ---- forwarding state, offered to other protocols ---------------------------------------

/// What was last asked of the hardware, by l2port; the adaptation layer keeps them.
extern uint8_t cached_stpstates[RSTP_PORTS + 1];
extern uint8_t cached_fwdstates[RSTP_PORTS + 1];

void lvt_os_set_stpstate(uint32_t l2port, uint8_t state);
void lvt_os_set_fwdstate(uint32_t l2port, uint8_t enable);
uint8_t lvt_os_get_stpstate(uint32_t l2port);
uint8_t lvt_os_get_fwdstate(uint32_t l2port);
int l2port_stp_state_set(uint32_t l2port, uint8_t state);
/// Does nothing and returns 0: the adaptation layer programs the hardware.
int port_stp_state_set(uint32_t port, uint8_t state);

// ---- frames -----------------------------------------------------------------------------

constexpr char RSTP_CPU_INTERFACE[] = "eth0";
constexpr size_t RSTP_FRAME_MIN = 60; ///< a frame without its check sequence

extern int rstp_socket_fd; ///< 0: no socket
extern sockaddr_ll rstp_socket_addr;

/// Opens and binds a raw socket on `ifname`. Failures are told and otherwise ignored; the
/// descriptor may then be -1. Returns 0.
int initSocket(int *fd_out, sockaddr_ll *addr_out, const char *ifname);

/// Names front port index + 1 in a CPU tag as the one that the switch shall send through.
void lvt_cpu_tx_tag_source_port_set(uint8_t *tag, uint32_t index);

/// Sends a frame of `length` octets out of front port `l2port`, tagged and padded with zeros.
/// Returns 0, or -1 when there is no socket or it refuses.
int rstp_rawSocketIfTx(const uint8_t *frame, uint32_t l2port, size_t length);

/// Gives room for a frame of `length` octets, padding and tag; not cleared. Null when memory
/// is short. Give it back with packet_tx_free.
uint8_t *packet_tx_alloc(size_t length);

/// Takes no frame any more: returns 0 for a physical port, else frees the buffer and returns 1.
int lvt_os_xmit(uint32_t l2port, uint8_t *buffer);

/// One frame in or out of a socket of its own. Receive returns what recvfrom did; send returns
/// 0. Both return -1 without a socket.
int rstp_rawSocketOnceRx(uint8_t *buffer, size_t length, const char *ifname);
int rstp_rawSocketOnceTx(const uint8_t *buffer, size_t length, const char *ifname);
