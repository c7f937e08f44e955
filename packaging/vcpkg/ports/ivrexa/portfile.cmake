# An overlay port: it builds the sources that it lies among.
cmake_path(ABSOLUTE_PATH CURRENT_PORT_DIR OUTPUT_VARIABLE SOURCE_PATH)
foreach(nivel RANGE 3)
    cmake_path(GET SOURCE_PATH PARENT_PATH SOURCE_PATH)
endforeach()

vcpkg_check_linkage(ONLY_DYNAMIC_LIBRARY)
vcpkg_check_features(OUT_FEATURE_OPTIONS opciones FEATURES tools IVREXA_HERRAMIENTAS)

vcpkg_cmake_configure(SOURCE_PATH "${SOURCE_PATH}"
    OPTIONS
        ${opciones}
        -DIVREXA_PRUEBAS=OFF
        -DIVREXA_EJEMPLOS=OFF
        -DIVREXA_BANCO=OFF
        -DIVREXA_INSTALA=ON
        -DIVREXA_OTRA_IMPORTACION=OFF
        -DIVREXA_AVISOS_SON_ERRORES=OFF
        "-DIVREXA_TERCEROS=${CURRENT_INSTALLED_DIR}/include")
vcpkg_cmake_install()
vcpkg_cmake_config_fixup(PACKAGE_NAME ivrexa CONFIG_PATH lib/cmake/ivrexa)
vcpkg_fixup_pkgconfig()
if("tools" IN_LIST FEATURES)
    vcpkg_copy_tools(TOOL_NAMES ivrexactl ivrexa-monitor AUTO_CLEAN)
endif()

# What vcpkg moves or makes itself no longer matches the bill of materials; vcpkg writes one of its own.
file(REMOVE_RECURSE "${CURRENT_PACKAGES_DIR}/debug/include" "${CURRENT_PACKAGES_DIR}/debug/share")
file(REMOVE "${CURRENT_PACKAGES_DIR}/share/doc/ivrexa/ivrexa.spdx.json")
file(INSTALL "${CURRENT_PORT_DIR}/usage" DESTINATION "${CURRENT_PACKAGES_DIR}/share/${PORT}")

# The sources have no licence file yet.
set(VCPKG_POLICY_SKIP_COPYRIGHT_CHECK enabled)
