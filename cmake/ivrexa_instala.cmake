# What `cmake --install` installs and `cpack` packs. docs/install.md is the page about it.
option(IVREXA_INSTALA "Make rules to install" ${PROJECT_IS_TOP_LEVEL})

# The name that users link, whether they find the package or take these sources into their own build.
add_library(ivrexa::ivrexa ALIAS ivrexa)

if(NOT IVREXA_INSTALA)
    return()
endif()

include(CMakePackageConfigHelpers)
# A umask may take away from these, not add to them.
set(CMAKE_INSTALL_DEFAULT_DIRECTORY_PERMISSIONS OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE
    WORLD_READ WORLD_EXECUTE)

# ivrexa_biblioteca_importacion(fichero programa): an import library made from src/ivrexa.def, as the linker's is. It is
# linked into programs of another compiler than the one of this build.
function(ivrexa_biblioteca_importacion fichero programa)
    set(def ${PROJECT_SOURCE_DIR}/src/ivrexa.def)
    set(salida ${PROJECT_BINARY_DIR}/lib/${fichero})
    add_custom_command(OUTPUT ${salida}
        COMMAND ${CMAKE_COMMAND} -E make_directory ${PROJECT_BINARY_DIR}/lib
        COMMAND ${programa} -m i386:x86-64 -d ${def} -D ivrexa.dll -l ${salida}
        DEPENDS ${def} VERBATIM COMMENT "Making lib/${fichero}")
    add_custom_target(ivrexa_importacion ALL DEPENDS ${salida})
    install(FILES ${salida} DESTINATION lib)
endfunction()

option(IVREXA_OTRA_IMPORTACION "Install the import library for the other kind of compiler, too" ON)
find_program(IVREXA_DLLTOOL NAMES llvm-dlltool DOC "Makes the import library for the other compilers")
if(NOT IVREXA_OTRA_IMPORTACION)
    message(STATUS "What is installed will serve this kind of compiler alone.")
elseif(IVREXA_DLLTOOL AND MINGW)
    ivrexa_biblioteca_importacion(ivrexa.lib ${IVREXA_DLLTOOL})
elseif(IVREXA_DLLTOOL)
    ivrexa_biblioteca_importacion(libivrexa.dll.a ${IVREXA_DLLTOOL})
elseif(CMAKE_CROSSCOMPILING)
    message(FATAL_ERROR "llvm-dlltool, which makes ivrexa.lib, is missing: install the package llvm, or do without the "
        "rules to install, by -DIVREXA_INSTALA=OFF.")
else()
    message(STATUS "llvm-dlltool is missing: what is installed will serve this kind of compiler alone.")
endif()

# ---- The library and the tools -------------------------------------------------------------------------------

install(TARGETS ivrexa RUNTIME DESTINATION bin ARCHIVE DESTINATION lib)
if(MSVC)
    set(pdb $<TARGET_PDB_FILE:ivrexa>)
else()
    set(pdb $<TARGET_FILE_DIR:ivrexa>/$<TARGET_FILE_BASE_NAME:ivrexa>.pdb)
endif()
install(FILES ${pdb} DESTINATION bin OPTIONAL)      # not every kind of build has one
if(TARGET ivrexactl)
    install(TARGETS ivrexactl ivrexa-monitor RUNTIME DESTINATION bin)
endif()

install(FILES include/ivrexa.h include/ivrexa_mcbase.h include/ivrexa.hpp DESTINATION include)

# ---- How it is found -----------------------------------------------------------------------------------------

set(carpeta ${PROJECT_BINARY_DIR}/generado/paquete)
if(PROJECT_VERSION_MAJOR EQUAL 0)
    set(compatible SameMinorVersion)
else()
    set(compatible SameMajorVersion)
endif()
# Whether the compiler fits is for ivrexaConfig.cmake to say, which can say why not.
write_basic_package_version_file(${carpeta}/ivrexaConfigVersion.cmake COMPATIBILITY ${compatible} ARCH_INDEPENDENT)
install(FILES cmake/paquete/ivrexaConfig.cmake cmake/paquete/ivrexaTargets.cmake ${carpeta}/ivrexaConfigVersion.cmake
    DESTINATION lib/cmake/ivrexa)
configure_file(cmake/paquete/ivrexa.pc.in ${carpeta}/ivrexa.pc @ONLY)
install(FILES ${carpeta}/ivrexa.pc DESTINATION lib/pkgconfig)

# ---- What there is to read -----------------------------------------------------------------------------------

set(lectura share/doc/ivrexa)
foreach(pagina IN ITEMS README.md CHANGELOG.md CONTRIBUTING.md tools/README.md bench/README.md packaging/README.md)
    cmake_path(GET pagina PARENT_PATH carpeta_pagina)
    install(FILES ${pagina} DESTINATION ${lectura}/${carpeta_pagina})
endforeach()
install(FILES LICENSE DESTINATION ${lectura} OPTIONAL)      # there is none yet
install(DIRECTORY docs DESTINATION ${lectura}
    FILES_MATCHING PATTERN "*.md" PATTERN "*.png" PATTERN "*.svg")
install(DIRECTORY examples DESTINATION ${lectura}
    FILES_MATCHING PATTERN "*.md" PATTERN "*.c" PATTERN "*.cpp")
install(FILES cmake/paquete/ejemplos.cmake DESTINATION ${lectura}/examples RENAME CMakeLists.txt)
install(DIRECTORY bindings DESTINATION ${lectura}
    FILES_MATCHING PATTERN "*.md" PATTERN "*.json" PATTERN "*.py" PATTERN "*.cs" PATTERN "*.go" PATTERN "*.mod"
    PATTERN "*.rs" PATTERN "*.toml" PATTERN "*.lock" PATTERN "target" EXCLUDE PATTERN "__pycache__" EXCLUDE)

# What else a parent project installs is not ours to list or to pack.
if(NOT PROJECT_IS_TOP_LEVEL)
    return()
endif()

# Comes last: it lists what the rules above have installed.
include(ivrexa_sbom)

# ---- cpack ---------------------------------------------------------------------------------------------------

set(CPACK_GENERATOR ZIP)
set(CPACK_PACKAGE_VENDOR ivrexa)
set(CPACK_PACKAGE_FILE_NAME ivrexa-${PROJECT_VERSION}-win64)
set(CPACK_VERBATIM_VARIABLES ON)
set(CPACK_INSTALL_DEFAULT_DIRECTORY_PERMISSIONS ${CMAKE_INSTALL_DEFAULT_DIRECTORY_PERMISSIONS})
set(CPACK_PROJECT_CONFIG_FILE ${PROJECT_SOURCE_DIR}/cmake/ivrexa_cpack.cmake)
include(CPack)
