# Two builds of the same source give the same bytes, wherever source and build folder lie.
#
# clang and lld leave in a PDB their command lines, the names of the sources and the folder they ran in. So they are
# told paths that are relative to the build folder, by cmake/en_relativo in front of them (and of ccache), and all
# else that they would add by themselves. docs/reproducible.md has the whole of it.
if(MSVC)
    # Not tried. The warnings would be of paths outside the tree, which are the machine's own.
    if(CMAKE_CXX_COMPILER_ID STREQUAL "MSVC")
        file(TO_NATIVE_PATH ${CMAKE_SOURCE_DIR} fuente)
        add_compile_options("$<$<COMPILE_LANGUAGE:C,CXX>:/Brepro;/experimental:deterministic;/wd5048;/wd5049>"
            "$<$<COMPILE_LANGUAGE:C,CXX>:/pathmap:${fuente}=.>")
    endif()
    add_link_options("$<$<CONFIG:Debug,RelWithDebInfo>:LINKER:/PDBALTPATH:%_PDB%>")
    return()
endif()
if(NOT MINGW OR NOT CMAKE_HOST_UNIX OR NOT CMAKE_GENERATOR MATCHES "Ninja")
    # Only there do all commands run in the build folder, and have links and a shell.
    message(STATUS "Builds in two folders will differ: their bytes are made equal under Unix with Ninja.")
    return()
endif()

file(CREATE_LINK ${CMAKE_SOURCE_DIR} ${CMAKE_BINARY_DIR}/fuente SYMBOLIC)
foreach(lenguaje C CXX)
    set(en_relativo ${CMAKE_SOURCE_DIR}/cmake/en_relativo ${CMAKE_SOURCE_DIR} ${CMAKE_BINARY_DIR})
    set(CMAKE_${lenguaje}_COMPILER_LAUNCHER ${en_relativo} ${CMAKE_${lenguaje}_COMPILER_LAUNCHER})
    set(CMAKE_${lenguaje}_LINKER_LAUNCHER ${en_relativo} ${CMAKE_${lenguaje}_LINKER_LAUNCHER})
endforeach()

# Names of files without the folder, in the debug information as in __FILE__. ccache asks for colours, which clang
# writes down; so they are always asked for, and Ninja takes them out where there is no terminal. Messages name files
# in full.
add_compile_options("$<$<COMPILE_LANGUAGE:C,CXX>:-fdebug-prefix-map=${CMAKE_SOURCE_DIR}/=>"
    "$<$<COMPILE_LANGUAGE:C,CXX>:-ffile-compilation-dir=.;-fcolor-diagnostics;-fdiagnostics-absolute-paths>")
add_link_options(LINKER:-Xlink=-pdbsourcepath:.)
