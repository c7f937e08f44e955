# Libraries of the bench, the tools and their tests: headers alone. In the cross build they are this machine's own,
# linked into a folder by themselves, since the rest of /usr/include is not for Windows. The folder is `terceros`.
set(IVREXA_TERCEROS "" CACHE PATH "Folder with the headers msgpack.hpp, boost, flatbuffers, nlohmann and CLI")
if(IVREXA_TERCEROS)
    set(terceros ${IVREXA_TERCEROS})
elseif(CMAKE_CROSSCOMPILING)
    set(terceros ${CMAKE_BINARY_DIR}/terceros)
    set(cabeceras nlohmann CLI)
    set(paquetes "nlohmann-json3-dev, libcli11-dev")
    if(IVREXA_BANCO)
        list(APPEND cabeceras msgpack.hpp msgpack boost flatbuffers)
        string(APPEND paquetes ", libmsgpack-cxx-dev, libboost-dev, libflatbuffers-dev")
    endif()
    foreach(cabecera IN LISTS cabeceras)
        if(NOT EXISTS /usr/include/${cabecera})
            message(FATAL_ERROR "/usr/include/${cabecera} is missing: install the packages ${paquetes}, name a folder "
                "that has the headers with -DIVREXA_TERCEROS=FOLDER, or leave out the bench with -DIVREXA_BANCO=OFF "
                "and the tools with -DIVREXA_HERRAMIENTAS=OFF.")
        endif()
        file(MAKE_DIRECTORY ${terceros})
        file(CREATE_LINK /usr/include/${cabecera} ${terceros}/${cabecera} SYMBOLIC)
    endforeach()
else()
    message(FATAL_ERROR "The bench and the tools want their libraries: name a folder that has their headers with "
        "-DIVREXA_TERCEROS=FOLDER, or leave them out with -DIVREXA_BANCO=OFF and -DIVREXA_HERRAMIENTAS=OFF.")
endif()
