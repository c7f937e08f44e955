// lugar.h - the line of the test that called a helper, so that a failure is shown where it matters.
#ifndef COMUN_LUGAR_H
#define COMUN_LUGAR_H

struct lugar {
    const char *fichero;
    int linea;

    // As a default argument it gives the place of the outermost call.
    static constexpr lugar aqui(const char *fichero = __builtin_FILE(), int linea = __builtin_LINE())
    {
        return {fichero, linea};
    }
};

#endif
