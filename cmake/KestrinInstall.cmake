# Installs each library as a CMake package of its own name.

include(CMakePackageConfigHelpers)

# kestrin_install_package(<name> [<find_dependency() arguments>…])
# The installed package <name>, with the targets that were installed into its export set.
function(kestrin_install_package name)
    set(directory ${CMAKE_INSTALL_LIBDIR}/cmake/${name})
    set(config ${PROJECT_BINARY_DIR}/packages/${name}Config.cmake)
    set(text "include(CMakeFindDependencyMacro)\n")
    foreach(dependency IN LISTS ARGN)
        string(APPEND text "find_dependency(${dependency})\n")
    endforeach()
    string(APPEND text "include(\"\${CMAKE_CURRENT_LIST_DIR}/${name}Targets.cmake\")\n")
    file(CONFIGURE OUTPUT ${config} CONTENT "${text}" @ONLY)
    write_basic_package_version_file(${PROJECT_BINARY_DIR}/packages/${name}ConfigVersion.cmake
                                     COMPATIBILITY SameMinorVersion)
    install(FILES ${config} ${PROJECT_BINARY_DIR}/packages/${name}ConfigVersion.cmake
            DESTINATION ${directory})
    install(EXPORT ${name}Targets NAMESPACE ${name}:: DESTINATION ${directory})
endfunction()

# A static library hands its private libraries on to the linker of the application; a shared one
# keeps them to itself.
set(private_dependencies "")
if(NOT BUILD_SHARED_LIBS AND KESTRIN_TRANSPORT STREQUAL "curl")
    set(private_dependencies CURL ZLIB)
endif()
if(KESTRIN_OWN_PLATFORM)
    kestrin_install_package(HalvardMorrow)
    kestrin_install_package(HalvardSling KestrinRxcpp Threads ${private_dependencies})
    kestrin_install_package(KestrinConfigManager HalvardSling Threads)
endif()
kestrin_install_package(KestrinProfile KestrinRxcpp HalvardMorrow HalvardSling KestrinConfigManager)
if(KESTRIN_BUILD_HOUSEHOLD)
    set(household_dependencies "")
    if(NOT BUILD_SHARED_LIBS AND KESTRIN_OUTBOX_STORE STREQUAL "sqlite")
        set(household_dependencies SQLite3)
    endif()
    kestrin_install_package(KestrinHousehold KestrinProfile Threads ${household_dependencies})
endif()
if(KESTRIN_BUILD_C)
    kestrin_install_package(KestrinC)
endif()
