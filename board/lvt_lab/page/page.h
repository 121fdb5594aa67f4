/// A lab in a browser.
#pragma once

#include <cstdint>
#include <string>

namespace lvt_lab {

/// Serves a page on 127.0.0.1 that shows a lab and changes it, until the lab ends or SIGINT or SIGTERM comes. Prints
/// its address, with the token that all of the lab is asked for with.
///
/// port  0: one that is free
///
/// Throws untold_t when there is no such lab, refused_t when it cannot listen.
void page(const std::string &lab, uint16_t port);

} // namespace lvt_lab
