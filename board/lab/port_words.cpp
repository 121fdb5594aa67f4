#include "board/lab/port_words.h"

#include "tools/status_file.h"

namespace lab {

const char *role_word(int role)
{
    switch (role) {
    case ROLE_DISABLED:
        return "disabled";
    case ROLE_ALTERNATE:
        return "alternate";
    case ROLE_BACKUP:
        return "backup";
    case ROLE_ROOT:
        return "root";
    case ROLE_DESIGNATED:
        return "designated";
    case ROLE_NON_STP:
        return "no STP";
    default:
        return "?";
    }
}

const char *state_word(int state)
{
    switch (state) {
    case HW_DISABLED:
        return "down";
    case HW_DISCARDING:
        return "blocks";
    case HW_LEARNING:
        return "learns";
    case HW_FORWARDING:
        return "forwards";
    case HW_NO_STP:
        return "forwards";
    default:
        return "?";
    }
}

} // namespace lab
