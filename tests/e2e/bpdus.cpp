#include "bpdus.h"

#include <algorithm>

#include "tools/bpdu_frame.h"

namespace lab {

namespace {

void tell(bpdu_t &bpdu, const told_t &told, uint8_t flags)
{
    bpdu.flags = flags;
    bpdu_put16(bpdu.root_priority, told.root.prio);
    std::copy_n(told.root.addr, RSTP_MAC_OCTETS, bpdu.root_address);
    bpdu_put32(bpdu.root_path_cost, told.cost);
    bpdu_put16(bpdu.bridge_priority, told.bridge.prio);
    std::copy_n(told.bridge.addr, RSTP_MAC_OCTETS, bpdu.bridge_address);
    bpdu_put16(bpdu.port_id, told.port);
    bpdu.message_age[0] = told.times.MessageAge;
    bpdu.max_age[0] = told.times.MaxAge;
    bpdu.hello_time[0] = told.times.HelloTime;
    bpdu.forward_delay[0] = told.times.ForwardDelay;
}

} // namespace

bridge_id_t made_up_bridge(uint16_t priority, uint8_t last) { return {priority, {0x02, 0, 0, 0, last, 0}}; }

told_t root_bridge(uint16_t priority, uint8_t last)
{
    const bridge_id_t id = made_up_bridge(priority, last);
    return {.root = id, .cost = 0, .bridge = id};
}

int role_code_of(uint8_t flags) { return flags >> BPDU_FLAG_ROLE_SHIFT & 3; }

uint8_t role_flags(int code) { return static_cast<uint8_t>(code << BPDU_FLAG_ROLE_SHIFT); }

bpdu_t config_bpdu(const told_t &told, uint8_t flags)
{
    bpdu_t bpdu = blank_bpdu(BPDU_TYPE_CONFIG);
    tell(bpdu, told, flags);
    return bpdu;
}

bpdu_t rst_bpdu(const told_t &told, uint8_t flags, int role_code)
{
    bpdu_t bpdu = blank_bpdu(BPDU_TYPE_RST);
    tell(bpdu, told, static_cast<uint8_t>(flags | role_flags(role_code)));
    return bpdu;
}

bpdu_t tcn_bpdu() { return blank_bpdu(BPDU_TYPE_TCN); }

bool is_rst(const bpdu_t &bpdu) { return bpdu.type == BPDU_TYPE_RST; }

bool is_config(const bpdu_t &bpdu) { return bpdu.type == BPDU_TYPE_CONFIG; }

bool is_tcn(const bpdu_t &bpdu) { return bpdu.type == BPDU_TYPE_TCN; }

bool is_ack(const bpdu_t &bpdu) { return is_config(bpdu) && has_flag(bpdu, BPDU_FLAG_TC_ACK); }

bool has_flag(const bpdu_t &bpdu, uint8_t flag) { return (bpdu.flags & flag) != 0; }

} // namespace lab
