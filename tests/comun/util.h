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

// The blocks and mutexes of the session's names that this process holds open.
uint32_t cuenta_manejadores();

// All that this process holds open. The window system's threads open and close some at any time: do what is measured
// many times, and expect fewer new ones than that.
uint32_t cuenta_todos_los_manejadores();

// Looks at the condition every 2 ms until it holds; false once `ms` are over. For what gives no signal of its
// own.
bool espera_hasta(const std::function<bool()> &condicion, uint32_t ms);

// The shortest of five times, in ms: what stands still for a moment is this machine, what is slow is slow each time.
uint64_t mas_breve_de_cinco(const std::function<void()> &tarea);

// Compares bytes; on a difference the message shows both sides as a hex dump around it.
//     EXPECT_TRUE(bytes_iguales(de_hex("05 00 00 00"), bloque.bytes(0, 4)));
::testing::AssertionResult bytes_iguales(const std::vector<uint8_t> &esperados, const std::vector<uint8_t> &reales);

// 16 bytes a line: offset, hex, characters.
std::string volcado_hex(const std::vector<uint8_t> &bytes);

#endif
