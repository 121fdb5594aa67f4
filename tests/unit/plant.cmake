# Copies SOURCE to COPY with one thing in it otherwise: FROM, which must be there once, becomes TO.
file(READ ${SOURCE} text)
string(FIND "${text}" "${FROM}" first)
string(FIND "${text}" "${FROM}" last REVERSE)
if(first EQUAL -1 OR NOT first EQUAL last)
    message(FATAL_ERROR "${SOURCE} does not have this once: ${FROM}")
endif()
string(REPLACE "${FROM}" "${TO}" text "${text}")
file(WRITE ${COPY} "${text}")
