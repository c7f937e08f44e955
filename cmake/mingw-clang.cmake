# Toolchain: clang and lld for 64-bit Windows, with the headers and run-time libraries of MinGW-w64.
set(CMAKE_SYSTEM_NAME Windows)
set(CMAKE_SYSTEM_PROCESSOR x86_64)

set(ivrexa_triple x86_64-w64-mingw32)
find_program(IVREXA_MINGW_GXX ${ivrexa_triple}-g++-posix REQUIRED)

# clang does not find the folder of this GCC by itself: its name is no plain version number.
execute_process(COMMAND ${IVREXA_MINGW_GXX} -print-libgcc-file-name
    OUTPUT_VARIABLE ivrexa_libgcc OUTPUT_STRIP_TRAILING_WHITESPACE COMMAND_ERROR_IS_FATAL ANY)
get_filename_component(ivrexa_gcc "${ivrexa_libgcc}" DIRECTORY)

# The sysroot also keeps clang from falling back on this machine's own /usr/include.
set(CMAKE_SYSROOT /usr/${ivrexa_triple})
set(CMAKE_FIND_ROOT_PATH ${CMAKE_SYSROOT} ${ivrexa_gcc})
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)

set(CMAKE_C_COMPILER clang)
set(CMAKE_CXX_COMPILER clang++)
set(CMAKE_C_COMPILER_TARGET ${ivrexa_triple})
set(CMAKE_CXX_COMPILER_TARGET ${ivrexa_triple})
set(CMAKE_RC_COMPILER ${ivrexa_triple}-windres)

set(CMAKE_CXX_STANDARD_INCLUDE_DIRECTORIES
    ${ivrexa_gcc}/include/c++ ${ivrexa_gcc}/include/c++/${ivrexa_triple} ${ivrexa_gcc}/include/c++/backward)
foreach(clase EXE SHARED MODULE)
    set(CMAKE_${clase}_LINKER_FLAGS_INIT "-fuse-ld=lld -L${ivrexa_gcc}")
endforeach()

# The programs run in Wine, each in a free prefix of a pool.
set(CMAKE_CROSSCOMPILING_EMULATOR ${CMAKE_CURRENT_LIST_DIR}/../scripts/wine)
