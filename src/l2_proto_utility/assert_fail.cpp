#undef NDEBUG // the header hides __assert_fail from builds without assertions; ours always stay
#include <cassert>
#include <cstdio>
#include <cstdlib>

#include "rstp/stp_out.h"

void STP_OUT_assert_fail(const char *text, const char *source, unsigned line, const char *function)
{
#if defined(__GLIBC__) && !defined(__UCLIBC__)
    __assert_fail(text, source, line, function);
#else
    fprintf(stderr, "%s:%u: %s: Assertion `%s' failed.\n", source, line, function, text);
    abort();
#endif
}
