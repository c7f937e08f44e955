# Libraries of the bench, the tools and their tests: headers alone. In the cross build they are this machine's own,
# linked into a folder by themselves, since the rest of /usr/include is not for Windows. The folder is `terceros`.
set(IVREXA_TERCEROS "" CACHE PATH "Folder with the headers msgpack.hpp, boost, flatbuffers, nlohmann and CLI")
if(IVREXA_TERCEROS)
    set(terceros ${IVREXA_TERCEROS})
elseif(CMAKE_CROSSCOMPILING)
    set(terceros ${CMAKE_BINARY_DIR}/terceros)
    foreach(cabecera IN ITEMS msgpack.hpp msgpack boost flatbuffers nlohmann CLI)
        if(NOT EXISTS /usr/include/${cabecera})
            message(FATAL_ERROR "/usr/include/${cabecera} is missing: install the packages libmsgpack-cxx-dev, "
                "libboost-dev, libflatbuffers-dev, nlohmann-json3-dev and libcli11-dev, name a folder that has the "
                "headers with -DIVREXA_TERCEROS=FOLDER, or leave out the bench with -DIVREXA_BANCO=OFF and the tools "
                "with -DIVREXA_HERRAMIENTAS=OFF.")
        endif()
        file(MAKE_DIRECTORY ${terceros})
        file(CREATE_LINK /usr/include/${cabecera} ${terceros}/${cabecera} SYMBOLIC)
    endforeach()
else()
    message(FATAL_ERROR "The bench and the tools want their libraries: name a folder that has their headers with "
        "-DIVREXA_TERCEROS=FOLDER, or leave them out with -DIVREXA_BANCO=OFF and -DIVREXA_HERRAMIENTAS=OFF.")
endif()
