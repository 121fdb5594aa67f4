/// Messages that other daemons of the board send, made up for tests and labs.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "tools/ctl/ctl.h"
#include "tools/messages.h"

/// The links in words such as "1-3=1000/full" and "4=down"; a port that is not named is down.
/// Throws usage_t or refused_t.
port_statuses_t parse_links(const std::vector<std::string> &assignments);

/// A BPDU's fields as the command line has them; they are read by make_bpdu.
struct bpdu_words_t {
    std::string type = "rst";
    std::string source = "02:00:00:00:ff:01";
    std::string root = "0/02:00:00:00:ff:00";
    std::string bridge; ///< empty: the root
    std::string port_id = "0x8001";
    std::string role = "designated";
    std::string flags; ///< "proposal,agreement,..."
    std::string cost = "0";
    std::string message_age = "0", max_age = "20", hello_time = "2", forward_delay = "15";

    bool operator==(const bpdu_words_t &) const = default;
};

/// A frame from its destination address on. Throws usage_t or refused_t.
std::vector<uint8_t> make_bpdu(const bpdu_words_t &words);

/// Hands a frame to the daemon as received on each of the front ports; a switch tag is taken out.
/// Throws refused_t.
void inject_frame(const ctl_t &ctl, const std::vector<unsigned> &ports, const std::vector<uint8_t> &frame);

/// The BPDUs of a capture file, or only the frame of that number, in their order and as fast as the
/// daemon takes them. Says how many there were. Throws refused_t, also when there is none.
void inject_capture(const ctl_t &ctl, const std::vector<unsigned> &ports, const std::string &path,
                    std::optional<int64_t> number);
