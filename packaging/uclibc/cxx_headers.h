// Included first in every file: Debian's C++ headers are set up for glibc and repeat names that the
// small C library does not have. A C++ library made for it would say so in the same way.
#pragma once

#include <bits/c++config.h>

#undef _GLIBCXX_HAVE_AT_QUICK_EXIT
#undef _GLIBCXX_HAVE_MBSTATE_T
#undef _GLIBCXX_HAVE_QUICK_EXIT
#undef _GLIBCXX_HAVE_TIMESPEC_GET
#undef _GLIBCXX_USE_TMPNAM
#undef _GLIBCXX_USE_WCHAR_T
