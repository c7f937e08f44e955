#include "guion.h"

namespace banco {

namespace {

// ---- Sizes

// The library's own records and blocks.
const uint32_t TAM_COMDAT = 80, TAM_INDICE = 32, TAM_MUTEX = 40, TAM_BLOQUE = 32, TAM_COMANDO = 32;
const uint32_t TAM_PAGINA = 4096;
const uint32_t TAM_BUFFER_INICIAL = 1024, INCREMENTO = 1024;
const uint32_t MARGEN_COPIA = 4; // zero bytes behind the private copy of a block: a text at its end ends

constexpr uint32_t largo(const char *texto)
{
    return *texto == '\0' ? 0 : 1 + largo(texto + 1);
}

// ---- What a side holds, by the places of its results

struct texto {
    uint16_t sitio;
    uint32_t largo;
};

struct sitios_cerrojo {
    uint16_t mutex, nombre, registro;
};

struct sitios_bloque {
    uint16_t nombre, tipo, registro, mapa, vista;
};

struct sitios_datos {
    uint16_t nombre, buffer, registro, indice;
    sitios_bloque bloque;
    uint32_t offset, tam;
};

class autor {
public:
    explicit autor(const situacion &situacion) : s(situacion) {}

    std::vector<paso> toma_pasos()
    {
        std::vector<paso> todos;
        todos.swap(pasos_);
        return todos;
    }

    uint32_t num_sitios() const { return siguiente_; }

    // What lives from one command to the next has its places for itself.
    sitios_datos datos_de_salida() const
    {
        uint16_t k = sitio_SALIDA;
        auto en = [k](int n) { return static_cast<uint16_t>(k + n); };
        return {en(0), en(1), en(2), en(3), {en(4), en(5), en(6), en(7), en(8)}, 0, 0};
    }

    // ---- Calls

    void llama(llamada que, uint16_t sitio, uint32_t tam = 0, uint8_t nombre = 0, uint16_t sobre = 0)
    {
        pasos_.push_back({que, nombre, sitio, sobre, tam, de_, 0, 0});
    }

    void copia(uint16_t sitio, uint32_t destino, uint16_t sobre, uint32_t origen, uint32_t tam)
    {
        pasos_.push_back({llamada::copia, 0, sitio, sobre, tam, de_, destino, origen});
    }

    void bloquea(uint16_t mutex) { llama(llamada::mutex_espera, mutex); }
    void desbloquea(uint16_t mutex) { llama(llamada::mutex_suelta, mutex); }

    void opera_monton(llamada que, uint16_t sitio, uint32_t tam = 0)
    {
        bloquea(sitio_MONTON);
        llama(que, sitio, tam);
        desbloquea(sitio_MONTON);
    }

    void pide(uint16_t sitio, uint32_t tam) { opera_monton(llamada::heap_alloc, sitio, tam); }
    void libera(uint16_t sitio) { opera_monton(llamada::heap_free, sitio); }

    uint16_t pide(uint32_t tam)
    {
        uint16_t sitio = sitio_nuevo();
        pide(sitio, tam);
        return sitio;
    }

    // ---- Texts and names

    texto duplica(uint32_t largo) { return {pide(largo + 1), largo}; }

    // A new text, and the old one freed.
    void concatena(texto *texto, uint32_t cola)
    {
        uint16_t nuevo = pide(texto->largo + cola + 1);
        libera(texto->sitio);
        *texto = {nuevo, texto->largo + cola};
    }

    texto nombre_MCServ()
    {
        texto nombre = duplica(largo("Ivrexa_MCB"));
        concatena(&nombre, largo("_Serv_"));
        concatena(&nombre, s.servicio);
        return nombre;
    }

    texto nombre_MCCom()
    {
        texto nombre = nombre_MCServ();
        concatena(&nombre, largo("_Com_"));
        texto numero = duplica(s.cifras);
        concatena(&nombre, largo("_comdat"));
        concatena(&nombre, numero.largo);
        libera(numero.sitio);
        return nombre;
    }

    texto nombre_mutex_servicio()
    {
        texto nombre = duplica(largo("Mutex_Ivrexa_"));
        concatena(&nombre, s.servicio);
        return nombre;
    }

    // ---- Mutexes

    sitios_cerrojo mutex_crea(const texto &nombre)
    {
        sitios_cerrojo cerrojo;
        cerrojo.mutex = sitio_nuevo();
        llama(llamada::mutex_crea, cerrojo.mutex, 0, nombre_MUTEX);
        llama(llamada::ultimo_error, 0);
        cerrojo.registro = pide(TAM_MUTEX);
        cerrojo.nombre = duplica(nombre.largo).sitio;
        return cerrojo;
    }

    void mutex_destruye(const sitios_cerrojo &cerrojo)
    {
        llama(llamada::handle_cierra, cerrojo.mutex);
        libera(cerrojo.nombre);
        libera(cerrojo.registro);
    }

    // ---- Shared blocks

    void crea_registro(sitios_bloque *bloque, uint32_t nombre, uint32_t tipo)
    {
        pide(bloque->registro, TAM_BLOQUE);
        pide(bloque->nombre, nombre + 1);
        pide(bloque->tipo, tipo + 1);
    }

    // The channel is there already: the handle that found it stays open, and it is opened once more.
    sitios_bloque shared_crea_MCServ(const texto &nombre)
    {
        sitios_bloque bloque = bloque_nuevo();
        llama(llamada::mapa_crea, sitio_PERDIDO, TAM_CANAL, nombre_CANAL);
        llama(llamada::ultimo_error, 0);
        llama(llamada::mapa_abre, bloque.mapa, 0, nombre_CANAL);
        llama(llamada::vista_monta, bloque.vista, 0, 0, bloque.mapa);
        crea_registro(&bloque, nombre.largo, largo("iv_mcserv_t"));
        return bloque;
    }

    void shared_crea_con_datos(sitios_bloque *bloque, const texto &nombre, uint8_t cual, uint16_t datos, uint32_t tam)
    {
        llama(llamada::mapa_crea, bloque->mapa, tam + TAM_CABECERA, cual);
        llama(llamada::ultimo_error, 0);
        llama(llamada::vista_monta, bloque->vista, 0, 0, bloque->mapa);
        copia(bloque->vista, TAM_CABECERA, datos, 0, tam);
        crea_registro(bloque, nombre.largo, largo("bloqueMC"));
    }

    // One that exists, and nothing else: so it is opened first, and only then found by the handle that stays open.
    void shared_abre_existente(sitios_bloque *bloque, const texto &nombre, uint8_t cual)
    {
        llama(llamada::mapa_abre, bloque->mapa, 0, cual);
        llama(llamada::mapa_crea, sitio_PERDIDO, TAM_CABECERA, cual);
        llama(llamada::vista_monta, bloque->vista, 0, 0, bloque->mapa);
        crea_registro(bloque, nombre.largo, largo("bloqueMC"));
    }

    // A header that states more than the view holds is cut to the view: beyond a page, the view must be asked.
    void shared_copia_local(const sitios_bloque &bloque, uint16_t sitio, uint32_t tam)
    {
        if (tam + TAM_CABECERA > TAM_PAGINA)
            llama(llamada::vista_consulta, 0);
        pide(sitio, tam + MARGEN_COPIA);
        copia(sitio, 0, bloque.vista, TAM_CABECERA, tam);
    }

    void shared_destruye(const sitios_bloque &bloque)
    {
        llama(llamada::vista_desmonta, bloque.vista);
        llama(llamada::handle_cierra, bloque.mapa);
        libera(bloque.nombre);
        libera(bloque.tipo);
        libera(bloque.registro);
    }

    // ---- Registry: without a monitor each is a look under its lock

    void mira_registro()
    {
        bloquea(sitio_REGISTRO);
        desbloquea(sitio_REGISTRO);
    }

    void hay_monitor() { mira_registro(); }
    void anota_actividad() { mira_registro(); }
    void inicia_comando() { mira_registro(); }
    void termina_comando() { mira_registro(); }

    // ---- Command data

    void anyade(sitios_datos *datos, uint32_t tam)
    {
        if (datos->offset + tam > datos->tam) {
            datos->tam = (datos->offset + tam + INCREMENTO) / INCREMENTO * INCREMENTO;
            opera_monton(llamada::heap_realloc, datos->buffer, datos->tam);
        }
        datos->offset += tam;
    }

    void crea_para_grabar(sitios_datos *datos)
    {
        de_ = "new container to write";
        pide(datos->buffer, TAM_BUFFER_INICIAL);
        pide(datos->registro, TAM_COMDAT);
        pide(datos->nombre, s.servicio + 1);
        datos->offset = 0;
        datos->tam = TAM_BUFFER_INICIAL;
        anyade(datos, 4); // the number of values
    }

    void graba_cabecera(sitios_datos *datos, const char *nombre)
    {
        anyade(datos, 1);
        anyade(datos, 1);
        anyade(datos, largo(nombre) + 1);
    }

    void graba_fijo(sitios_datos *datos, const char *nombre, uint32_t tam)
    {
        de_ = "write a number";
        graba_cabecera(datos, nombre);
        anyade(datos, tam);
    }

    // A text with its NUL, or a buffer.
    void graba_con_largo(sitios_datos *datos, const char *nombre, uint32_t tam)
    {
        de_ = "write a text or a buffer";
        graba_cabecera(datos, nombre);
        anyade(datos, 4);
        if (tam > 0)
            anyade(datos, tam);
    }

    void graba_texto(sitios_datos *datos) { graba_con_largo(datos, "text", s.texto + 1); }
    void graba_numero(sitios_datos *datos) { graba_fijo(datos, "number", 4); }
    void graba_real(sitios_datos *datos) { graba_fijo(datos, "real", 8); }
    void graba_buffer(sitios_datos *datos)
    {
        graba_con_largo(datos, "buffer", s.buffer);
        copia(datos->buffer, datos->offset - s.buffer, sitio_ANFITRION, 0, s.buffer);
    }

    void guarda_datos(sitios_datos *datos, uint8_t cual)
    {
        de_ = "store";
        texto canal = nombre_MCServ();
        texto mutex = nombre_mutex_servicio();
        sitios_cerrojo mutex_MCServ = mutex_crea(mutex);
        bloquea(mutex_MCServ.mutex);
        sitios_bloque MCServ = shared_crea_MCServ(canal);
        texto nombre = nombre_MCCom();
        shared_crea_con_datos(&datos->bloque, nombre, cual, datos->buffer, datos->offset);
        libera(nombre.sitio);
        desbloquea(mutex_MCServ.mutex);
        mutex_destruye(mutex_MCServ);
        libera(mutex.sitio);
        libera(canal.sitio);
        anota_actividad();
        shared_destruye(MCServ);
    }

    void lee_datos(sitios_datos *datos, uint8_t cual, uint32_t tam, uint32_t num_valores)
    {
        de_ = "open to read";
        hay_monitor();
        texto nombre = nombre_MCCom();
        shared_abre_existente(&datos->bloque, nombre, cual);
        libera(nombre.sitio);
        shared_copia_local(datos->bloque, datos->buffer, tam);
        pide(datos->registro, TAM_COMDAT);
        pide(datos->nombre, s.servicio + 1);
        pide(datos->indice, num_valores * TAM_INDICE);
    }

    void destruye(const sitios_datos &datos, bool leidos)
    {
        de_ = "destroy a container";
        libera(datos.nombre);
        if (leidos)
            libera(datos.indice);
        libera(datos.buffer);
        shared_destruye(datos.bloque);
        libera(datos.registro);
    }

    // ---- A command

    void ejecuta_comando()
    {
        de_ = "execute the command";
        hay_monitor();
        texto canal = nombre_MCServ();
        llama(llamada::mapa_abre, sitio_PERDIDO, 0, nombre_CANAL); // is there one? The probe stays open.
        sitios_bloque MCServ = shared_crea_MCServ(canal);
        texto mutex = nombre_mutex_servicio();
        sitios_cerrojo mutex_MCServ = mutex_crea(mutex);
        libera(mutex.sitio);
        inicia_comando();
        uint16_t resultados[3];
        intercambia(mutex_MCServ.mutex, resultados);
        termina_comando();
        libera(canal.sitio);
        mutex_destruye(mutex_MCServ);
        shared_destruye(MCServ);
        hay_monitor();
        for (uint16_t resultado : resultados)
            libera(resultado);
    }

    // Claim, message, receipt, release. The three texts of the result are empty.
    void intercambia(uint16_t mutex, uint16_t *resultados)
    {
        bloquea(mutex);
        desbloquea(mutex);
        llama(llamada::ventana_activa, 0);
        llama(llamada::mensaje, 0);
        bloquea(mutex);
        for (int i = 0; i < 3; i++)
            resultados[i] = pide(sizeof(uint16_t));
        desbloquea(mutex);
        bloquea(mutex);
        desbloquea(mutex);
    }

    sitios_datos datos_nuevos()
    {
        sitios_datos datos = {};
        for (uint16_t *sitio : {&datos.nombre, &datos.buffer, &datos.registro, &datos.indice})
            *sitio = sitio_nuevo();
        datos.bloque = bloque_nuevo();
        return datos;
    }

    void di(const char *operacion) { de_ = operacion; }

private:
    uint16_t sitio_nuevo() { return siguiente_++; }

    sitios_bloque bloque_nuevo()
    {
        sitios_bloque bloque = {};
        for (uint16_t *sitio : {&bloque.nombre, &bloque.tipo, &bloque.registro, &bloque.mapa, &bloque.vista})
            *sitio = sitio_nuevo();
        return bloque;
    }

    const situacion s;
    std::vector<paso> pasos_;
    uint16_t siguiente_ = num_SITIOS_FIJOS;
    const char *de_ = "";
};

void escribe_entrada(autor *a, sitios_datos *entrada)
{
    a->crea_para_grabar(entrada);
    a->graba_texto(entrada);
    a->graba_numero(entrada);
    a->graba_real(entrada);
    a->graba_buffer(entrada);
}

void escribe_salida(autor *a, sitios_datos *salida)
{
    a->crea_para_grabar(salida);
    a->graba_numero(salida);
    a->graba_texto(salida);
    a->graba_buffer(salida);
}

// How many bytes the other side's container has.
uint32_t tam_de(void (*escribe)(autor *, sitios_datos *), const situacion &situacion)
{
    autor otro(situacion);
    sitios_datos datos = otro.datos_nuevos();
    escribe(&otro, &datos);
    return datos.offset;
}

} // namespace

guion guion_cliente(const situacion &situacion)
{
    autor a(situacion);
    guion guion;
    sitios_datos salida = a.datos_de_salida();
    a.destruye(salida, true);
    guion.suelta_anterior = a.toma_pasos();

    sitios_datos entrada = a.datos_nuevos();
    escribe_entrada(&a, &entrada);
    a.guarda_datos(&entrada, nombre_ENTRADA);
    a.ejecuta_comando();
    a.destruye(entrada, false);
    a.lee_datos(&salida, nombre_SALIDA, tam_de(escribe_salida, situacion), 3);
    guion.comando = a.toma_pasos();
    guion.num_sitios = a.num_sitios();
    return guion;
}

// The service's mutex is taken before the output of the command before is destroyed, and given back before the command
// function runs.
guion guion_servidor(const situacion &situacion)
{
    autor a(situacion);
    guion guion;
    a.di("receive the command");
    a.bloquea(sitio_MCSERV);
    guion.principio = a.toma_pasos();
    sitios_datos salida = a.datos_de_salida();
    a.destruye(salida, false);
    guion.suelta_anterior = a.toma_pasos();

    sitios_datos entrada = a.datos_nuevos();
    a.lee_datos(&entrada, nombre_ENTRADA, tam_de(escribe_entrada, situacion), 4);
    a.di("receive the command");
    uint16_t contexto = a.pide(TAM_COMANDO);
    a.desbloquea(sitio_MCSERV);
    escribe_salida(&a, &salida);
    a.guarda_datos(&salida, nombre_SALIDA);
    a.destruye(entrada, true);
    a.di("end the command");
    a.libera(contexto);
    guion.comando = a.toma_pasos();
    guion.num_sitios = a.num_sitios();
    return guion;
}

bool la_nombra_un_paso(llamada que)
{
    return que != llamada::vista_consulta && que != llamada::copia;
}

} // namespace banco
