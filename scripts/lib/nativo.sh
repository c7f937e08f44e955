# nativo.sh - what scripts/test and scripts/fuzz share: the native build, with the fuzzers. To be sourced
# after entorno.sh.

CONSTRUCCION_NATIVA=${IVREXA_CONSTRUCCION_NATIVA:-$RAIZ/build/nativo}

# As REQUISITOS. The sanitizers and libFuzzer are of the compiler's own version.
REQUISITOS_NATIVOS='
clang++                                                     clang
llvm-symbolizer                                             llvm
cmake                                                       cmake
ninja                                                       ninja-build
flock                                                       util-linux
setpriv                                                     util-linux
setarch                                                     util-linux
/usr/include/c++/12/vector                                  libstdc++-12-dev
/usr/lib/llvm-14/lib/clang/14.0.6/lib/linux/libclang_rt.fuzzer-x86_64.a  libclang-rt-14-dev
'

configura_nativa()
{
    configura "$RAIZ/tests/nativo" nativo "$CONSTRUCCION_NATIVA"
}
