// lista_ajena.h - another process's list and status bar, read back from outside. Texts are UTF-8.
//
// What these controls answer goes through a pointer that the system does not carry over: the record and the text's room
// lie in the other process's memory. Every message has a bound. One that is not answered, as by a window that is gone,
// ends the test: what would come behind it makes no sense.
#ifndef HERRAMIENTAS_LISTA_AJENA_H
#define HERRAMIENTAS_LISTA_AJENA_H

#include <cstdint>
#include <string>
#include <vector>

#include "comun/lugar.h"
#include "comun/sistema.h"

[[noreturn]] void se_acabo(const std::string &texto, lugar donde); // throws: the test fails at once

// A message that is answered within 15 s; else the test ends.
LRESULT manda(HWND hwnd, UINT mensaje, WPARAM wparam = 0, LPARAM lparam = 0, lugar donde = lugar::aqui());

// Room in the process of a window, for a record of up to 512 bytes and a text behind it.
class memoria_ajena {
public:
    explicit memoria_ajena(HWND hwnd);
    ~memoria_ajena();
    memoria_ajena(const memoria_ajena &) = delete;
    memoria_ajena &operator=(const memoria_ajena &) = delete;

    enum { TAM_REGISTRO = 512, MAX_TEXTO = 4096 };
    void *registro() const { return m_sitio; }
    wchar_t *texto() const { return reinterpret_cast<wchar_t *>(static_cast<char *>(m_sitio) + TAM_REGISTRO); }
    void pon(const void *registro, size_t num) const;
    std::string lee_texto(size_t num_caracteres) const;

private:
    HANDLE m_proceso = nullptr;
    void *m_sitio = nullptr;
};

class lista_ajena {
public:
    explicit lista_ajena(HWND lista) : m_lista(lista), m_memoria(lista) {}

    HWND hwnd() const { return m_lista; }
    int num_filas() const;
    int num_columnas() const;
    std::vector<std::string> titulos() const;
    std::string celda(int fila, int columna) const;
    std::vector<std::string> fila(int fila) const;
    std::vector<std::string> columna(int columna) const; // of all rows that there were at the call
    std::vector<std::vector<std::string>> filas() const;
    int busca(int columna, const std::string &texto) const; // the first such row; -1: none
    int columna_de(const std::string &titulo) const;        // -1: none

    std::vector<int> anchos() const;
    void pon_ancho(int columna, int pixeles) const;
    int primera_elegida() const; // -1: none
    int con_foco() const;
    int primera_a_la_vista() const;
    int num_a_la_vista() const;

private:
    HWND m_lista;
    memoria_ajena m_memoria;
};

std::vector<std::string> partes_de_barra(HWND barra); // a status bar's texts

#endif
