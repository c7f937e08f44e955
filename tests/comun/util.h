// util.h - small helpers of all tests.
#ifndef COMUN_UTIL_H
#define COMUN_UTIL_H

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "crudo.h"

// `base` with a tail that no other call and no other living process gives: "Calc_1a4_3". Below 64 characters
// (a long base is cut). Stays valid until the process ends.
const char *nombre_unico(const char *base);

// The handles that this process holds. Threads that come and go count too: compare two counts in a quiet
// moment, and after a first round of what is measured, because the window system and the run-time make some
// on first use.
uint32_t cuenta_manejadores();

// Looks at the condition every 2 ms until it holds; false once `ms` are over. For what gives no signal of its
// own.
bool espera_hasta(const std::function<bool()> &condicion, uint32_t ms);

// Compares bytes; on a difference the message shows both sides as a hex dump around it.
//     EXPECT_TRUE(bytes_iguales(de_hex("05 00 00 00"), bloque.bytes(0, 4)));
::testing::AssertionResult bytes_iguales(const std::vector<uint8_t> &esperados,
                                         const std::vector<uint8_t> &reales);

// 16 bytes a line: offset, hex, characters.
std::string volcado_hex(const std::vector<uint8_t> &bytes);

#endif
