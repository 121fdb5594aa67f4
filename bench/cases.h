/// What is measured: calls into the daemon as its main loop and its tick make them, on a bridge
/// that takes part with several ports. The switch chip, the socket and the other daemons are
/// stubs, so that the figures are the daemon's own.
#pragma once

#include <span>

struct bench_case_t {
    const char *name;
    const char *what;  ///< for the table
    void (*prepare)(); ///< brings the daemon into the state that the case needs
    void (*next)();    ///< varies the input; not measured
    void (*call)();    ///< the measured call
};

std::span<const bench_case_t> bench_cases();
