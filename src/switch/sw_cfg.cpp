#include "switch/sw_cfg.h"

#include <cstdio>

#include "l2_proto_utility/os_api.h"
#include "platform/lvt_com.h"
#include "platform/mdio_intf.h"

namespace {

constexpr uint32_t BUSY = 0x80000000; ///< bit 31 of a command register: start, and busy until done

// The learned addresses.
constexpr uint32_t ADDRESS_DATA0 = 0x600;
constexpr uint32_t ADDRESS_DATA1 = 0x604;
constexpr uint32_t ADDRESS_DATA2 = 0x608;
constexpr uint32_t ADDRESS_COMMAND = 0x60C;
constexpr uint32_t ADDRESS_DELETE_ALL = BUSY | 0x4;
constexpr uint32_t ADDRESS_FLUSH_PORT = BUSY | 0x5; ///< chip port from bit 8
constexpr uint32_t ADDRESS_TRAP_ARM = BUSY | 0x20022;
constexpr uint32_t ADDRESS_TRAP_DISARM = BUSY | 0x20023;

constexpr uint32_t PORT_CONTROL = 0x660; ///< and 12 on for each chip port
constexpr uint32_t PORT_CONTROL_STEP = 12;
constexpr uint32_t PORT_STATE_SHIFT = 16;
constexpr uint32_t PORT_STATE_MASK = 7 << PORT_STATE_SHIFT;

// The rule table.
constexpr uint32_t RULE_COMMAND = 0x400;
constexpr uint32_t RULE_DATA = 0x404;
constexpr uint32_t RULE_DATA_WORDS = 5;
constexpr uint32_t RULE_PATTERN = BUSY;
constexpr uint32_t RULE_MASK = BUSY | 0x100;
constexpr uint32_t RULE_ACTION = BUSY | 0x200;
constexpr uint32_t RULE_FIRST_ENTRY = 37;
constexpr uint32_t RULE_MASK_FLAGS = 201;

void add(mdio_multi_t *request, uint32_t op, uint32_t reg, uint32_t mask, uint32_t value)
{
    request->operations[request->count++] = {op, reg, mask, value};
}

void wait_idle(mdio_multi_t *request, uint32_t command) { add(request, MDIO_OP_WAIT, command, BUSY, 0); }
void write(mdio_multi_t *request, uint32_t reg, uint32_t value) { add(request, MDIO_OP_WRITE, reg, 0, value); }

void write_rule_part(mdio_multi_t *request, const uint32_t (&words)[RULE_DATA_WORDS], uint32_t command)
{
    wait_idle(request, RULE_COMMAND);
    for (uint32_t i = 0; i < RULE_DATA_WORDS; i++)
        write(request, RULE_DATA + 4 * i, words[i]);
    write(request, RULE_COMMAND, command);
}

bool failed(mdio_multi_t *request) { return mdio_intf_access_multi(request) != 0; }

int tell(const char *function, int line)
{
    printf("E:%s() L%d, mdio_intf_access_multi failed\n", function, line);
    return -1;
}

bool is_front_port(uint32_t index) { return index < RSTP_PHYSICAL_PORTS; }
uint32_t chip_port(uint32_t index) { return static_cast<uint32_t>(sw_to_phy_port_map_arr[index]); }

/// The rule of one front port: frames to the bridge group address, from the address `mac`,
/// are bound to the port.
void add_bypass_rule(mdio_multi_t *request, uint8_t enable, uint32_t index, const uint8_t *mac)
{
    const uint32_t entry = RULE_FIRST_ENTRY + index;
    const uint32_t port_bit = 1u << chip_port(index);
    const uint32_t on = enable ? 0xFFFFFFFF : 0;

    const uint32_t pattern[] = {0xC2000000 & on, (uint32_t{mac[4]} << 24 | uint32_t{mac[5]} << 16 | 0x180) & on,
                                (uint32_t{mac[0]} << 24 | uint32_t{mac[1]} << 16 | uint32_t{mac[2]} << 8 | mac[3]) & on,
                                0, 0};
    const uint32_t mask[] = {on, on, on, 0, RULE_MASK_FLAGS};
    const uint32_t action[] = {0, port_bit << 29 & on, (port_bit >> 3 | 0x8010) & on, 0, 0};

    write_rule_part(request, pattern, RULE_PATTERN | entry);
    write_rule_part(request, mask, RULE_MASK | entry);
    write_rule_part(request, action, RULE_ACTION | entry);
}

} // namespace

int sw_cfg_stp_mstpState_set_api(uint32_t index, uint8_t state)
{
    if (!is_front_port(index))
        return -1;
    mdio_multi_t request = {};
    add(&request, MDIO_OP_MODIFY, PORT_CONTROL + PORT_CONTROL_STEP * chip_port(index), PORT_STATE_MASK,
        (state & 7u) << PORT_STATE_SHIFT);
    return failed(&request) ? tell("sw_cfg_stp_mstpState_set_api", 466) : 0;
}

int sw_cfg_l2_addr_delAll_api()
{
    mdio_multi_t request = {};
    wait_idle(&request, ADDRESS_COMMAND);
    write(&request, ADDRESS_COMMAND, ADDRESS_DELETE_ALL);
    return failed(&request) ? -1 : 0;
}

int sw_cfg_trap_portMgmtFrameAction_rstp_set_api(uint8_t enable, uint32_t /*index*/)
{
    mdio_multi_t request = {};
    wait_idle(&request, ADDRESS_COMMAND);
    write(&request, ADDRESS_DATA0, 0xC2000000);
    write(&request, ADDRESS_DATA1, 0x00800180);
    write(&request, ADDRESS_DATA2, 0x12F);
    if (enable)
        write(&request, ADDRESS_COMMAND, ADDRESS_TRAP_ARM);
    else
        add(&request, MDIO_OP_WRITE, ADDRESS_COMMAND, BUSY, ADDRESS_TRAP_DISARM);

    if (failed(&request)) {
        osPrintfConsole("E:%s() L%d, mdio_intf_access_multi failed\n", "sw_cfg_trap_portMgmtFrameAction_rstp_set_api",
                        126);
        return -1;
    }
    return 0;
}

int sw_cfg_trap_bypassVlan_rstp_set_api(uint8_t enable)
{
    uint8_t system[RSTP_MAC_OCTETS];
    lvt_os_get_systemmac(system);

    for (uint32_t index = 0; index < RSTP_PHYSICAL_PORTS; index++) {
        // The rules count their addresses from the system's own, one below the port's.
        uint8_t mac[RSTP_MAC_OCTETS];
        misc_instantiate_mac(mac, system, index - 1);

        mdio_multi_t request = {};
        add_bypass_rule(&request, enable, index, mac);
        if (failed(&request))
            return tell("sw_cfg_trap_bypassVlan_rstp_set_api", 444);
    }
    return 0;
}

// ---- what only other programs of the board would call: the linker leaves it out of the daemon ---------

int sw_cfg_l2_ucastAddr_flush_api(uint32_t index)
{
    if (!is_front_port(index))
        return -1;
    mdio_multi_t request = {};
    wait_idle(&request, ADDRESS_COMMAND);
    write(&request, ADDRESS_COMMAND, ADDRESS_FLUSH_PORT | chip_port(index) << 8);
    return failed(&request) ? tell("sw_cfg_l2_ucastAddr_flush_api", 552) : 0;
}

void sw_cfg_l2pt_trap_show_api()
{
    osPrintfConsole("===== l2pt_trap =====\n");
    for (uint32_t port = 0; port < RSTP_PHYSICAL_PORTS; port++)
        osPrintfConsole("Port[%d] = %d\n", static_cast<int>(port), l2pt_trap_get(port));
}
