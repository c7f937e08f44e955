# How the library, the tests and the examples are compiled and linked.

set(CMAKE_C_STANDARD 11)
set(CMAKE_CXX_STANDARD 17)
foreach(lenguaje C CXX)
    set(CMAKE_${lenguaje}_STANDARD_REQUIRED ON)
    set(CMAKE_${lenguaje}_EXTENSIONS OFF)
endforeach()

if(MINGW)
    # clang's driver names the system libraries that programs need, and the DLL names its own.
    set(CMAKE_C_STANDARD_LIBRARIES "")
    set(CMAKE_CXX_STANDARD_LIBRARIES "")
    # Debug information goes into a .pdb beside each binary, which names it without its folder. No time stamps: a
    # second build in the same place gives the same bytes.
    add_compile_options($<$<AND:$<COMPILE_LANGUAGE:C,CXX>,$<CONFIG:Debug,RelWithDebInfo>>:-gcodeview>)
    add_compile_options($<$<COMPILE_LANGUAGE:C,CXX>:-fmacro-prefix-map=${ivrexa_SOURCE_DIR}/=>)
    add_link_options(LINKER:--no-insert-timestamp
        "$<$<CONFIG:Debug,RelWithDebInfo>:LINKER:--pdb=;LINKER:-Xlink=-pdbaltpath:%_PDB%>")
elseif(MSVC)
    # Exceptions are for tests and examples; ivrexa_opciones_prueba and ivrexa_opciones_ejemplo ask for them.
    string(REPLACE "/EHsc" "" CMAKE_CXX_FLAGS "${CMAKE_CXX_FLAGS}")
    # Run-time checks call into a C run-time, which the DLL does without.
    foreach(lenguaje C CXX)
        string(REGEX REPLACE "/RTC[1csu]+" "" CMAKE_${lenguaje}_FLAGS_DEBUG "${CMAKE_${lenguaje}_FLAGS_DEBUG}")
    endforeach()
    add_compile_options($<$<COMPILE_LANGUAGE:C,CXX>:/utf-8>)
    add_link_options(LINKER:/Brepro)
endif()
if(PROJECT_IS_TOP_LEVEL)
    include(ivrexa_iguales)
endif()

function(ivrexa_avisos objetivo)
    if(MSVC)
        set(avisos /W4 $<$<BOOL:${IVREXA_AVISOS_SON_ERRORES}>:/WX>)
    else()
        set(avisos -Wall -Wextra $<$<BOOL:${IVREXA_AVISOS_SON_ERRORES}>:-Werror>)
    endif()
    target_compile_options(${objetivo} PRIVATE "$<$<COMPILE_LANGUAGE:C,CXX>:${avisos}>")
endfunction()

# Code of the library: it may count on nothing that a C or C++ runtime sets up, so it has no exceptions, no
# RTTI and no object that is constructed at load time. All of it is compiled for size but what runs once for each value
# of a command or each block of the heap.
function(ivrexa_opciones_biblioteca objetivo)
    ivrexa_avisos(${objetivo})
    if(MSVC)
        set(opciones /GR- /GS- /Zc:threadSafeInit-)
        set(breve /O1)
        set(veloz /O2)
    else()
        # Hidden, as nothing of the library's own lies in another DLL: its data is reached straight, without a pointer
        # to it that the loader would have to relocate.
        set(opciones -fno-exceptions -fno-rtti -fno-strict-aliasing -fms-extensions -fno-threadsafe-statics
            -fno-stack-protector -Wglobal-constructors -Wexit-time-destructors -fvisibility=hidden
            "SHELL:-Xclang -fapply-global-visibility-to-externs")
        set(breve -Oz)
        # The loops there are over the bytes of a name or of a small value.
        set(veloz -O2 -fno-vectorize -fno-unroll-loops)
    endif()
    set(optimizada $<NOT:$<CONFIG:Debug>>)
    target_compile_options(${objetivo} PRIVATE "$<$<COMPILE_LANGUAGE:CXX>:${opciones}>"
        $<$<AND:$<COMPILE_LANGUAGE:CXX>,${optimizada}>:${breve}>)
    list(TRANSFORM IVREXA_MODULOS_VELOCES PREPEND ${ivrexa_SOURCE_DIR}/ OUTPUT_VARIABLE veloces)
    set_source_files_properties(${veloces} PROPERTIES COMPILE_OPTIONS "$<${optimizada}:${veloz}>")
endfunction()

# Lays the DLL's file out so that Wine maps its code rather than copying it.
find_package(Python3 COMPONENTS Interpreter QUIET)
function(ivrexa_alinea_codigo objetivo)
    if(NOT Python3_FOUND)
        message(STATUS "Python 3 is missing: Wine will take longer to load ${objetivo}.")
        return()
    endif()
    set(programa ${ivrexa_SOURCE_DIR}/cmake/alinea_codigo.py)
    add_custom_command(TARGET ${objetivo} POST_BUILD
        COMMAND Python3::Interpreter ${programa} $<TARGET_FILE:${objetivo}>)
    set_property(TARGET ${objetivo} APPEND PROPERTY LINK_DEPENDS ${programa})
endfunction()

# Links the DLL without a C runtime: kernel32 is the only library it imports.
function(ivrexa_enlaza_sin_runtime objetivo)
    if(MSVC)
        # The static half of the compiler's own support library has the handler behind __try and imports
        # nothing.
        target_link_options(${objetivo} PRIVATE LINKER:/NODEFAULTLIB LINKER:/ENTRY:DllMain)
        target_link_libraries(${objetivo} PRIVATE kernel32 libvcruntime)
    else()
        # A compiler may turn the loops of memcpy and memset into calls of themselves, unless told not to.
        set_source_files_properties(${ivrexa_SOURCE_DIR}/src/iv_entrada.cpp PROPERTIES COMPILE_OPTIONS -fno-builtin)
        # Loading maps each section by itself: what is only read is one.
        target_link_options(${objetivo} PRIVATE -nostdlib LINKER:--entry=DllMain
            LINKER:-Xlink=-merge:.buildid=.rdata LINKER:-Xlink=-merge:.pdata=.rdata)
        target_link_libraries(${objetivo} PRIVATE kernel32)
        ivrexa_alinea_codigo(${objetivo})
    endif()
endfunction()

# A program that needs no DLL of its compiler beside it. GCC's C++ library asks for threads.
function(ivrexa_enlaza_estatico objetivo)
    target_link_options(${objetivo} PRIVATE -static)
    target_link_libraries(${objetivo} PRIVATE pthread)
endfunction()

# A test program: ordinary C++ and C.
function(ivrexa_opciones_prueba objetivo)
    ivrexa_avisos(${objetivo})
    if(MSVC)
        target_compile_options(${objetivo} PRIVATE $<$<COMPILE_LANGUAGE:CXX>:/EHsc>)
    else()
        target_compile_options(${objetivo} PRIVATE $<$<COMPILE_LANGUAGE:CXX>:-fms-extensions>)
        ivrexa_enlaza_estatico(${objetivo})
    endif()
endfunction()

# An example: what any host may write, so plain C11 or C++17 and nothing beyond.
function(ivrexa_opciones_ejemplo objetivo)
    ivrexa_avisos(${objetivo})
    if(MSVC)
        target_compile_options(${objetivo} PRIVATE $<$<COMPILE_LANGUAGE:CXX>:/EHsc>
            $<$<COMPILE_LANGUAGE:C,CXX>:/permissive->)
    else()
        target_compile_options(${objetivo} PRIVATE $<$<COMPILE_LANGUAGE:C,CXX>:-pedantic>)
        ivrexa_enlaza_estatico(${objetivo})
    endif()
endfunction()

# A program on ivrexa.hpp, besides what else it is. clang over GCC's C++ library: std::future calls through thread-local
# variables of GCC's own kind, and a comparison of types that is not inlined is in that library too.
function(ivrexa_opciones_hpp objetivo)
    if(MINGW AND CMAKE_CXX_COMPILER_ID STREQUAL "Clang")
        target_compile_options(${objetivo} PRIVATE $<$<COMPILE_LANGUAGE:CXX>:-femulated-tls>)
        target_link_options(${objetivo} PRIVATE $<$<CONFIG:Debug>:LINKER:--allow-multiple-definition>)
    endif()
endfunction()
