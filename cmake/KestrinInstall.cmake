# Installs each library as a package of its own name, for CMake and for pkg-config. An installed folder may
# be moved as a whole.

include(CMakePackageConfigHelpers)
include(KestrinPkgConfig)

# Before 1.0 a minor version may change anything.
set(compatibility SameMajorVersion)
if(PROJECT_VERSION_MAJOR EQUAL 0)
    set(compatibility SameMinorVersion)
endif()

# Of find_package(KestrinProfile COMPONENTS …): component X is the package KestrinX or
# KestrinProfileX beside it.
set(kestrin_components Household C Testing)

# kestrin_install_package(<name> [COMPONENTS <component>…] [DEPENDS <find_dependency() arguments>…])
# The installed package <name>, with the targets that were installed into its export set.
function(kestrin_install_package name)
    cmake_parse_arguments(arg "" "" "COMPONENTS;DEPENDS" ${ARGN})
    set(directory ${CMAKE_INSTALL_LIBDIR}/cmake/${name})
    set(config ${PROJECT_BINARY_DIR}/packages/${name}Config.cmake)
    set(text "include(CMakeFindDependencyMacro)\n")
    foreach(dependency IN LISTS arg_DEPENDS)
        string(APPEND text "find_dependency(${dependency})\n")
    endforeach()
    string(APPEND text "include(\"\${CMAKE_CURRENT_LIST_DIR}/${name}Targets.cmake\")\n")
    if(arg_COMPONENTS)
        string(APPEND text "set(${name}_components ${arg_COMPONENTS})\n"
                           "include(\"\${CMAKE_CURRENT_LIST_DIR}/KestrinComponents.cmake\")\n")
        install(FILES ${PROJECT_SOURCE_DIR}/cmake/KestrinComponents.cmake DESTINATION ${directory})
    endif()
    file(CONFIGURE OUTPUT ${config} CONTENT "${text}" @ONLY)
    write_basic_package_version_file(${PROJECT_BINARY_DIR}/packages/${name}ConfigVersion.cmake
                                     COMPATIBILITY ${compatibility})
    install(FILES ${config} ${PROJECT_BINARY_DIR}/packages/${name}ConfigVersion.cmake
            DESTINATION ${directory})
    install(EXPORT ${name}Targets NAMESPACE ${name}:: DESTINATION ${directory})
endfunction()

# A static library hands its private libraries on to the linker of the application; a shared one
# keeps them to itself.
set(private_dependencies "")
set(private_requires "")
set(private_libs "")
set(household_dependencies "")
set(household_requires "")
if(NOT BUILD_SHARED_LIBS)
    set(private_libs -pthread)
    if(KESTRIN_TRANSPORT STREQUAL "curl")
        set(private_dependencies CURL ZLIB)
        set(private_requires libcurl zlib)
    endif()
    if(KESTRIN_OUTBOX_STORE STREQUAL "sqlite")
        set(household_dependencies SQLite3)
        set(household_requires sqlite3)
    endif()
endif()

# What is there of Rx for who has no CMake: the bundled one, or whichever the compiler finds.
set(rx_flags "")
get_target_property(choice kestrin_rxcpp KESTRIN_RXCPP_CHOICE)
if(choice STREQUAL "bundled")
    set(rx_flags -I\${includedir}/kestrin/compat -DKESTRIN_RXCPP_BUNDLED=1)
endif()

if(KESTRIN_OWN_PLATFORM)
    kestrin_install_package(HalvardMorrow)
    kestrin_install_pkg_config(HalvardMorrow DESCRIPTION "equality of optional sequences")
    kestrin_install_package(HalvardSling DEPENDS KestrinRxcpp Threads ${private_dependencies})
    kestrin_install_pkg_config(
        HalvardSling DESCRIPTION "requests" REQUIRES ${private_requires} LIBS ${private_libs}
        CFLAGS ${rx_flags})
    kestrin_install_package(KestrinConfigManager DEPENDS HalvardSling Threads)
    kestrin_install_pkg_config(KestrinConfigManager DESCRIPTION "its configuration"
                               REQUIRES HalvardSling)
endif()
kestrin_install_package(KestrinProfile COMPONENTS ${kestrin_components}
                        DEPENDS KestrinRxcpp HalvardMorrow HalvardSling KestrinConfigManager)
kestrin_install_pkg_config(KestrinProfile DESCRIPTION "the operations"
                           REQUIRES KestrinConfigManager HalvardSling HalvardMorrow)
if(KESTRIN_BUILD_HOUSEHOLD)
    kestrin_install_package(KestrinHousehold DEPENDS KestrinProfile Threads ${household_dependencies})
    kestrin_install_pkg_config(KestrinHousehold DESCRIPTION "sessions"
                               REQUIRES KestrinProfile ${household_requires})
endif()
if(TARGET KestrinProfileTesting)
    kestrin_install_package(KestrinProfileTesting DEPENDS HalvardSling)
    kestrin_install_pkg_config(KestrinProfileTesting DESCRIPTION "for tests of applications"
                               REQUIRES HalvardSling)
endif()
if(KESTRIN_BUILD_C)
    kestrin_install_package(KestrinC)
endif()
