// cerrojo.h - a lock and a signal that own no handles, so that counting a test's handles is not disturbed by
// them: std::mutex makes kernel objects on contention in the MinGW run-time.
#ifndef COMUN_CERROJO_H
#define COMUN_CERROJO_H

#include <cstdint>
#include <mutex>

#include "sistema.h"

class cerrojo {
public:
    void lock() { AcquireSRWLockExclusive(&m_srw); }
    void unlock() { ReleaseSRWLockExclusive(&m_srw); }

    // Gives the lock up, waits for `aviso` until the tick `limite`, takes it again. False once the tick is
    // past.
    bool espera_aviso(CONDITION_VARIABLE *aviso, uint64_t limite)
    {
        uint64_t ahora = GetTickCount64();
        if (ahora >= limite)
            return false;
        SleepConditionVariableSRW(aviso, &m_srw, static_cast<DWORD>(limite - ahora), 0);
        return true;
    }

private:
    SRWLOCK m_srw = SRWLOCK_INIT;
};

#endif
