/// The configuration file: everything that an operator sets, in one readable file.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "tools/ctl/place.h"
#include "tools/messages.h"

/// Where the configuration is kept unless another file is named.
constexpr char CONFIG_FILE[] = "/etc/lvt_rstp.toml";

/// All settings. What a file does not set has the daemon's default.
struct settings_t {
    lvt_rstp_system_config_t bridge = LVT_RSTP_SYSTEM_DEFAULTS;
    port_configs_t ports = default_port_configs(); ///< record 0: all groups
    lacp_enables_t lacp = {};
    aggr_status_t groups = AGGR_STATUS_ALONE;
    bool groups_stated = false; ///< the file says which ports form groups
};

/// Something in the file that may not be there, with its place, counted from 1.
struct config_fault_t {
    unsigned line;
    unsigned column;
    std::string text;
};

struct config_t {
    settings_t settings;                       ///< whole only without faults
    std::vector<std::string> linux_ports = {}; ///< of a Linux bridge: the interfaces that are ports 1, 2 ...
    std::vector<config_fault_t> faults;
};

/// Reads a configuration as a whole: all faults are found, in the order of the file, but after one
/// of the file's grammar, other than a value of one line, nothing more is looked at. What it does not set is as in
/// `base`.
config_t parse_config(const std::string &text, const settings_t &base = {});

/// The whole of what `text` says, said to come from `path`. Throws faults_t as load_config does.
config_t config_in(const std::string &text, const std::string &path);

/// Reads and parses a file. Throws faults_t with a line for each fault, refused_t when it cannot be
/// read.
settings_t load_config(const place_t &place);

/// The settings in `text`, said to come from `path`. Throws faults_t as load_config does.
settings_t settings_in(const std::string &text, const std::string &path);

/// A file's text. Throws refused_t.
std::string read_config_text(const place_t &place);

/// The same; nothing when there is no such file.
std::optional<std::string> find_config_text(const place_t &place);
