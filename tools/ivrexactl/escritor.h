// escritor.h - text written to a file or to the standard output by a thread of its own: who gathers it does not wait
// for a console that somebody holds, or for a slow disk.
#ifndef IVREXACTL_ESCRITOR_H
#define IVREXACTL_ESCRITOR_H

#include <atomic>
#include <condition_variable>
#include <cstdio>
#include <mutex>
#include <string>
#include <thread>

namespace ivrexactl {

class escritor {
public:
    explicit escritor(FILE *fichero); // the caller's, and open as long as we live
    ~escritor();                      // ends the process where the thread cannot be ended; see acaba
    escritor(const escritor &) = delete;
    escritor &operator=(const escritor &) = delete;

    void pon(const std::string &texto); // waits only where very much has not been written yet, and nobody asks to end

    // Writes what is left, as long as it takes. Once the end was asked for, and nothing has been taken for 3 s, it
    // gives up: a reader that stands still keeps our thread inside. False: not all could be written; where it gave up,
    // the process ends with that status within 2 s, also where it is held up in what it still says.
    bool acaba();
    bool roto() const { return m_roto; } // something could not be written; the rest is not tried

private:
    void escribe();
    bool escribe(const std::string &texto);
    bool espera_al_hilo();
    FILE *m_fichero;
    std::mutex m_candado;
    std::condition_variable m_cambio;
    std::string m_texto; // not written yet
    bool m_fin = false, m_acabado = false;
    bool m_parado = false; // the thread stands in a write, and was given up
    uint64_t m_num_trozos = 0;
    std::atomic<bool> m_roto{false};
    std::thread m_hilo;
};

} // namespace ivrexactl

#endif
