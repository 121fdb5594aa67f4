#include "l2_proto_utility/os_api.h"

#include <net/ethernet.h>
#include <net/if.h>
#include <net/if_arp.h>
#include <arpa/inet.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "platform/link_mon_intf.h"
#include "platform/lvt_com.h"
#include "process/process.h"
#include "shared_value.h"
#include "state.h"

namespace {

constexpr char SOURCE[] = "l2_proto_utility/os_api";
constexpr uint32_t UNIT = 1;
constexpr size_t TX_HEADROOM = 12;
constexpr size_t TX_SPARE = 16; ///< headroom and a tag

LVT_STATE lvt_port_status_t lvt_port_status[RSTP_PHYSICAL_PORTS];
LVT_STATE uint8_t bpdu_filter_en;
LVT_STATE uint8_t l2pt_trap[RSTP_PHYSICAL_PORTS];
LVT_STATE uint32_t l2port_hw_state[RSTP_PORTS + 1];

template <typename value_t>
bool take(value_t &stored, value_t now)
{
    if (load_shared(stored) == now)
        return false;
    store_shared(stored, now);
    return true;
}

lvt_port_status_t status_of_word(uint32_t word)
{
    return {static_cast<uint8_t>(word >> LINK_MON_LINK_BIT & 1), word & LINK_MON_SPEED_MASK,
            static_cast<uint8_t>(word >> LINK_MON_DUPLEX_BIT & 1)};
}

bool read_link_monitor(link_mon_status_t *monitor, const char *caller, int line)
{
    if (link_mon_intf_param_get(monitor) == 0)
        return true;
    osPrintfConsole("E:%s() L%d link_mon_intf_param_get() failed\n", caller, line);
    return false;
}

void fetch_systemmac()
{
    if (memcmp(g_systemmac, g_zeromac, sizeof g_systemmac) == 0)
        lvt_mac_addr_get(g_systemmac);
}

} // namespace

const int32_t sw_to_phy_port_map_arr[8] = {1, 2, 3, 4, 6, 5, 0, 255};
const int32_t phy_to_sw_port_map_arr[8] = {6, 0, 1, 2, 3, 5, 4, 255};

LVT_STATE uint8_t g_systemmac[RSTP_MAC_OCTETS];
const uint8_t g_zeromac[RSTP_MAC_OCTETS] = {};

LVT_PROCESS int rstp_socket_fd;
LVT_PROCESS sockaddr_ll rstp_socket_addr;

// ---- logical ports ----------------------------------------------------------------------

int l2port_is_port(uint32_t l2port) { return l2port - 1 < RSTP_PHYSICAL_PORTS; }
int l2port_is_poag(uint32_t l2port) { return l2port - 1 < RSTP_PORTS; }
int l2port_is_valid(uint32_t l2port) { return l2port - 1 < RSTP_PORTS; }

int l2port2port(uint32_t l2port, uint32_t *unit, uint32_t *port)
{
    if (!l2port_is_port(l2port))
        return 0;
    *unit = UNIT;
    *port = l2port;
    return 1;
}

// ---- links ------------------------------------------------------------------------------

int lvt_is_port_status_change(uint32_t index, const uint8_t *pbm) { return pbm[index / 8] >> index % 8 & 1; }

void lvt_pbm_set(uint32_t index, uint8_t *pbm)
{
    pbm[index / 8] = static_cast<uint8_t>(pbm[index / 8] | 1 << index % 8);
}

int lvt_port_status_update(const uint8_t *pbm)
{
    link_mon_status_t monitor;
    if (!read_link_monitor(&monitor, "lvt_port_status_update", 789))
        return 0;

    int changed = 0;
    for (uint32_t i = 0; i < RSTP_PHYSICAL_PORTS; i++) {
        if (!lvt_is_port_status_change(i, pbm))
            continue;
        const lvt_port_status_t now = status_of_word(monitor.status[i]);
        changed += take(lvt_port_status[i].link, now.link);
        take(lvt_port_status[i].speed, now.speed);
        take(lvt_port_status[i].duplex, now.duplex);
    }
    return changed;
}

int lvt_port_status_update_from_drv_msg(const uint8_t *body, uint8_t *changed)
{
    *changed = 0;
    for (uint32_t i = 0; i < RSTP_PHYSICAL_PORTS; i++) {
        rstp_port_status_t now;
        memcpy(&now, body + i * sizeof now, sizeof now);
        const bool link = take(lvt_port_status[i].link, now.link);
        const bool speed = take(lvt_port_status[i].speed, static_cast<uint32_t>(now.speed));
        const bool duplex = take(lvt_port_status[i].duplex, now.duplex);
        if (link || speed || duplex)
            lvt_pbm_set(i, changed);
    }
    return 0;
}

int lvt_port_info_get(uint32_t port, lvt_port_info_t *info)
{
    lvt_port_mgmt_status_t status = {};
    lvt_port_mgmt_status_get(UNIT, port, &status);
    *info = {status.link, status.speed, 0, 0, 0};
    return 0;
}

int lvt_port_mgmt_status_get(uint32_t /*unit*/, uint32_t port, lvt_port_mgmt_status_t *status)
{
    *status = {};
    if (!l2port_is_port(port))
        return 0;
    const lvt_port_status_t &stored = lvt_port_status[port - 1];
    *status = {load_shared(stored.link), load_shared(stored.speed), load_shared(stored.duplex)};
    return 0;
}

int lvt_os_get_linkstate(uint32_t l2port)
{
    uint32_t unit, port;
    lvt_port_mgmt_status_t status;
    if (!l2port2port(l2port, &unit, &port))
        return 0;
    lvt_port_mgmt_status_get(unit, port, &status);
    return status.link != 0;
}

uint32_t lvt_os_get_linkspeed(uint32_t l2port)
{
    constexpr uint32_t UNKNOWN_CODE_SPEED = 1;

    uint32_t unit, port;
    lvt_port_mgmt_status_t status;
    if (!l2port2port(l2port, &unit, &port))
        return 0;
    lvt_port_mgmt_status_get(unit, port, &status);
    return status.speed < RSTP_SPEED_CODES ? RSTP_SPEEDS[status.speed] : UNKNOWN_CODE_SPEED;
}

int lvt_os_get_linkduplex(uint32_t l2port)
{
    uint32_t unit, port;
    lvt_port_mgmt_status_t status;
    if (!l2port2port(l2port, &unit, &port))
        return 0;
    lvt_port_mgmt_status_get(unit, port, &status);
    return status.link != 0 && status.duplex == 1;
}

void lvt_show_port_status()
{
    static constexpr char rule[] = "====================================================================\n";

    osPrintfConsole(rule);
    osPrintfConsole("Port Status:\n");
    osPrintfConsole("Port | Link | Speed | Fdx\n");
    for (uint32_t port = 1; port <= RSTP_PHYSICAL_PORTS; port++) {
        lvt_port_mgmt_status_t status;
        lvt_port_mgmt_status_get(UNIT, port, &status);
        osPrintfConsole("%4d   %4d   %5d   %3d\n", static_cast<int>(port), status.link, static_cast<int>(status.speed),
                        status.duplex);
    }
    osPrintfConsole(rule);
}

// ---- MAC addresses ----------------------------------------------------------------------

int lvt_mac_addr_get(uint8_t *mac)
{
    if (strlen(RSTP_CPU_INTERFACE) >= IF_NAMESIZE) {
        printf("interface name is too long");
        return -1;
    }
    sockaddr address;
    if (process_interface_address(RSTP_CPU_INTERFACE, &address) < 0) {
        printf("%s", strerror(errno));
        return -1;
    }
    if (address.sa_family != ARPHRD_ETHER) {
        printf("not an Ethernet interface");
        return -1;
    }
    memcpy(mac, address.sa_data, RSTP_MAC_OCTETS);
    return 0;
}

void lvt_os_get_systemmac(uint8_t *mac)
{
    fetch_systemmac();
    memcpy(mac, g_systemmac, RSTP_MAC_OCTETS);
}

int lvt_os_get_portmac(uint32_t l2port, uint8_t *mac)
{
    STP_ASSERT(l2port_is_port(l2port), "l2port_is_port(portno)", SOURCE, 0, "lvt_os_get_portmac");
    fetch_systemmac();
    misc_instantiate_mac(mac, g_systemmac, l2port - 1);
    return 0;
}

void misc_instantiate_mac(uint8_t *mac, const uint8_t *base, uint32_t index)
{
    const uint32_t low = (base[3] << 16 | base[4] << 8 | base[5]) + index + 1;

    memmove(mac, base, 3);
    mac[3] = static_cast<uint8_t>(low >> 16);
    mac[4] = static_cast<uint8_t>(low >> 8);
    mac[5] = static_cast<uint8_t>(low);
}

// ---- switches of other functions --------------------------------------------------------

int bpdu_filter_en_set(uint8_t enable)
{
    bpdu_filter_en = enable;
    return 0;
}

uint8_t bpdu_filter_en_get() { return bpdu_filter_en; }

// ---- frames -----------------------------------------------------------------------------

int initSocket(int *fd_out, sockaddr_ll *addr_out, const char *ifname)
{
    *addr_out = {};
    addr_out->sll_family = AF_PACKET;
    addr_out->sll_protocol = htons(ETH_P_ALL);
    addr_out->sll_hatype = ARPHRD_ETHER;
    addr_out->sll_pkttype = PACKET_OTHERHOST;
    addr_out->sll_halen = ETH_ALEN;
    addr_out->sll_addr[5] = 2;
    *fd_out = process_open_socket(ifname, addr_out);
    return 0;
}

void lvt_cpu_tx_tag_source_port_set(uint8_t *tag, uint32_t index)
{
    if (index < sizeof sw_to_phy_port_map_arr / sizeof *sw_to_phy_port_map_arr)
        tag[RSTP_CPU_TAG_PORTS] =
            static_cast<uint8_t>(tag[RSTP_CPU_TAG_PORTS] | 1u << sw_to_phy_port_map_arr[index] % 32);
}

int rstp_rawSocketIfTx(const uint8_t *frame, uint32_t l2port, size_t length)
{
    constexpr size_t ADDRESSES = 2 * ETH_ALEN;
    uint8_t tag[RSTP_CPU_TAG_OCTETS];
    uint8_t tagged[ETH_FRAME_LEN + RSTP_CPU_TAG_OCTETS] = {};

    if (length < ADDRESSES || length > ETH_FRAME_LEN)
        return -1;
    memcpy(tag, RSTP_CPU_TAG, sizeof tag);
    lvt_cpu_tx_tag_source_port_set(tag, l2port - 1);
    memcpy(tagged, frame, ADDRESSES);
    memcpy(tagged + ADDRESSES, tag, sizeof tag);
    memcpy(tagged + ADDRESSES + sizeof tag, frame + ADDRESSES, length - ADDRESSES);
    if (length < RSTP_FRAME_MIN)
        length = RSTP_FRAME_MIN;

    if (rstp_socket_fd == 0)
        return -1;
    if (process_send_frame(rstp_socket_fd, tagged, length + sizeof tag, &rstp_socket_addr) == -1) {
        perror("sendto");
        return -1;
    }
    return 0;
}

uint8_t *packet_tx_alloc(size_t length)
{
    const size_t frame = length < RSTP_FRAME_MIN ? RSTP_FRAME_MIN : length;
    auto *block = static_cast<uint8_t *>(process_alloc(frame + TX_SPARE));
    return block ? block + TX_HEADROOM : nullptr;
}

void packet_tx_free(uint8_t *buffer)
{
    STP_ASSERT(buffer != nullptr, "buffer != ((void *)0)", SOURCE, 0, "packet_tx_free");
    free(buffer - TX_HEADROOM);
}

uint8_t *lvt_os_alloc_xmit(uint32_t l2port, size_t length, uint16_t *tag)
{
    STP_ASSERT(l2port_is_valid(l2port), "l2port_is_valid(l2port)", SOURCE, 0, "lvt_os_alloc_xmit");
    uint32_t unit, port;
    if (!l2port2port(l2port, &unit, &port))
        return nullptr;
    uint8_t *buffer = packet_tx_alloc(length);
    *tag = 0;
    return buffer;
}

// ---- what only other programs of the board would call: the linker leaves it out of the daemon ---------

int l2port2poag(uint32_t l2port, uint32_t *unit, uint32_t *poag)
{
    if (l2port2port(l2port, unit, poag))
        return 1;
    if (!l2port_is_poag(l2port))
        return 0;
    *unit = UNIT;
    *poag = l2port;
    return 1;
}

const char *l2port_txt(uint32_t l2port)
{
    LVT_PROCESS static char text[16];

    if (l2port_is_port(l2port))
        snprintf(text, sizeof text, "%d", static_cast<int>(l2port));
    else if (l2port_is_poag(l2port))
        snprintf(text, sizeof text, "LLAG%d", static_cast<int>(l2port - RSTP_PHYSICAL_PORTS));
    else
        snprintf(text, sizeof text, "%d (L2)", static_cast<int>(l2port));
    return text;
}

void lvt_port_status_polling(uint8_t *pbm)
{
    link_mon_status_t monitor;
    if (!read_link_monitor(&monitor, "lvt_port_status_polling", 831))
        return;

    for (uint32_t i = 0; i < RSTP_PHYSICAL_PORTS; i++) {
        const lvt_port_status_t now = status_of_word(monitor.status[i]);
        if (load_shared(lvt_port_status[i].link) != now.link || load_shared(lvt_port_status[i].speed) != now.speed ||
            load_shared(lvt_port_status[i].duplex) != now.duplex)
            lvt_pbm_set(i, pbm);
    }
}

const char *link_state_txt(uint32_t link) { return link == 0 ? "down" : link == 1 ? "up" : "undef"; }

const char *link_duplex_txt(uint32_t duplex) { return duplex == 0 ? "half" : duplex == 1 ? "full" : "undef"; }

char *misc_mac_txt(const uint8_t *mac, char *text)
{
    snprintf(text, 18, "%02x-%02x-%02x-%02x-%02x-%02x", mac[0], mac[1], mac[2], mac[3], mac[4], mac[5]);
    return text;
}

const char *mac_txt(const uint8_t *mac)
{
    LVT_PROCESS static char text[18];
    return misc_mac_txt(mac, text);
}

int l2pt_trap_set(uint32_t index, uint8_t value)
{
    if (index < RSTP_PHYSICAL_PORTS)
        l2pt_trap[index] = value;
    return 0;
}

uint8_t l2pt_trap_get(uint32_t index) { return index < RSTP_PHYSICAL_PORTS ? l2pt_trap[index] : 0; }

void lvt_os_set_stpstate(uint32_t l2port, uint8_t state)
{
    const uint32_t shown = l2port_is_valid(l2port) ? l2port : 0; // nothing is cached for a port 0
    printf("\n%s: L%d: lvt_os_set_stpstate(), new_state=%d, cached_stpstates=%d, cached_fwdstates=%d\n", SOURCE, 420,
           state, cached_stpstates[shown], cached_fwdstates[shown]);
    STP_ASSERT(l2port_is_valid(l2port), "l2port_is_valid(portno)", SOURCE, 421, "lvt_os_set_stpstate");
    cached_stpstates[l2port] = state;
    if (cached_fwdstates[l2port] == 1)
        l2port_stp_state_set(l2port, state);
}

void lvt_os_set_fwdstate(uint32_t l2port, uint8_t enable)
{
    printf("\n%s: L%d: lvt_os_set_fwdstate(), port %d: new FWD state %s\n", SOURCE, 445, static_cast<int>(l2port),
           enable == 1 ? "enb" : "dis");
    STP_ASSERT(l2port_is_valid(l2port), "l2port_is_valid(portno)", SOURCE, 446, "lvt_os_set_fwdstate");
    if (cached_fwdstates[l2port] == 1 && enable == 0) {
        cached_fwdstates[l2port] = 0;
        l2port_stp_state_set(l2port, HW_DISCARDING);
    } else if (cached_fwdstates[l2port] != 1 && enable == 1) {
        cached_fwdstates[l2port] = 1;
        l2port_stp_state_set(l2port, cached_stpstates[l2port]);
    }
}

uint8_t lvt_os_get_stpstate(uint32_t l2port)
{
    printf("\n%s: L%d: lvt_os_get_stpstate()\n", SOURCE, 434);
    STP_ASSERT(l2port_is_valid(l2port), "l2port_is_valid(portno)", SOURCE, 435, "lvt_os_get_stpstate");
    return cached_stpstates[l2port];
}

uint8_t lvt_os_get_fwdstate(uint32_t l2port)
{
    printf("\n%s: L%d: lvt_os_get_fwdstate()\n", SOURCE, 475);
    STP_ASSERT(l2port_is_valid(l2port), "l2port_is_valid(portno)", SOURCE, 476, "lvt_os_get_fwdstate");
    return cached_fwdstates[l2port];
}

int l2port_stp_state_set(uint32_t l2port, uint8_t state)
{
    STP_ASSERT(l2port_is_valid(l2port), "l2port_is_valid(l2port)", SOURCE, 0, "l2port_stp_state_set");
    l2port_hw_state[l2port] = state;
    return l2port_is_port(l2port) ? port_stp_state_set(l2port, state) : 0;
}

int port_stp_state_set(uint32_t, uint8_t) { return 0; }

int lvt_os_xmit(uint32_t l2port, uint8_t *buffer)
{
    STP_ASSERT(l2port_is_port(l2port), "l2port_is_port(l2port)", SOURCE, 0, "lvt_os_xmit");
    uint32_t unit, port;
    if (l2port2port(l2port, &unit, &port))
        return 0;
    packet_tx_free(buffer);
    return 1;
}

int rstp_rawSocketOnceRx(uint8_t *buffer, size_t length, const char *ifname)
{
    int fd;
    sockaddr_ll addr;
    initSocket(&fd, &addr, ifname);
    if (fd == 0)
        return -1;
    const int result = static_cast<int>(recvfrom(fd, buffer, length, 0, nullptr, nullptr));
    if (result < 1)
        perror("recvfrom error");
    close(fd);
    return result;
}

int rstp_rawSocketOnceTx(const uint8_t *buffer, size_t length, const char *ifname)
{
    int fd;
    sockaddr_ll addr;
    initSocket(&fd, &addr, ifname);
    if (fd == 0)
        return -1;
    if (process_send_frame(fd, buffer, length, &addr) == -1)
        perror("sendto");
    close(fd);
    return 0;
}
