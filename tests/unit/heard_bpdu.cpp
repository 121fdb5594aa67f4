#include "heard_bpdu.h"

octets_t frame_of(const heard_t &heard)
{
    octets_t octets = {0x01, 0x80, 0xC2, 0, 0, 0, 0x02, 0xAA, 0xBB, 0xCC, 0xDD, 0xEE};
    const auto put = [&octets](uint32_t value, int width) {
        while (width--)
            octets.push_back(static_cast<uint8_t>(value >> 8 * width));
    };
    const auto put_id = [&](const bridge_id_t &id) {
        put(id.prio, 2);
        octets.insert(octets.end(), id.addr, id.addr + 6);
    };

    const bool tcn = heard.type == 0x80;
    put(tcn ? 7 : heard.type == 2 ? 39 : 38, 2);
    put(0x424203, 3);
    put(0, 2);
    put(heard.version, 1);
    put(heard.type, 1);
    if (tcn)
        return octets;
    put(heard.flags, 1);
    put_id(heard.root);
    put(heard.cost, 4);
    put_id(heard.bridge);
    put(heard.port_id, 2);
    put(heard.times.MessageAge << 8, 2);
    put(heard.times.MaxAge << 8, 2);
    put(heard.times.HelloTime << 8, 2);
    put(heard.times.ForwardDelay << 8, 2);
    if (heard.type == 2)
        put(0, 1);
    return octets;
}

const char *kind_of(uint8_t type)
{
    return type == 0x00 ? "config" : type == 0x02 ? "rst" : type == 0x80 ? "tcn" : "?";
}
