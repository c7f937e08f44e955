# entorno.sh - what scripts/test, scripts/demo, scripts/fuzz and scripts/wine share. To be sourced.
#
# A SESSION is what one run holds: a folder in /tmp and, in the cache folder, some Wine prefixes that nobody
# else uses meanwhile. Two prefixes are two Windows desktops that see nothing of each other, so what runs in
# one cannot disturb what runs in another. Each has an X server and a wineserver of its own, so that not even
# the input focus is shared. All of it ends with the session, however the run ends.
#
#   $CACHE/<version of Wine>/plantilla       a fresh prefix; the others are copies with its DLLs hard-linked
#   $CACHE/<version of Wine>/prefijo-<n>     one of the pool; its session has prefijo-<n>.cerrojo locked
#   $IVREXA_SESION/<k>/prefijo               link to the session's k-th prefix
#   $IVREXA_SESION/<k>/pantalla              its X display
#   $IVREXA_SESION/<k>/cerrojo               locked by scripts/wine while a program runs in it
#   $IVREXA_SESION/<k>/sucio                 a program was started in it and has not ended with 0

RAIZ=$(cd "$(dirname "${BASH_SOURCE[0]}")/../.." && pwd)
CONSTRUCCION=${IVREXA_CONSTRUCCION:-$RAIZ/build/mingw}
CACHE=${IVREXA_CACHE:-${XDG_CACHE_HOME:-${HOME:-/var/tmp}/.cache}/ivrexa}

WINE=/usr/lib/wine/wine64
WINESERVER=/usr/lib/wine/wineserver

# What a program starts can outlive it, Wine's desktop for one, and keeps the program's output open. So
# programs write into a pipe of ours, and we write this behind the last that they say: there its reader stops.
FIN_DE_SALIDA='<ivrexa: end of output>'

# Seconds. Each is far beyond what its step takes on a slow machine.
LIMITE_PREFIJO_NUEVO_S=180
LIMITE_ARRANQUE_S=60

# What must be there, and the Debian package that brings it. Commands are looked up, files are named in full. This much the
# library, the examples and a prefix need.
REQUISITOS='
clang                                                       clang
clang++                                                     clang
ld.lld                                                      lld
llvm-ar                                                     llvm
llvm-readobj                                                llvm
llvm-objdump                                                llvm
llvm-dlltool                                                llvm
/usr/bin/python3                                            python3
cmake                                                       cmake
ninja                                                       ninja-build
x86_64-w64-mingw32-g++-posix                                g++-mingw-w64-x86-64-posix
x86_64-w64-mingw32-gcc                                      gcc-mingw-w64-x86-64-posix
x86_64-w64-mingw32-windres                                  binutils-mingw-w64-x86-64
/usr/x86_64-w64-mingw32/include/windows.h                   mingw-w64-x86-64-dev
/usr/lib/wine/wine64                                        wine64
/usr/lib/wine/wineserver                                    libwine
/usr/lib/x86_64-linux-gnu/wine/x86_64-windows/ntdll.dll     libwine
Xvfb                                                        xvfb
flock                                                       util-linux
setpriv                                                     util-linux
setarch                                                     util-linux
'

# And this the tools, the bench and the tests, those of the bindings and of the packages among them.
REQUISITOS_DE_TODO='
/usr/src/googletest/CMakeLists.txt                          googletest
/usr/include/msgpack.hpp                                    libmsgpack-cxx-dev
/usr/include/boost/version.hpp                              libboost-dev
/usr/include/flatbuffers/flexbuffers.h                      libflatbuffers-dev
/usr/include/nlohmann/json.hpp                              nlohmann-json3-dev
/usr/include/CLI/CLI.hpp                                    libcli11-dev
llvm-nm                                                     llvm
llvm-rc                                                     llvm
x86_64-w64-mingw32-gcc-posix                                gcc-mingw-w64-x86-64-posix
pkg-config                                                  pkgconf
doxygen                                                     doxygen
mcs                                                         mono-mcs
mono                                                        mono-runtime
go                                                          golang-go
gofmt                                                       golang-go
/usr/bin/rustc                                              rustc
/usr/bin/rustfmt                                            rustfmt
/usr/lib/rustlib/x86_64-pc-windows-gnu/lib                  libstd-rust-dev-windows
'

cerrojos=()         # descriptors of the locks that this run holds
paso_en_curso=      # session (setsid) of the step that it waits for
num_prefijos=0      # how many prefixes this run holds
prefijos=()         # their folders, and that of the template once this run makes it
sesion_propia=      # the session's folder, when this run has opened it
como_root=()        # what runs a command as root; nothing when we are root or need not be
sin_azar=()         # what runs a command with its memory in fixed places

# ---- Progress ----------------------------------------------------------------------------------------------

paso()
{
    printf '[%4d s] %s\n' "$SECONDS" "$*"
}

muere()
{
    printf 'ivrexa: %s\n' "$*" >&2
    exit 2
}

# ---- Processes ---------------------------------------------------------------------------------------------

# Linux begins a program's heap somewhere in the gigabyte behind the program, and for Wine's loader that is where Wine
# maps data at fixed addresses. Where the two meet, one start in some thousands, the Windows program ends at once with
# code 1 and not a word, or crashes in a DLL of Wine's that lacks its data. Without that randomness they never meet.
# A container may forbid to switch it off; then it stays.
fija_direcciones()
{
    if [[ $(<"/proc/$BASHPID/personality") != *4???? ]] && setarch -R true 2>/dev/null; then
        sin_azar=(setarch -R)
    fi
}

fija_direcciones

# Replaces this subshell by a command that inherits none of the run's locks.
sustituye()
{
    local descriptor
    for descriptor in "${cerrojos[@]}"; do
        exec {descriptor}>&-
    done
    exec "${sin_azar[@]}" "$@"
}

# The same, in a session of its own (setsid), so that a Ctrl-C reaches this run alone, which then ends the
# command. If the run is killed outright, the command gets the signal.
sustituye_aparte()
{
    local senyal=$1
    shift
    sustituye setsid setpriv --pdeathsig "$senyal" "$@"
}

# Runs one step and waits for it. An interruption is seen at once, and ends all that the step has started.
lanza()
{
    local codigo=0
    (sustituye_aparte TERM "$@") </dev/null &
    paso_en_curso=$!
    wait "$paso_en_curso" || codigo=$?
    paso_en_curso=
    return "$codigo"
}

# procesos padre ID, procesos sesion ID: ids of the processes with that parent, or of that session (setsid).
# Ended ones that nobody has waited for do not count, nor does the subshell that asks.
procesos()
{
    local -A lugar=([padre]=1 [sesion]=3)
    local fichero linea campos id
    for fichero in /proc/[0-9]*/stat; do
        read -r linea 2>/dev/null <"$fichero" || continue
        read -ra campos <<<"${linea##*) }"              # state, parent, group, session
        id=${linea%% *}
        if [[ ${campos[lugar[$1]]:-} == "$2" && ${campos[0]} != Z && $id != "$BASHPID" ]]; then
            echo "$id"
        fi
    done
}

# Asks such processes to end, and after 5 s insists.
termina()
{
    local senyal=TERM vuelta ids
    for vuelta in {0..60}; do
        ids=$(procesos "$@")
        [[ -n $ids ]] || break
        ((vuelta < 50)) || senyal=KILL
        # shellcheck disable=SC2086  # a list of numbers
        "${como_root[@]}" kill -"$senyal" $ids 2>/dev/null || true
        sleep 0.1
    done
}

# Takes the lock of a file for the rest of the run, or fails at once when another run has it.
toma_cerrojo()
{
    local descriptor
    exec {descriptor}>>"$1"
    if ! flock -n "$descriptor"; then
        exec {descriptor}>&-
        return 1
    fi
    cerrojos+=("$descriptor")
}

# The same, but says why and waits.
espera_cerrojo()
{
    local descriptor
    if toma_cerrojo "$1"; then
        return
    fi
    paso "$2"
    exec {descriptor}>>"$1"
    lanza flock "$descriptor"           # what it locks is the open file, and that stays open here
    cerrojos+=("$descriptor")
}

# Gives back the lock that was taken last.
suelta_cerrojo()
{
    local descriptor=${cerrojos[-1]}
    unset 'cerrojos[-1]'
    exec {descriptor}>&-
}

# ---- Packages ----------------------------------------------------------------------------------------------

# Sets `faltan` to what is missing and `paquetes` to the packages that bring it.
busca_lo_que_falta()
{
    local cosa paquete
    faltan=()
    paquetes=()
    while read -r cosa paquete; do
        case $cosa in
        '') continue ;;
        /*) [[ ! -e $cosa ]] || continue ;;
        *) ! command -v "$cosa" >/dev/null || continue ;;
        esac
        faltan+=("$cosa")
        [[ " ${paquetes[*]} " == *" $paquete "* ]] || paquetes+=("$paquete")
    done <<<"$REQUISITOS"
}

instala_lo_que_falta()
{
    local apt
    busca_lo_que_falta
    if ((${#faltan[@]} == 0)); then
        return
    fi
    paso "Missing: ${faltan[*]}"
    if ! command -v apt-get >/dev/null; then
        muere "apt-get is not here. Install by hand what brings: ${faltan[*]} (on Debian: ${paquetes[*]})"
    fi
    if ((EUID != 0)); then
        como_root=(sudo -n)
        if ! sudo -n true 2>/dev/null; then
            muere "no root and no sudo without a password. As root: apt-get install ${paquetes[*]}"
        fi
    fi

    mkdir -p "$CACHE"
    espera_cerrojo "$CACHE/apt.cerrojo" "Waiting for another run to install"
    paso "Installing: ${paquetes[*]}"
    apt=("${como_root[@]}" env DEBIAN_FRONTEND=noninteractive apt-get -q -o DPkg::Lock::Timeout=600)
    lanza "${como_root[@]}" dpkg --configure -a || muere "dpkg does not finish what it once began"
    lanza "${apt[@]}" update || muere "apt-get update failed"
    lanza "${apt[@]}" install -y --no-install-recommends "${paquetes[@]}" || muere "apt-get install failed"

    busca_lo_que_falta
    if ((${#faltan[@]} != 0)); then
        muere "still missing after the installation: ${faltan[*]}"
    fi
    suelta_cerrojo
    como_root=()
}

# ---- Build -------------------------------------------------------------------------------------------------

# configura SOURCES PRESET FOLDER [OPTION...]: configures, and keeps the build folder to this run until its end.
configura()
{
    local registro=$3/configuracion.txt
    mkdir -p "$3"
    espera_cerrojo "$3.cerrojo" "Waiting for another run to be done with $3"

    paso "Configuring $3"
    if ! lanza cmake -S "$1" --preset "$2" -B "$3" "${@:4}" >"$registro" 2>&1; then
        cat "$registro" >&2
        muere "cmake could not configure the project"
    fi
}

# compila FOLDER [TARGET...]: builds these targets, or all.
compila()
{
    local carpeta=$1
    shift
    paso "Building"
    lanza env NINJA_STATUS="[%f/%t] " cmake --build "$carpeta" ${1:+--target "$@"} || muere "the build failed"
}

# Configures the whole project, or what REQUISITOS is enough for.
configura_todo()
{
    configura "$RAIZ" mingw "$CONSTRUCCION" -DIVREXA_EJEMPLOS=ON -DIVREXA_PRUEBAS=ON -DIVREXA_HERRAMIENTAS=ON \
        -DIVREXA_BANCO=ON -DIVREXA_INSTALA=ON -DIVREXA_GO=ON -DIVREXA_RUST=ON
}
configura_lo_basico()
{
    configura "$RAIZ" mingw "$CONSTRUCCION" -DIVREXA_EJEMPLOS=ON -DIVREXA_PRUEBAS=OFF -DIVREXA_HERRAMIENTAS=OFF \
        -DIVREXA_BANCO=OFF
}

# Configures the whole project and builds these targets of it, or all.
construye()
{
    configura_todo
    compila "$CONSTRUCCION" "$@"
}

# ---- Wine --------------------------------------------------------------------------------------------------

# Nothing of the caller's own Wine, X or locale reaches the programs. No dialog may wait for a person: not the
# offers to install Mono and Gecko, not the one after a crash.
limpia_entorno()
{
    unset IVREXA_DEBUG XAUTHORITY DISPLAY WAYLAND_DISPLAY WINEPREFIX WINEARCH WINEDLLPATH WINELOADER
    export WINEDEBUG=-all WINEDLLOVERRIDES='mscoree,mshtml,winemenubuilder.exe=' LC_ALL=C.UTF-8
    export WINESERVER
}

# Runs a command in the k-th prefix of the session.
en_prefijo()
{
    local k=$1
    shift
    WINEPREFIX=$(readlink "$IVREXA_SESION/$k/prefijo") DISPLAY=$(<"$IVREXA_SESION/$k/pantalla") "$@"
}

abre_sesion()
{
    limpia_entorno
    sesion_propia=$(mktemp -d "${TMPDIR:-/tmp}/ivrexa.XXXXXX")
    export IVREXA_SESION=$sesion_propia
    ALMACEN=$CACHE/$("$WINE" --version | tr -cs 'A-Za-z0-9.' '-')
    ALMACEN=${ALMACEN%-}
    mkdir -p "$ALMACEN"
}

# Makes the session hold at least this many prefixes, ready to run programs.
abre_prefijos()
{
    local antes=$num_prefijos k
    prepara_plantilla
    while ((num_prefijos < $1)); do
        num_prefijos=$((num_prefijos + 1))
        toma_prefijo_libre "$num_prefijos"
        arranca_pantalla "$num_prefijos"
        arranca_servidor "$num_prefijos"
    done
    calienta $((antes + 1)) "$num_prefijos"
}

# The first program of a prefix starts Wine's services, and the first with a window its desktop, which takes a
# while: done for all prefixes at once. rundll32 makes a window and ends.
calienta()
{
    local k calentadores=()
    for ((k = $1; k <= $2; k++)); do
        (en_prefijo "$k" sustituye_aparte TERM timeout "$LIMITE_ARRANQUE_S" \
            "$WINE" rundll32 user32.dll,GetDesktopWindow) </dev/null >/dev/null 2>&1 &
        calentadores+=($!)
    done
    for k in "${calentadores[@]}"; do
        wait "$k" || muere "Wine does not start"
    done
}

prepara_plantilla()
{
    local plantilla=$ALMACEN/plantilla
    if [[ -e $plantilla/completa ]]; then
        return
    fi
    espera_cerrojo "$ALMACEN/plantilla.cerrojo" "Waiting for another run to make a Wine prefix"
    if [[ ! -e $plantilla/completa ]]; then
        paso "Making a Wine prefix in $ALMACEN (once; 700 MB)"
        toma_prefijo "$plantilla"
        rm -rf "$plantilla"
        crea_plantilla "$plantilla" || muere "wineboot could not make a prefix in $plantilla"
        touch "$plantilla/completa"
    fi
    suelta_cerrojo
}

# Message boxes close at once only if Wine does not expect a window manager (Managed), and a crash must not
# show one (ShowCrashDialog).
crea_plantilla()
{
    local -x WINEPREFIX=$1
    local registro="$IVREXA_SESION/wineboot.txt" escribe=("$WINE" reg add)
    {
        lanza timeout "$LIMITE_PREFIJO_NUEVO_S" "$WINE" wineboot -i &&
            lanza "${escribe[@]}" 'HKCU\Software\Wine\X11 Driver' /v Managed /d N /f &&
            lanza "${escribe[@]}" 'HKCU\Software\Wine\WineDbg' /v ShowCrashDialog /t REG_DWORD /d 0 /f &&
            lanza timeout "$LIMITE_ARRANQUE_S" "$WINESERVER" -w && return
    } >"$registro" 2>&1
    cat "$registro" >&2
    return 1
}

# From now on what runs in this prefix is ours to end. What runs in it already was left by a run that was
# killed.
toma_prefijo()
{
    prefijos+=("$1")
    vacia_prefijo "$1"
}

# Ends the programs of a prefix and its wineserver.
vacia_prefijo()
{
    WINEPREFIX=$1 "$WINESERVER" -k 2>/dev/null || true
}

# Takes a prefix of the pool that no other session has, or makes one more.
toma_prefijo_libre()
{
    local carpeta=$IVREXA_SESION/$1 n=1 prefijo
    until toma_cerrojo "$ALMACEN/prefijo-$n.cerrojo"; do
        n=$((n + 1))
    done
    prefijo=$ALMACEN/prefijo-$n
    toma_prefijo "$prefijo"
    [[ -e $prefijo/completa ]] || copia_plantilla "$prefijo"
    renueva_registro "$prefijo"
    mkdir "$carpeta"
    ln -s "$prefijo" "$carpeta/prefijo"
}

# The DLLs are never written, so hard links do. The registry is written in place: it needs files of its own.
copia_plantilla()
{
    local plantilla=$ALMACEN/plantilla
    rm -rf "$1"
    mkdir "$1"
    cp -al "$plantilla/drive_c" "$1/"
    cp -a "$plantilla/dosdevices" "$plantilla"/*.reg "$plantilla/.update-timestamp" "$1/"
    touch "$1/completa"
}

# Puts back the registry of a prefix that nothing runs in: a program that was killed may have left it changed.
renueva_registro()
{
    cp -a "${1%/*}"/plantilla/*.reg "$1/"
}

# Starts an X server for the k-th prefix on a display that it finds free itself.
arranca_pantalla()
{
    local carpeta=$IVREXA_SESION/$1 numero
    mkfifo "$carpeta/tubo"
    (sustituye_aparte TERM Xvfb -displayfd 3 -screen 0 1280x1024x24 -nolisten tcp -noreset) \
        </dev/null >"$carpeta/xvfb.txt" 2>&1 3>"$carpeta/tubo" &
    if ! read -r -t "$LIMITE_ARRANQUE_S" numero <"$carpeta/tubo"; then
        cat "$carpeta/xvfb.txt" >&2
        muere "Xvfb does not start"
    fi
    echo ":$numero" >"$carpeta/pantalla"
}

# Starts the wineserver of the k-th prefix; it stays when the last program has ended. SIGINT is the signal at
# which it ends its programs too.
arranca_servidor()
{
    (en_prefijo "$1" sustituye_aparte INT "$WINESERVER" -f -p) </dev/null >/dev/null 2>&1 &
}

# Makes a prefix as new for the next program: ends what an earlier one has left running in it, and forgets its settings.
reinicia_prefijo()
{
    local prefijo
    prefijo=$(readlink "$IVREXA_SESION/$1/prefijo")
    vacia_prefijo "$prefijo"
    renueva_registro "$prefijo"
    (en_prefijo "$1" sustituye "$WINESERVER" -p) </dev/null >/dev/null 2>&1
    calienta "$1" "$1"
}

# Ends everything that this run has started. May be called at any moment.
cierra_sesion()
{
    local prefijo vacios=()
    trap '' INT TERM HUP
    set +e
    if [[ -n $paso_en_curso ]]; then
        termina sesion "$paso_en_curso"
    fi
    for prefijo in "${prefijos[@]}"; do
        vacia_prefijo "$prefijo" &
        vacios+=($!)
    done
    wait "${vacios[@]}"
    termina padre $$
    if [[ -n $sesion_propia ]]; then
        rm -rf "$sesion_propia"
    fi
}

# Every way out of a run goes through cierra_sesion, with the exit code that the way out has.
asegura_cierre()
{
    trap cierra_sesion EXIT
    trap 'exit 129' HUP
    trap 'exit 130' INT
    trap 'exit 143' TERM
}
