/// What the unit tests ask of the build that they run in: their own code may have been compiled in another.
#pragma once

/// Programs are slow here, under an emulator or with a sanitizer.
bool programs_are_slow();

/// What starts this build's lvt_rstpctl: a path.
const char *rstpctl_program();
