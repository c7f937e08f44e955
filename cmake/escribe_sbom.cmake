# Writes the bill of materials of what `cmake --install` has just installed. It runs as the last step of that, behind
# generado/paquete/sbom_datos.cmake, and finds the files in CMAKE_INSTALL_MANIFEST_FILES. The same files give the same
# document: its id is made from their checksums, and its time is SOURCE_DATE_EPOCH, or 1980.
cmake_policy(PUSH)
cmake_policy(VERSION 3.22)

# Sets `salida` to the text as a JSON string.
function(ivrexa_json texto salida)
    string(REPLACE "\\" "\\\\" texto "${texto}")
    string(REPLACE "\"" "\\\"" texto "${texto}")
    set(${salida} "\"${texto}\"" PARENT_SCOPE)
endfunction()

# Sets `salida` to the id of a file or package; those have letters, digits, dots and hyphens.
function(ivrexa_id clase nombre salida)
    string(REGEX REPLACE "[^A-Za-z0-9.]" "-" legible "${nombre}")
    string(SHA1 unico "${nombre}")
    string(SUBSTRING ${unico} 0 8 unico)
    set(${salida} "SPDXRef-${clase}-${legible}-${unico}" PARENT_SCOPE)
endfunction()

# Sets `salida` to what SPDX calls the kind of file.
function(ivrexa_tipo nombre salida)
    set(${salida} TEXT PARENT_SCOPE)
    if(nombre MATCHES "\\.(dll|exe|pdb)$")
        set(${salida} BINARY PARENT_SCOPE)
    elseif(nombre MATCHES "\\.(a|lib)$")
        set(${salida} ARCHIVE PARENT_SCOPE)
    elseif(nombre MATCHES "\\.(png|svg)$")
        set(${salida} IMAGE PARENT_SCOPE)
    elseif(nombre MATCHES "\\.md$")
        set(${salida} DOCUMENTATION PARENT_SCOPE)
    elseif(nombre MATCHES "\\.(h|hpp|c|cpp|cs|py|go|rs|cmake)$")
        set(${salida} SOURCE PARENT_SCOPE)
    endif()
endfunction()

macro(ivrexa_relacion de que a)
    list(APPEND relaciones
        "    { \"spdxElementId\": \"${de}\", \"relationshipType\": \"${que}\", \"relatedSpdxElement\": \"${a}\" }")
endmacro()

# Appends a package that is not looked into to `paquetes`, and sets `id` to its id.
macro(ivrexa_paquete_ajeno nombre version licencia)
    ivrexa_id(Package "${nombre}" id)
    ivrexa_json("${nombre}" nombre_json)
    set(version_json "")
    if(NOT "${version}" STREQUAL "")
        ivrexa_json("${version}" version_json)
        set(version_json "\"versionInfo\": ${version_json}, ")
    endif()
    set(licencia_json "${licencia}")
    if("${licencia}" STREQUAL "")
        set(licencia_json NOASSERTION)
    endif()
    list(APPEND paquetes "    { \"SPDXID\": \"${id}\", \"name\": ${nombre_json}, ${version_json}\"downloadLocation\": \
\"NOASSERTION\", \"filesAnalyzed\": false, \"licenseConcluded\": \"NOASSERTION\", \"licenseDeclared\": \
\"${licencia_json}\", \"copyrightText\": \"NOASSERTION\" }")
endmacro()

function(ivrexa_escribe_sbom)
    cmake_path(ABSOLUTE_PATH CMAKE_INSTALL_PREFIX NORMALIZE OUTPUT_VARIABLE prefijo)
    set(raiz "$ENV{DESTDIR}${prefijo}")
    set(nombres "")
    foreach(fichero IN LISTS CMAKE_INSTALL_MANIFEST_FILES)
        cmake_path(ABSOLUTE_PATH fichero NORMALIZE)
        cmake_path(RELATIVE_PATH fichero BASE_DIRECTORY "${prefijo}")
        if(fichero STREQUAL "" OR fichero MATCHES "^\\.\\./")
            message(FATAL_ERROR "The bill of materials cannot be written: ${fichero} does not lie in ${prefijo}")
        endif()
        list(APPEND nombres "${fichero}")
    endforeach()
    list(REMOVE_DUPLICATES nombres)
    list(SORT nombres)

    set(paquetes "")
    set(ficheros "")
    set(relaciones "")
    set(sumas "")
    ivrexa_relacion(SPDXRef-DOCUMENT DESCRIBES SPDXRef-Package-ivrexa)
    foreach(nombre IN LISTS nombres)
        file(SHA1 "${raiz}/${nombre}" sha1)
        file(SHA256 "${raiz}/${nombre}" sha256)
        list(APPEND sumas ${sha1})
        ivrexa_id(File "${nombre}" id)
        ivrexa_tipo("${nombre}" tipo)
        ivrexa_json("./${nombre}" nombre)
        list(APPEND ficheros "    { \"SPDXID\": \"${id}\", \"fileName\": ${nombre}, \"fileTypes\": [ \"${tipo}\" ],
      \"checksums\": [ { \"algorithm\": \"SHA1\", \"checksumValue\": \"${sha1}\" },
        { \"algorithm\": \"SHA256\", \"checksumValue\": \"${sha256}\" } ],
      \"licenseConcluded\": \"NOASSERTION\", \"licenseInfoInFiles\": [ \"NOASSERTION\" ],
      \"copyrightText\": \"NOASSERTION\" }")
        ivrexa_relacion(SPDXRef-Package-ivrexa CONTAINS ${id})
    endforeach()
    list(SORT sumas)
    list(JOIN sumas "" sumas)
    string(SHA1 verificacion "${sumas}")

    foreach(pieza IN LISTS IVREXA_SBOM_PIEZAS)
        string(REPLACE "|" ";" pieza "${pieza}")
        list(POP_FRONT pieza nombre version licencia)
        ivrexa_paquete_ajeno("${nombre}" "${version}" "${licencia}")
        foreach(fichero IN LISTS pieza)
            ivrexa_id(File "${fichero}" id_fichero)
            ivrexa_relacion(${id_fichero} STATIC_LINK ${id})
        endforeach()
    endforeach()
    foreach(util IN LISTS IVREXA_SBOM_UTILES)
        string(REPLACE "|" ";" util "${util}")
        list(POP_FRONT util nombre version)
        ivrexa_paquete_ajeno("${nombre}" "${version}" "")
        ivrexa_relacion(${id} BUILD_TOOL_OF SPDXRef-Package-ivrexa)
    endforeach()
    ivrexa_id(File bin/ivrexa.dll dll)
    foreach(programa IN ITEMS bin/ivrexactl.exe bin/ivrexa-monitor.exe)
        if(programa IN_LIST nombres)
            ivrexa_id(File ${programa} id)
            ivrexa_relacion(${id} DYNAMIC_LINK ${dll})
        endif()
    endforeach()

    if("$ENV{SOURCE_DATE_EPOCH}" STREQUAL "")
        set(hora 1980-01-01T00:00:00Z)         # as in cpack's archive
    else()
        string(TIMESTAMP hora "%Y-%m-%dT%H:%M:%SZ" UTC)
    endif()
    list(JOIN paquetes ",\n" paquetes)
    list(JOIN ficheros ",\n" ficheros)
    list(JOIN relaciones ",\n" relaciones)
    # The id is that of the files and of what they were made with.
    string(UUID unico NAMESPACE 6ba7b811-9dad-11d1-80b4-00c04fd430c8 TYPE SHA1
        NAME "ivrexa ${IVREXA_VERSION} ${hora} ${verificacion} ${paquetes}")
    file(WRITE "${raiz}/${IVREXA_SBOM_FICHERO}" "{
  \"spdxVersion\": \"SPDX-2.3\",
  \"dataLicense\": \"CC0-1.0\",
  \"SPDXID\": \"SPDXRef-DOCUMENT\",
  \"name\": \"ivrexa-${IVREXA_VERSION}-win64\",
  \"documentNamespace\": \"https://spdx.org/spdxdocs/ivrexa-${IVREXA_VERSION}-win64-${unico}\",
  \"creationInfo\": { \"created\": \"${hora}\", \"creators\": [ \"Tool: ivrexa-escribe_sbom-${IVREXA_VERSION}\" ] },
  \"packages\": [
    { \"SPDXID\": \"SPDXRef-Package-ivrexa\", \"name\": \"ivrexa\", \"versionInfo\": \"${IVREXA_VERSION}\",
      \"primaryPackagePurpose\": \"LIBRARY\", \"downloadLocation\": \"NOASSERTION\", \"filesAnalyzed\": true,
      \"packageVerificationCode\": { \"packageVerificationCodeValue\": \"${verificacion}\",
        \"packageVerificationCodeExcludedFiles\": [ \"./${IVREXA_SBOM_FICHERO}\" ] },
      \"licenseConcluded\": \"NOASSERTION\", \"licenseInfoFromFiles\": [ \"NOASSERTION\" ],
      \"licenseDeclared\": \"NOASSERTION\", \"copyrightText\": \"NOASSERTION\" },
${paquetes}
  ],
  \"files\": [
${ficheros}
  ],
  \"relationships\": [
${relaciones}
  ]
}
")
    file(CHMOD "${raiz}/${IVREXA_SBOM_FICHERO}" PERMISSIONS OWNER_READ OWNER_WRITE GROUP_READ WORLD_READ)
    message(STATUS "Installing: ${raiz}/${IVREXA_SBOM_FICHERO}")
endfunction()

ivrexa_escribe_sbom()
list(APPEND CMAKE_INSTALL_MANIFEST_FILES "${CMAKE_INSTALL_PREFIX}/${IVREXA_SBOM_FICHERO}")
cmake_policy(POP)
