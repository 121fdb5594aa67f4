#include "rstp/times.h"

namespace {

void put_seconds(uint8_t (&field)[2], uint8_t seconds)
{
    field[0] = seconds;
    field[1] = 0;
}

} // namespace

void STP_set_times(const timevalues_t *times, bpdu_t *bpdu)
{
    put_seconds(bpdu->message_age, times->MessageAge);
    put_seconds(bpdu->max_age, times->MaxAge);
    put_seconds(bpdu->hello_time, times->HelloTime);
    put_seconds(bpdu->forward_delay, times->ForwardDelay);
}

void STP_get_times(const bpdu_t *bpdu, timevalues_t *out)
{
    out->MessageAge = bpdu->message_age[0];
    out->MaxAge = bpdu->max_age[0];
    out->HelloTime = bpdu->hello_time[0];
    out->ForwardDelay = bpdu->forward_delay[0];
}

int STP_eq_times(const timevalues_t *a, const timevalues_t *b)
{
    return a->MessageAge == b->MessageAge && a->MaxAge == b->MaxAge && a->ForwardDelay == b->ForwardDelay &&
           a->HelloTime == b->HelloTime;
}
