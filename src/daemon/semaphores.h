/// The two semaphores that serve as mutexes. Where both are needed, `rstp_data_sem` is taken
/// first.
#pragma once

#include <semaphore.h>

extern sem_t rstp_core_sem; ///< the engine and the adaptation layer
extern sem_t rstp_data_sem; ///< the daemon's own shared data

#ifdef LVT_GATHER_STATE
/// Hears of each semaphore that was taken, and of each that is about to be given back; null: nobody does.
extern void (*sem_watch)(const sem_t *sem, bool taken);
#endif

/// Holds a semaphore for the length of a block.
struct sem_guard_t {
    explicit sem_guard_t(sem_t &sem) : held(sem)
    {
        while (sem_wait(&held) != 0) {
        }
        tell(true);
    }
    ~sem_guard_t()
    {
        tell(false);
        sem_post(&held);
    }
    sem_guard_t(const sem_guard_t &) = delete;
    sem_guard_t &operator=(const sem_guard_t &) = delete;

    void tell([[maybe_unused]] bool taken) const
    {
#ifdef LVT_GATHER_STATE
        if (sem_watch)
            sem_watch(&held, taken);
#endif
    }

    sem_t &held;
};
