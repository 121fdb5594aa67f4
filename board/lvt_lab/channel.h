/// How a lab's server and its clients speak: JSON, a value a line, over a socket that has a name and no file, so that
/// nothing of it stays.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include <nlohmann/json.hpp>

#include "board/lvt_board/fd.h"

namespace lvt_lab {

class channel_t {
public:
    explicit channel_t(fd_t socket) : socket_(std::move(socket)) {}

    int number() const { return socket_.number(); }

    /// Also hands these descriptors over. Returns false when the other one is gone.
    bool send(const nlohmann::json &value, const std::vector<int> &descriptors = {});

    bool send_octets(const std::vector<uint8_t> &octets);

    /// Waits until there is something to receive, the end included; -1: for ever. Returns false when the time is over
    /// or a signal has come.
    bool wait(int milliseconds) const;

    /// The next value; nothing when the other one is gone or says what is none.
    std::optional<nlohmann::json> receive();

    /// Octets that come after the values until now; empty at their end.
    std::string receive_octets();

    /// What was handed over until now.
    std::vector<fd_t> descriptors;

private:
    bool read_more();

    fd_t socket_;
    std::string pending_;
};

/// Whether a lab may have this name: letters, digits, "-", "_" and ".", at most 40.
bool is_lab_name(const std::string &name);

/// A socket that listens for clients of this lab, of this user alone; invalid, with errno, when the lab is there
/// already.
fd_t listen_for_clients(const std::string &lab);

/// Accepts the next client of this user, others are turned away.
std::optional<channel_t> accept_client(const fd_t &listener);

/// Nothing when there is no such lab.
std::optional<channel_t> connect_to(const std::string &lab);

/// The names of this user's labs that are up.
std::vector<std::string> labs_there();

} // namespace lvt_lab
