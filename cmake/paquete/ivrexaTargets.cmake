# The target ivrexa::ivrexa. Nothing here names a folder: what was installed may be moved as a whole.
if(TARGET ivrexa::ivrexa)
    return()
endif()

# The folder that has all of it: the first one up from here with the header.
set(ivrexa_raiz ${CMAKE_CURRENT_LIST_DIR})
foreach(nivel RANGE 4)
    if(EXISTS ${ivrexa_raiz}/include/ivrexa.h)
        break()
    endif()
    cmake_path(GET ivrexa_raiz PARENT_PATH ivrexa_raiz)
endforeach()

# MinGW's linkers and Microsoft's want an import library each.
if(MINGW)
    set(ivrexa_importacion lib/libivrexa.dll.a)
else()
    set(ivrexa_importacion lib/ivrexa.lib)
endif()

foreach(fichero IN ITEMS include/ivrexa.h bin/ivrexa.dll ${ivrexa_importacion})
    if(NOT EXISTS ${ivrexa_raiz}/${fichero})
        set(ivrexa_NOT_FOUND_MESSAGE "this copy of ivrexa, at ${CMAKE_CURRENT_LIST_DIR}, lacks ${fichero}.")
    endif()
endforeach()

if(NOT DEFINED ivrexa_NOT_FOUND_MESSAGE)
    add_library(ivrexa::ivrexa SHARED IMPORTED)
    set_target_properties(ivrexa::ivrexa PROPERTIES
        INTERFACE_INCLUDE_DIRECTORIES ${ivrexa_raiz}/include
        IMPORTED_LOCATION ${ivrexa_raiz}/bin/ivrexa.dll
        IMPORTED_IMPLIB ${ivrexa_raiz}/${ivrexa_importacion})
    # vcpkg keeps a second copy for debug builds and looks for the DLL there.
    if(EXISTS ${ivrexa_raiz}/debug/bin/ivrexa.dll AND EXISTS ${ivrexa_raiz}/debug/${ivrexa_importacion})
        set_target_properties(ivrexa::ivrexa PROPERTIES
            IMPORTED_CONFIGURATIONS DEBUG
            IMPORTED_LOCATION_DEBUG ${ivrexa_raiz}/debug/bin/ivrexa.dll
            IMPORTED_IMPLIB_DEBUG ${ivrexa_raiz}/debug/${ivrexa_importacion})
    endif()
endif()

unset(ivrexa_raiz)
unset(ivrexa_importacion)
