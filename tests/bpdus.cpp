#include "tests/bpdus.h"

bridge_id_t made_up_bridge(uint16_t priority, uint8_t last) { return {priority, {0x02, 0, 0, 0, last, 0}}; }

told_t root_bridge(uint16_t priority, uint8_t last)
{
    const bridge_id_t id = made_up_bridge(priority, last);
    return {.root = id, .cost = 0, .bridge = id, .times = SHORT_TIMES};
}

told_t with_times(told_t told, timevalues_t times)
{
    told.times = times;
    return told;
}

bpdu_t config_bpdu(const told_t &told, uint8_t flags) { return bpdu_of(BPDU_TYPE_CONFIG, told, flags); }

bpdu_t rst_bpdu(const told_t &told, uint8_t flags, uint8_t role)
{
    return bpdu_of(BPDU_TYPE_RST, told, flags | bpdu_role_flags(role));
}

bpdu_t tcn_bpdu() { return blank_bpdu(BPDU_TYPE_TCN); }

bool is_rst(const bpdu_t &bpdu) { return bpdu.type == BPDU_TYPE_RST; }

bool is_config(const bpdu_t &bpdu) { return bpdu.type == BPDU_TYPE_CONFIG; }

bool is_tcn(const bpdu_t &bpdu) { return bpdu.type == BPDU_TYPE_TCN; }

bool is_ack(const bpdu_t &bpdu) { return is_config(bpdu) && has_flag(bpdu, BPDU_FLAG_TC_ACK); }

bool has_flag(const bpdu_t &bpdu, uint8_t flag) { return (bpdu.flags & flag) != 0; }

bool tells_change(const bpdu_t &bpdu) { return has_flag(bpdu, BPDU_FLAG_TC); }
