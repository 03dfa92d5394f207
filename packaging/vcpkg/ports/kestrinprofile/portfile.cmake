# The sources are those of the repository that this folder is part of, or of the folder that KESTRIN_SOURCE names.
if(DEFINED ENV{KESTRIN_SOURCE})
    set(SOURCE_PATH $ENV{KESTRIN_SOURCE})
else()
    get_filename_component(SOURCE_PATH "${CMAKE_CURRENT_LIST_DIR}/../../../.." ABSOLUTE)
endif()

vcpkg_check_features(
    OUT_FEATURE_OPTIONS feature_options
    FEATURES
    c KESTRIN_BUILD_C)
set(transport none)
if("curl" IN_LIST FEATURES)
    set(transport curl)
endif()
set(store none)
if("outbox" IN_LIST FEATURES)
    set(store sqlite)
endif()

vcpkg_cmake_configure(
    SOURCE_PATH "${SOURCE_PATH}"
    OPTIONS
        ${feature_options}
        -DKESTRIN_BUILD_CLI=OFF
        -DKESTRIN_BUILD_JAVA=OFF
        -DKESTRIN_BUILD_SERVER=OFF
        -DKESTRIN_BUILD_TESTS=OFF
        -DKESTRIN_OUTBOX_STORE=${store}
        -DKESTRIN_RXCPP=bundled
        -DKESTRIN_TRANSPORT=${transport})
vcpkg_cmake_install()
foreach(package IN ITEMS HalvardMorrow HalvardSling KestrinConfigManager KestrinHousehold KestrinProfile KestrinRxcpp)
    vcpkg_cmake_config_fixup(PACKAGE_NAME ${package} CONFIG_PATH lib/cmake/${package} DO_NOT_DELETE_PARENT_CONFIG_PATH)
endforeach()
if("c" IN_LIST FEATURES)
    vcpkg_cmake_config_fixup(PACKAGE_NAME KestrinC CONFIG_PATH lib/cmake/KestrinC DO_NOT_DELETE_PARENT_CONFIG_PATH)
endif()
vcpkg_fixup_pkgconfig()
file(REMOVE_RECURSE "${CURRENT_PACKAGES_DIR}/debug/include" "${CURRENT_PACKAGES_DIR}/lib/cmake"
     "${CURRENT_PACKAGES_DIR}/debug/lib/cmake")
file(INSTALL "${CMAKE_CURRENT_LIST_DIR}/usage" DESTINATION "${CURRENT_PACKAGES_DIR}/share/${PORT}")
file(WRITE "${CURRENT_PACKAGES_DIR}/share/${PORT}/copyright" "The authors of KestrinProfile.\n")
