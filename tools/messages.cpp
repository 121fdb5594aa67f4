#include "tools/messages.h"

#include <algorithm>
#include <type_traits>

#include "board/chip/ports.h"

namespace {

template <typename record_t>
std::span<const uint8_t> octets_of(const record_t &record)
{
    static_assert(std::has_unique_object_representations_v<record_t>, "padding would leak into the message");
    return {reinterpret_cast<const uint8_t *>(&record), sizeof record};
}

} // namespace

port_configs_t default_port_configs()
{
    port_configs_t configs;
    configs.fill(LVT_RSTP_PORT_DEFAULTS);
    return configs;
}

std::vector<uint8_t> bpdu_message(uint8_t port_octet, std::span<const uint8_t> frame,
                                  std::optional<uint16_t> stated_length)
{
    return raw_message(RSTP_MSG_BPDU, frame, port_octet, stated_length);
}

std::vector<uint8_t> received_message(unsigned front, std::span<const uint8_t> frame,
                                      std::optional<uint16_t> stated_length)
{
    return bpdu_message(static_cast<uint8_t>(chip_port_of_front(front) + 1), frame, stated_length);
}

std::vector<uint8_t> port_status_message(const port_statuses_t &ports)
{
    return raw_message(RSTP_MSG_PORT_STATUS, octets_of(ports));
}

std::vector<uint8_t> aggr_status_message(const aggr_status_t &groups)
{
    return raw_message(RSTP_MSG_AGGR_STATUS, groups);
}

std::vector<uint8_t> system_config_message(const lvt_rstp_system_config_t &config)
{
    return raw_message(RSTP_MSG_SYSTEM_CONFIG, octets_of(config));
}

std::vector<uint8_t> aggr_config_message(const lvt_rstp_port_config_t &config)
{
    return raw_message(RSTP_MSG_AGGR_CONFIG, octets_of(config));
}

std::vector<uint8_t> port_config_message(const port_configs_t &configs)
{
    return raw_message(RSTP_MSG_PORT_CONFIG, octets_of(configs));
}

std::vector<uint8_t> port_config_only_message(const port_configs_t &configs)
{
    return raw_message(RSTP_MSG_PORT_CONFIG_ONLY, octets_of(configs));
}

std::vector<uint8_t> work_flush_message() { return raw_message(RSTP_MSG_WORK_FLUSH, {}); }

std::vector<uint8_t> lacp_enable_message(const lacp_enables_t &enables)
{
    return raw_message(RSTP_MSG_LACP_ENABLE, enables);
}

std::vector<uint8_t> raw_message(uint8_t type, std::span<const uint8_t> body, uint8_t port_octet,
                                 std::optional<uint16_t> stated_length)
{
    rstp_frame_header_t frame_header{};
    std::copy_n(rstp_magic_number_arr, sizeof rstp_magic_number_arr, frame_header.magic);
    frame_header.length = static_cast<uint32_t>(body.size());

    rstp_msg_header_t msg_header{};
    msg_header.type = type;
    msg_header.port = port_octet;
    msg_header.length = stated_length.value_or(static_cast<uint16_t>(body.size()));

    std::vector<uint8_t> frame(sizeof frame_header + sizeof msg_header + body.size());
    auto end = std::ranges::copy(octets_of(frame_header), frame.begin()).out;
    end = std::ranges::copy(octets_of(msg_header), end).out;
    std::ranges::copy(body, end);
    return frame;
}
