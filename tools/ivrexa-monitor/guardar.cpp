#include "guardar.h"

#include <algorithm>
#include <cstring>
#include <vector>

#include <commdlg.h>

#include "recursos.h"

namespace monitor {

static const int MAX_NOMBRES_APARTE = 20;

static std::wstring texto_de_error(DWORD error)
{
    wchar_t texto[512] = L"";
    DWORD num = FormatMessageW(FORMAT_MESSAGE_FROM_SYSTEM | FORMAT_MESSAGE_IGNORE_INSERTS, nullptr, error, 0, texto,
                               ARRAYSIZE(texto), nullptr);
    std::wstring dicho(texto, num);
    while (!dicho.empty() && (dicho.back() == L'\n' || dicho.back() == L'\r'))
        dicho.pop_back();
    return dicho.empty() ? L"Error " + std::to_wstring(error) : dicho;
}

// ---- The file

static bool escribe_todo(HANDLE fichero, const std::string &texto)
{
    const size_t TROZO = 1u << 24;
    for (size_t hechos = 0; hechos < texto.size();) {
        DWORD escritos = 0;
        DWORD num = static_cast<DWORD>(std::min(TROZO, texto.size() - hechos));
        if (!WriteFile(fichero, texto.data() + hechos, num, &escritos, nullptr))
            return false;
        hechos += escritos;
    }
    return FlushFileBuffers(fichero) != FALSE;
}

// A new file beside that one: a name that somebody has is left alone.
static HANDLE crea_aparte(const std::wstring &ruta, std::wstring *aparte)
{
    HANDLE fichero = INVALID_HANDLE_VALUE;
    for (int n = 0; n < MAX_NOMBRES_APARTE; n++) {
        *aparte =
            ruta + L"." + std::to_wstring(GetCurrentProcessId()) + (n > 0 ? L"-" + std::to_wstring(n) : L"") + L".tmp";
        fichero = CreateFileW(aparte->c_str(), GENERIC_WRITE, 0, nullptr, CREATE_NEW, FILE_ATTRIBUTE_NORMAL, nullptr);
        if (fichero != INVALID_HANDLE_VALUE || GetLastError() != ERROR_FILE_EXISTS)
            break;
    }
    return fichero;
}

bool escribe_fichero(const std::wstring &ruta, const std::string &texto, std::wstring *fallo)
{
    std::wstring aparte;
    HANDLE fichero = crea_aparte(ruta, &aparte);
    bool creado = fichero != INVALID_HANDLE_VALUE, bien = creado && escribe_todo(fichero, texto);
    DWORD error = bien ? 0 : GetLastError();
    if (creado)
        CloseHandle(fichero);
    if (bien && !MoveFileExW(aparte.c_str(), ruta.c_str(), MOVEFILE_REPLACE_EXISTING))
        error = GetLastError();
    if (error == 0)
        return true;
    *fallo = texto_de_error(error);
    if (creado)
        DeleteFileW(aparte.c_str());
    return false;
}

// ---- The question

static std::wstring nombre_propuesto(formato como)
{
    SYSTEMTIME t;
    wchar_t nombre[60];
    GetLocalTime(&t);
    wsprintfW(nombre, L"ivrexa-%04u%02u%02u-%02u%02u%02u%s", t.wYear, t.wMonth, t.wDay, t.wHour, t.wMinute, t.wSecond,
              como == formato::csv ? L".csv" : L".jsonl");
    return nombre;
}

static void di_error(HWND hwnd, const std::wstring &texto)
{
    MessageBoxW(hwnd, texto.c_str(), monitor_TITULO, MB_OK | MB_ICONERROR);
}

static std::wstring que_hay_en(const std::wstring &ruta)
{
    bool hay = GetFileAttributesW(ruta.c_str()) != INVALID_FILE_ATTRIBUTES;
    return hay ? L"What was there before is still there." : L"Nothing is there.";
}

static std::optional<std::wstring> pregunta_donde(HWND hwnd, formato como)
{
    std::vector<wchar_t> ruta(32768);
    std::wstring nombre = nombre_propuesto(como);
    std::copy(nombre.begin(), nombre.end(), ruta.begin());
    OPENFILENAMEW o = {};
    o.lStructSize = sizeof o;
    o.hwndOwner = hwnd;
    o.lpstrTitle = como == formato::csv ? L"Save as CSV" : L"Save as JSON lines";
    o.lpstrFilter = como == formato::csv ? L"CSV (*.csv)\0*.csv\0All files\0*.*\0"
                                         : L"JSON lines (*.jsonl)\0*.jsonl\0All files\0*.*\0";
    o.lpstrDefExt = como == formato::csv ? L"csv" : L"jsonl";
    o.lpstrFile = ruta.data();
    o.nMaxFile = static_cast<DWORD>(ruta.size());
    o.Flags = OFN_EXPLORER | OFN_OVERWRITEPROMPT | OFN_PATHMUSTEXIST | OFN_HIDEREADONLY | OFN_NOCHANGEDIR;
    if (GetSaveFileNameW(&o))
        return std::wstring(ruta.data());
    if (DWORD error = CommDlgExtendedError()) // 0: the user does not want to
        di_error(hwnd, L"The question for the file's name could not be shown: error " + std::to_wstring(error) + L".");
    return std::nullopt;
}

void pregunta_y_guarda(HWND hwnd, formato como, const historia &h, const contenidos &c)
{
    std::optional<std::wstring> ruta = pregunta_donde(hwnd, como);
    if (!ruta)
        return;
    HCURSOR antes = SetCursor(LoadCursorW(nullptr, IDC_WAIT));
    std::wstring fallo;
    bool bien = escribe_fichero(*ruta, como == formato::csv ? como_csv(h) : como_json_lineas(h, c), &fallo);
    SetCursor(antes);
    if (!bien)
        di_error(hwnd, *ruta + L"\n\ncould not be written. " + que_hay_en(*ruta) + L"\n\n" + fallo);
}

// ---- The clipboard

static HGLOBAL copia_en_memoria(const std::wstring &texto)
{
    size_t tam = (texto.size() + 1) * sizeof(wchar_t);
    HGLOBAL memoria = GlobalAlloc(GMEM_MOVEABLE, tam);
    void *sitio = memoria != nullptr ? GlobalLock(memoria) : nullptr;
    if (sitio == nullptr)
        return nullptr;
    memcpy(sitio, texto.c_str(), tam);
    GlobalUnlock(memoria);
    return memoria;
}

// Programs that keep a history of the clipboard open it whenever it changes, each for a moment.
static bool abre_portapapeles(HWND hwnd)
{
    const int PASO_MS = 20, MAX_PASOS = 50;
    for (int i = 0; i < MAX_PASOS; i++) {
        if (OpenClipboard(hwnd))
            return true;
        Sleep(PASO_MS);
    }
    return false;
}

bool pon_en_portapapeles(HWND hwnd, const std::wstring &texto)
{
    if (!abre_portapapeles(hwnd))
        return false;
    EmptyClipboard();
    HGLOBAL memoria = copia_en_memoria(texto);
    bool bien = memoria != nullptr && SetClipboardData(CF_UNICODETEXT, memoria) != nullptr;
    if (!bien && memoria != nullptr)
        GlobalFree(memoria);
    CloseClipboard();
    return bien;
}

} // namespace monitor
