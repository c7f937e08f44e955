// hilo.h - a thread of a test, whose end is waited for with a bound. It owns one handle, gone with it.
#ifndef COMUN_HILO_H
#define COMUN_HILO_H

#include <cstdint>
#include <functional>
#include <memory>

#include <gtest/gtest.h>

#include "sistema.h"

class hilo {
public:
    explicit hilo(std::function<void()> trabajo)
    {
        auto copia = std::make_unique<std::function<void()>>(std::move(trabajo));
        m_hilo = CreateThread(nullptr, 0, hace, copia.release(), 0, nullptr);
    }
    ~hilo()
    {
        EXPECT_TRUE(acaba(20000)) << "a thread of the test still runs";
        CloseHandle(m_hilo);
    }
    hilo(const hilo &) = delete;
    hilo &operator=(const hilo &) = delete;

    bool acaba(uint32_t ms) const { return WaitForSingleObject(m_hilo, ms) == WAIT_OBJECT_0; }

private:
    static DWORD WINAPI hace(void *trabajo)
    {
        std::unique_ptr<std::function<void()>> mio(static_cast<std::function<void()> *>(trabajo));
        (*mio)();
        return 0;
    }

    HANDLE m_hilo;
};

#endif
