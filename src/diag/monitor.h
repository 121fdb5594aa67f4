/// The status file, rewritten after every tick for other programs to read.
#pragma once

#include <cstddef>
#include <cstdint>

/// Chooses the time of the last topology change to show, in seconds since 1970.
///
/// time_since_tc  the bridge's count since then, taken for seconds; not 0.
/// old_sec        what was shown last, 0 for nothing; kept up to date. A time within two
///                seconds of it shows as it, so that the text does not jitter.
int32_t monitor_tc_time(int32_t now, uint16_t time_since_tc, int32_t *old_sec);
