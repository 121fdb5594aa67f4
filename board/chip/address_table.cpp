#include "chip/address_table.h"

namespace {

bool has_aged(const address_table_t &table, const learned_address_t &entry, chip_time_t now)
{
    return now - entry.seen >= table.age_max;
}

} // namespace

void address_learn(address_table_t &table, const mac_t &mac, unsigned port, chip_time_t now)
{
    if ((mac[0] & 1) != 0)
        return;
    if (table.learned.size() >= ADDRESSES_MAX && !table.learned.contains(mac)) {
        address_age(table, now);
        if (table.learned.size() >= ADDRESSES_MAX)
            return;
    }
    table.learned[mac] = {port, now};
}

std::optional<unsigned> address_find(const address_table_t &table, const mac_t &mac, chip_time_t now)
{
    const auto found = table.learned.find(mac);
    if (found == table.learned.end() || has_aged(table, found->second, now))
        return std::nullopt;
    return found->second.port;
}

void address_age(address_table_t &table, chip_time_t now)
{
    std::erase_if(table.learned, [&](const auto &entry) { return has_aged(table, entry.second, now); });
}

void address_flush(address_table_t &table) { table.learned.clear(); }

void address_flush_port(address_table_t &table, unsigned port)
{
    std::erase_if(table.learned, [=](const auto &entry) { return entry.second.port == port; });
}
