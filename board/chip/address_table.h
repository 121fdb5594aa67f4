/// The switch chip's address table: where stations were heard, and which addresses go to the CPU.
#pragma once

#include <array>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <map>
#include <optional>

using mac_t = std::array<std::uint8_t, 6>;

/// Time since the chip was switched on.
using chip_time_t = std::chrono::microseconds;

constexpr std::size_t ADDRESSES_MAX = 1024; ///< learned entries that the table has room for
constexpr chip_time_t ADDRESS_AGE_MAX = std::chrono::seconds(300);

struct learned_address_t {
    unsigned port; ///< chip port where the address was last a source
    chip_time_t seen;
};

struct address_table_t {
    std::map<mac_t, learned_address_t> learned;
    std::map<mac_t, std::array<std::uint32_t, 3>> trapped; ///< static entries: the words written for them
    chip_time_t age_max = ADDRESS_AGE_MAX;
};

/// Notes that `mac` was heard on `port`. Group addresses and, when the table is full of entries
/// that are still valid, new ones are not learned.
void address_learn(address_table_t &table, const mac_t &mac, unsigned port, chip_time_t now);

/// The port where `mac` was last heard; nothing if it is unknown or its entry has aged.
std::optional<unsigned> address_find(const address_table_t &table, const mac_t &mac, chip_time_t now);

/// Removes the entries that have aged.
void address_age(address_table_t &table, chip_time_t now);

/// Removes the learned entries of every port, or of one. Static entries stay.
void address_flush(address_table_t &table);
void address_flush_port(address_table_t &table, unsigned port);
