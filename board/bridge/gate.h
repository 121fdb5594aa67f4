/// A table of the firewall that decides what passes the ports of one bridge, whatever states the kernel gives them.
#pragma once

#include <memory>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "board/lvt_board/fd.h"

struct nft_ctx;

/// What the table lets pass, by interface number.
struct gate_state_t {
    std::set<int> ports; ///< those that it is about
    std::set<int> deaf;  ///< of these: no frame comes in, so that no address is learned
    std::set<int> open;  ///< frames pass between these; only they and the bridge itself are reached through `ports`

    bool operator==(const gate_state_t &) const = default;
};

/// The names of the interfaces that are deaf; nothing where the firewall cannot be told of single devices.
using deaf_devices_t = std::optional<std::vector<std::string>>;

/// The commands that put a table into the place of one that may be there, in one step. Deaf devices have another
/// table, of the same name, so that frames of others are not looked at for their sake.
std::string gate_made(const std::string &table, const gate_state_t &state, const deaf_devices_t &devices);

/// Whether a message of the kernel tells that something of the table was taken away.
bool tells_of_loss(const std::string &table, const void *message, std::size_t length);

/// The table itself, which stays with the kernel when the object goes. All of it throws std::runtime_error with the
/// words of the library.
class gate_t {
public:
    explicit gate_t(const std::string &bridge);

    const std::string &table() const { return table_; }

    /// Makes the table let pass what `state` says; nothing is done where it does already.
    void set(const gate_state_t &state);

    /// Takes the table away.
    void remove();

    /// Readable when the firewall was changed: look_after is due.
    int number() const { return events_.number(); }

    /// Puts the table back when somebody took something of it away. Returns whether that was so. When it cannot, the
    /// next `set` tries again.
    bool look_after();

private:
    void run(const std::string &commands);
    void make();
    bool lost();
    deaf_devices_t deaf_devices() const;
    void remove_devices();

    std::string table_;
    std::unique_ptr<nft_ctx, void (*)(nft_ctx *)> firewall_;
    fd_t events_;
    gate_state_t state_;
    bool there_ = false;
    bool by_device_ = true;
};
