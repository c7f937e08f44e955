// ctl_uso.cpp - ivrexactl as a whole: its help, and arguments that make no sense.
#include <gtest/gtest.h>

#include "herramienta.h"

static const char *const SUBORDENES[] = {"status", "list", "has", "call", "end", "monitor", "trace", "doctor"};

TEST(ivrexactl, la_ayuda_nombra_cada_suborden)
{
    salida_de s = ejecuta_ctl({"--help"});
    EXPECT_EQ(s.codigo, 0u);
    EXPECT_EQ(s.error, "");
    for (const char *suborden : SUBORDENES)
        EXPECT_NE(s.salida.find("\n  " + std::string(suborden) + " "), std::string::npos) << suborden << "\n"
                                                                                          << s.salida;
}

TEST(ivrexactl, cada_suborden_tiene_su_ayuda)
{
    for (const char *suborden : SUBORDENES) {
        salida_de s = ejecuta_ctl({suborden, "--help"});
        EXPECT_EQ(s.codigo, 0u) << suborden;
        EXPECT_EQ(s.error, "") << suborden;
        EXPECT_NE(s.salida.find("Usage: ivrexactl " + std::string(suborden)), std::string::npos) << s.salida;
    }
}

TEST(ivrexactl, dice_su_version)
{
    salida_de s = ejecuta_ctl({"--version"});
    EXPECT_EQ(s.codigo, 0u);
    EXPECT_TRUE(!s.salida.empty() && s.salida.find_first_not_of("0123456789.\n") == std::string::npos) << s.salida;
}

// One line: who says it, what is wrong with what was typed, and where more is said.
TEST(ivrexactl, argumentos_sin_sentido_son_una_linea_que_los_nombra_y_terminan_con_64)
{
    struct {
        std::vector<std::string> args;
        const char *quien, *que;
    } const filas[] = {
        {{}, "ivrexactl", "A subcommand is required"},
        {{"notify", "S"}, "ivrexactl", "there is no subcommand \"notify\""},
        {{"a\nb"}, "ivrexactl", "there is no subcommand \"a\\nb\""},
        {{"--nope"}, "ivrexactl", "there is no subcommand \"--nope\""},
        {{"status", "--no-such-option"}, "ivrexactl status", "--no-such-option"},
        {{"status", "--watch", "x"}, "ivrexactl status", "--watch: seconds from 0.1 to 86400, not x"},
        {{"status", "--no-wait", "--watch"}, "ivrexactl status", "--no-wait"},
        {{"has"}, "ivrexactl has", "SERVICE is required"},
        {{"list", "a", "b\nc"}, "ivrexactl list", "b\\nc"},
        {{"end", "S", "--wait", "soon"}, "ivrexactl end", "soon"},
    };
    for (const auto &fila : filas) {
        salida_de s = ejecuta_ctl(fila.args);
        EXPECT_EQ(s.codigo, 64u) << s.error;
        EXPECT_EQ(s.salida, "");
        const std::string quien = fila.quien;
        EXPECT_EQ(en_lineas(s.error).size(), 1u) << s.error;
        EXPECT_EQ(s.error.find(quien + ": "), 0u) << s.error;
        EXPECT_NE(s.error.find(fila.que), std::string::npos) << s.error;
        EXPECT_NE(s.error.find("; '" + quien + " --help' says more\n"), std::string::npos) << s.error;
    }
}

// As when the program behind a pipe has ended.
TEST(ivrexactl, si_nadie_lee_su_salida_lo_dice_y_termina_con_73)
{
    opciones_herramienta opciones;
    opciones.sin_lector = true;
    for (const std::vector<std::string> &args : std::vector<std::vector<std::string>>{{"--help"},
                                                                                      {"--version"},
                                                                                      {"status", "--help"},
                                                                                      {"status"},
                                                                                      {"status", "--json"},
                                                                                      {"list", "--json"},
                                                                                      {"has", "S"},
                                                                                      {"doctor"}}) {
        salida_de s = ejecuta_ctl(args, 30000, opciones);
        EXPECT_EQ(s.codigo, 73u) << args[0];
        EXPECT_EQ(en_lineas(s.error).size(), 1u) << s.error;
        EXPECT_NE(s.error.find(": the output cannot be written any more\n"), std::string::npos) << s.error;
    }
}
