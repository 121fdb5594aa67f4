#include "tests/this_build.h"

#ifndef LVT_SLOW_PROGRAMS
#define LVT_SLOW_PROGRAMS 0
#endif

bool programs_are_slow() { return LVT_SLOW_PROGRAMS; }

#ifdef LVT_RSTPCTL
const char *rstpctl_program() { return LVT_RSTPCTL; }
#endif
