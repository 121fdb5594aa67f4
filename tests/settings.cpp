#include "tests/settings.h"

lvt_rstp_system_config_t bridge_config(uint16_t priority)
{
    lvt_rstp_system_config_t config = LVT_RSTP_SYSTEM_DEFAULTS;
    config.bridge_priority = priority;
    config.max_age = MAX_AGE;
    config.hello_time = HELLO_TIME;
    config.forward_delay = FORWARD_DELAY;
    return config;
}

port_configs_t port_configs(std::initializer_list<int> to_bridges, std::initializer_list<int> to_hosts)
{
    port_configs_t configs = default_port_configs();
    for (const int port : to_bridges) {
        configs.at(static_cast<size_t>(port)).adminEnable = 1;
        configs.at(static_cast<size_t>(port)).adminEdge = 0;
    }
    for (const int port : to_hosts)
        configs.at(static_cast<size_t>(port)).adminEnable = 1;
    return configs;
}

aggr_status_t groups(std::initializer_list<uint8_t> of_ports)
{
    aggr_status_t status = AGGR_STATUS_ALONE;
    size_t port = 1;
    for (const uint8_t group : of_ports) {
        if (group != 0)
            status.at(port) = group;
        port++;
    }
    return status;
}
