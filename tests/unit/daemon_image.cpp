#include "daemon_image.h"

#include <cstddef>

#include "state.h"

namespace {

/// Octet by octet, since the address sanitizer watches the gaps between the variables.
__attribute__((no_sanitize("address"))) void copy(const void *from, size_t count, void *to)
{
    const auto *source = static_cast<const volatile uint8_t *>(from);
    auto *target = static_cast<volatile uint8_t *>(to);
    for (size_t i = 0; i < count; i++)
        target[i] = source[i];
}

std::vector<uint8_t> taken(const char *begin, const char *end)
{
    std::vector<uint8_t> octets(static_cast<size_t>(end - begin));
    copy(begin, octets.size(), octets.data());
    return octets;
}

const daemon_image_t at_start = daemon_image();

} // namespace

daemon_image_t daemon_image()
{
    return {taken(__start_lvt_state, __stop_lvt_state), taken(__start_lvt_reserved, __stop_lvt_reserved),
            taken(__start_lvt_process, __stop_lvt_process)};
}

void daemon_image_restore(const daemon_image_t &image)
{
    copy(image.state.data(), image.state.size(), __start_lvt_state);
    copy(image.reserved.data(), image.reserved.size(), __start_lvt_reserved);
    copy(image.process.data(), image.process.size(), __start_lvt_process);
}

const daemon_image_t &daemon_image_at_start() { return at_start; }
