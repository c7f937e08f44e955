#include "lista_ajena.h"

#include <stdexcept>

#include <gtest/gtest.h>

#include <commctrl.h>

#include "comun/lineas.h"
#include "comun/papel.h"

void se_acabo(const std::string &texto, lugar donde)
{
    throw std::runtime_error(std::string(donde.fichero) + ":" + std::to_string(donde.linea) + ": " + texto);
}

LRESULT manda(HWND hwnd, UINT mensaje, WPARAM wparam, LPARAM lparam, lugar donde)
{
    DWORD_PTR respuesta = 0;
    if (SendMessageTimeoutW(hwnd, mensaje, wparam, lparam, SMTO_NORMAL, 15000, &respuesta) == 0)
        se_acabo("message " + std::to_string(mensaje) + " is not answered: " + std::to_string(GetLastError()), donde);
    return static_cast<LRESULT>(respuesta);
}

// ---- Memory of the other process

memoria_ajena::memoria_ajena(HWND hwnd)
{
    DWORD pid = 0;
    GetWindowThreadProcessId(hwnd, &pid);
    m_proceso = OpenProcess(PROCESS_VM_OPERATION | PROCESS_VM_READ | PROCESS_VM_WRITE, FALSE, pid);
    if (m_proceso != nullptr)
        m_sitio = VirtualAllocEx(m_proceso, nullptr, TAM_REGISTRO + MAX_TEXTO * sizeof(wchar_t),
                                 MEM_COMMIT | MEM_RESERVE, PAGE_READWRITE);
    if (m_sitio != nullptr)
        return;
    if (m_proceso != nullptr)
        CloseHandle(m_proceso);
    se_acabo("no memory in process " + std::to_string(pid), lugar::aqui());
}

memoria_ajena::~memoria_ajena()
{
    VirtualFreeEx(m_proceso, m_sitio, 0, MEM_RELEASE);
    CloseHandle(m_proceso);
}

void memoria_ajena::pon(const void *registro, size_t num) const
{
    EXPECT_TRUE(WriteProcessMemory(m_proceso, m_sitio, registro, num, nullptr));
}

std::string memoria_ajena::lee_texto(size_t num_caracteres) const
{
    std::wstring texto(num_caracteres, L'\0');
    if (num_caracteres == 0)
        return "";
    EXPECT_TRUE(ReadProcessMemory(m_proceso, this->texto(), &texto[0], num_caracteres * sizeof(wchar_t), nullptr));
    return a_utf8(texto);
}

// ---- List

int lista_ajena::num_filas() const
{
    return static_cast<int>(manda(m_lista, LVM_GETITEMCOUNT));
}

static HWND cabecera_de(HWND lista)
{
    return reinterpret_cast<HWND>(manda(lista, LVM_GETHEADER));
}

int lista_ajena::num_columnas() const
{
    return static_cast<int>(manda(cabecera_de(m_lista), HDM_GETITEMCOUNT));
}

std::vector<std::string> lista_ajena::titulos() const
{
    std::vector<std::string> titulos;
    for (int i = 0; i < num_columnas(); i++) {
        LVCOLUMNW c = {};
        c.mask = LVCF_TEXT;
        c.pszText = m_memoria.texto();
        c.cchTextMax = 200;
        m_memoria.pon(&c, sizeof c);
        manda(m_lista, LVM_GETCOLUMNW, static_cast<WPARAM>(i), reinterpret_cast<LPARAM>(m_memoria.registro()));
        std::string texto = m_memoria.lee_texto(200);
        titulos.push_back(texto.substr(0, texto.find('\0')));
    }
    return titulos;
}

std::string lista_ajena::celda(int fila, int columna) const
{
    LVITEMW celda = {};
    celda.iSubItem = columna;
    celda.pszText = m_memoria.texto();
    celda.cchTextMax = memoria_ajena::MAX_TEXTO;
    m_memoria.pon(&celda, sizeof celda);
    LRESULT largo =
        manda(m_lista, LVM_GETITEMTEXTW, static_cast<WPARAM>(fila), reinterpret_cast<LPARAM>(m_memoria.registro()));
    return m_memoria.lee_texto(static_cast<size_t>(largo));
}

std::vector<std::string> lista_ajena::fila(int fila) const
{
    std::vector<std::string> celdas;
    for (int i = 0, num = num_columnas(); i < num; i++)
        celdas.push_back(celda(fila, i));
    return celdas;
}

std::vector<std::string> lista_ajena::columna(int columna) const
{
    std::vector<std::string> celdas;
    for (int i = 0, num = num_filas(); i < num; i++)
        celdas.push_back(celda(i, columna));
    return celdas;
}

std::vector<std::vector<std::string>> lista_ajena::filas() const
{
    std::vector<std::vector<std::string>> todas;
    for (int i = 0, num = num_filas(); i < num; i++)
        todas.push_back(fila(i));
    return todas;
}

int lista_ajena::busca(int columna, const std::string &texto) const
{
    for (int i = 0, num = num_filas(); i < num; i++)
        if (celda(i, columna) == texto)
            return i;
    return -1;
}

int lista_ajena::columna_de(const std::string &titulo) const
{
    std::vector<std::string> todos = titulos();
    for (size_t i = 0; i < todos.size(); i++)
        if (todos[i] == titulo)
            return static_cast<int>(i);
    return -1;
}

std::vector<int> lista_ajena::anchos() const
{
    std::vector<int> anchos;
    for (int i = 0; i < num_columnas(); i++)
        anchos.push_back(static_cast<int>(manda(m_lista, LVM_GETCOLUMNWIDTH, static_cast<WPARAM>(i))));
    return anchos;
}

void lista_ajena::pon_ancho(int columna, int pixeles) const
{
    EXPECT_NE(manda(m_lista, LVM_SETCOLUMNWIDTH, static_cast<WPARAM>(columna), pixeles), 0);
}

int lista_ajena::primera_elegida() const
{
    return static_cast<int>(manda(m_lista, LVM_GETNEXTITEM, static_cast<WPARAM>(-1), LVNI_SELECTED));
}

int lista_ajena::con_foco() const
{
    return static_cast<int>(manda(m_lista, LVM_GETNEXTITEM, static_cast<WPARAM>(-1), LVNI_FOCUSED));
}

int lista_ajena::primera_a_la_vista() const
{
    return static_cast<int>(manda(m_lista, LVM_GETTOPINDEX));
}

int lista_ajena::num_a_la_vista() const
{
    return static_cast<int>(manda(m_lista, LVM_GETCOUNTPERPAGE));
}

// ---- Status bar

std::vector<std::string> partes_de_barra(HWND barra)
{
    std::vector<std::string> partes;
    memoria_ajena memoria(barra);
    LRESULT num = manda(barra, SB_GETPARTS);
    for (LRESULT i = 0; i < num; i++) {
        LRESULT largo = manda(barra, SB_GETTEXTW, static_cast<WPARAM>(i), reinterpret_cast<LPARAM>(memoria.texto()));
        partes.push_back(memoria.lee_texto(LOWORD(largo)));
    }
    return partes;
}
