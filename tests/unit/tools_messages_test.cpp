/// Control messages, octet by octet.
#include "tools/messages.h"

#include <string>

#include <gtest/gtest.h>

#include "tools_frames.h"

namespace {

std::string zeros(size_t count)
{
    std::string text;
    for (size_t i = 0; i < count; i++)
        text += " 00";
    return text;
}

} // namespace

TEST(messages, bpdu_carries_port_and_length)
{
    const uint8_t frame[] = {0x01, 0x80, 0xC2};
    EXPECT_EQ(hex(bpdu_message(2, frame)), "bc 30 11 82 03 00 00 00 00 02 03 00 00 00 00 00 01 80 c2");
}

TEST(messages, bpdu_may_state_another_length)
{
    const uint8_t frame[] = {0x01, 0x80, 0xC2};
    EXPECT_EQ(hex(bpdu_message(7, frame, 0x1234)), "bc 30 11 82 03 00 00 00 00 07 34 12 00 00 00 00 01 80 c2");
}

TEST(messages, port_status_has_four_octets_a_port)
{
    port_statuses_t ports{};
    ports[0] = {.ignored = 0, .link = 1, .speed = 2, .duplex = 1};
    ports[5] = {.ignored = 0xEE, .link = 3, .speed = 7, .duplex = 0};
    EXPECT_EQ(hex(port_status_message(ports)),
              "bc 30 11 82 18 00 00 00 01 00 18 00 00 00 00 00"
              " 00 01 02 01" +
                  zeros(16) + " ee 03 07 00");
}

TEST(messages, aggr_status_keeps_octet_0)
{
    EXPECT_EQ(hex(aggr_status_message({0, 7, 7, 3, 4, 5, 6})),
              "bc 30 11 82 07 00 00 00 02 00 07 00 00 00 00 00 00 07 07 03 04 05 06");
    EXPECT_EQ(hex(aggr_status_message(AGGR_STATUS_ALONE)),
              "bc 30 11 82 07 00 00 00 02 00 07 00 00 00 00 00 00 01 02 03 04 05 06");
}

TEST(messages, system_config_defaults)
{
    EXPECT_EQ(hex(system_config_message(LVT_RSTP_SYSTEM_DEFAULTS)),
              "bc 30 11 82 0a 00 00 00 03 00 0a 00 00 00 00 00 00 80 14 00 02 00 0f 00 02 00");
}

TEST(messages, system_config_fields_lie_in_order)
{
    EXPECT_EQ(hex(system_config_message({.bridge_priority = 0x1102,
                                         .max_age = 0x2203,
                                         .hello_time = 0x3304,
                                         .forward_delay = 0x4405,
                                         .force_version = 0x55,
                                         .reserved = 0x66})),
              "bc 30 11 82 0a 00 00 00 03 00 0a 00 00 00 00 00 02 11 03 22 04 33 05 44 55 66");
}

TEST(messages, aggr_config_is_one_record)
{
    EXPECT_EQ(hex(aggr_config_message({.adminPathCost = 0x11223344,
                                       .port_priority = 0x5566,
                                       .adminEnable = 0x77,
                                       .adminEdge = 0x88,
                                       .adminPointToPoint = 0x99,
                                       .reserved = {0xAA, 0xBB, 0xCC}})),
              "bc 30 11 82 0c 00 00 00 04 00 0c 00 00 00 00 00 44 33 22 11 66 55 77 88 99 aa bb cc");
}

TEST(messages, port_config_is_seven_records)
{
    port_configs_t configs = default_port_configs();
    configs[1].adminEnable = 1;
    configs[6].adminPathCost = 200;
    const std::string by_default = " 00 00 00 00 80 00 00 01 02 00 00 00";
    const std::string body = by_default + " 00 00 00 00 80 00 01 01 02 00 00 00" + by_default + by_default +
                             by_default + by_default + " c8 00 00 00 80 00 00 01 02 00 00 00";
    EXPECT_EQ(hex(port_config_message(configs)), "bc 30 11 82 54 00 00 00 05 00 54 00 00 00 00 00" + body);
    EXPECT_EQ(hex(port_config_only_message(configs)), "bc 30 11 82 54 00 00 00 09 00 54 00 00 00 00 00" + body);
}

TEST(messages, work_flush_has_no_body)
{
    EXPECT_EQ(hex(work_flush_message()), "bc 30 11 82 00 00 00 00 06 00 00 00 00 00 00 00");
}

TEST(messages, lacp_enable_has_an_octet_a_port)
{
    EXPECT_EQ(hex(lacp_enable_message({1, 0, 0, 0, 0, 2})),
              "bc 30 11 82 06 00 00 00 0a 00 06 00 00 00 00 00 01 00 00 00 00 02");
}

TEST(messages, raw_takes_any_type_and_body)
{
    const uint8_t body[] = {0xDE, 0xAD};
    EXPECT_EQ(hex(raw_message(200, body)), "bc 30 11 82 02 00 00 00 c8 00 02 00 00 00 00 00 de ad");
    EXPECT_EQ(hex(raw_message(0, {}, 9, 65535)), "bc 30 11 82 00 00 00 00 00 09 ff ff 00 00 00 00");
}

TEST(messages, frame_length_has_32_bits_where_the_stated_one_has_16)
{
    const std::vector<uint8_t> body(0x10002);
    const auto frame = raw_message(11, body);
    EXPECT_EQ(hex(std::span(frame).first(16)), "bc 30 11 82 02 00 01 00 0b 00 02 00 00 00 00 00");
    EXPECT_EQ(frame.size(), 16 + body.size());
}
