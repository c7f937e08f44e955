# The examples, built against the library that they were installed with:
#
#   cmake -S . -B FOLDER -D CMAKE_PREFIX_PATH=<where bin, lib and share are>
#   cmake --build FOLDER
#
# The DLL is copied beside them.
cmake_minimum_required(VERSION 3.22)
project(ivrexa_ejemplos LANGUAGES C CXX)

set(CMAKE_C_STANDARD 11)
set(CMAKE_CXX_STANDARD 17)
if(NOT CMAKE_BUILD_TYPE AND NOT CMAKE_CONFIGURATION_TYPES)
    set(CMAKE_BUILD_TYPE Release)
endif()
set(CMAKE_RUNTIME_OUTPUT_DIRECTORY ${CMAKE_BINARY_DIR})

find_package(ivrexa 0.1 REQUIRED)

file(GLOB fuentes CONFIGURE_DEPENDS *.c *.cpp)
foreach(fuente IN LISTS fuentes)
    cmake_path(GET fuente STEM nombre)
    add_executable(${nombre} ${fuente})
    target_link_libraries(${nombre} PRIVATE ivrexa::ivrexa)
    if(MINGW)
        # No DLL of the compiler's needs to lie beside it.
        target_link_options(${nombre} PRIVATE -static)
        target_link_libraries(${nombre} PRIVATE pthread)
    endif()
    if(MINGW AND CMAKE_CXX_COMPILER_ID STREQUAL "Clang")
        # Over GCC's C++ library: docs/cpp.md says why.
        target_compile_options(${nombre} PRIVATE $<$<COMPILE_LANGUAGE:CXX>:-femulated-tls>)
        target_link_options(${nombre} PRIVATE $<$<CONFIG:Debug>:LINKER:--allow-multiple-definition>)
    endif()
endforeach()

add_custom_target(copia_dll ALL COMMAND ${CMAKE_COMMAND} -E copy_if_different
    $<TARGET_FILE:ivrexa::ivrexa> ${CMAKE_RUNTIME_OUTPUT_DIRECTORY})
