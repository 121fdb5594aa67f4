#include "rstp/vect.h"

#include <cstring>

namespace {

template <typename number_t>
int compare(number_t a, number_t b)
{
    return a < b ? VECT_BETTER : a > b ? VECT_WORSE : VECT_EQUAL;
}

int compare_bridge_id(const bridge_id_t &a, const bridge_id_t &b)
{
    if (int result = compare(a.prio, b.prio))
        return result;
    return compare(memcmp(a.addr, b.addr, sizeof a.addr), 0);
}

} // namespace

void STP_VECT_create(prio_vector_t *out, const bridge_id_t *root, uint32_t root_path_cost,
                     const bridge_id_t *design_bridge, uint32_t design_port, uint32_t bridge_port)
{
    *out = {*root, root_path_cost, *design_bridge, design_port, bridge_port};
}

int STP_VECT_compare_vector(const prio_vector_t *a, const prio_vector_t *b)
{
    if (int result = compare_bridge_id(a->root_bridge, b->root_bridge))
        return result;
    if (int result = compare(a->root_path_cost, b->root_path_cost))
        return result;
    if (int result = compare_bridge_id(a->design_bridge, b->design_bridge))
        return result;
    if (int result = compare(a->design_port, b->design_port))
        return result;
    return compare(a->bridge_port, b->bridge_port);
}

int STP_VECT_eq_vector(const prio_vector_t *a, const prio_vector_t *b)
{
    return a->design_port == b->design_port && a->bridge_port == b->bridge_port &&
           a->root_path_cost == b->root_path_cost && STP_VECT_eq_bridge_id(&a->root_bridge, &b->root_bridge) &&
           STP_VECT_eq_bridge_id(&a->design_bridge, &b->design_bridge);
}

int STP_VECT_eq_bridge_id(const bridge_id_t *a, const bridge_id_t *b)
{
    return compare_bridge_id(*a, *b) == VECT_EQUAL;
}

void STP_VECT_set_vector(const prio_vector_t *vector, bpdu_t *bpdu)
{
    bpdu_put16(bpdu->root_priority, vector->root_bridge.prio);
    memcpy(bpdu->root_address, vector->root_bridge.addr, sizeof bpdu->root_address);
    bpdu_put32(bpdu->root_path_cost, vector->root_path_cost);
    bpdu_put16(bpdu->bridge_priority, vector->design_bridge.prio);
    memcpy(bpdu->bridge_address, vector->design_bridge.addr, sizeof bpdu->bridge_address);
    bpdu_put16(bpdu->port_id, static_cast<uint16_t>(vector->design_port));
}

void STP_VECT_get_vector(const bpdu_t *bpdu, prio_vector_t *out)
{
    out->root_bridge.prio = bpdu_get16(bpdu->root_priority);
    memcpy(out->root_bridge.addr, bpdu->root_address, sizeof out->root_bridge.addr);
    out->root_path_cost = bpdu_get32(bpdu->root_path_cost);
    out->design_bridge.prio = bpdu_get16(bpdu->bridge_priority);
    memcpy(out->design_bridge.addr, bpdu->bridge_address, sizeof out->design_bridge.addr);
    out->design_port = bpdu_get16(bpdu->port_id);
}
