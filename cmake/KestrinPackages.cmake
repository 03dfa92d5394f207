# Debian packages, by CPack; `./dev packages` builds and checks them.
#
#   libkestrinc0.1         KestrinC, the library for C, whose binary interface is the one that is kept
#   libkestrin-profile-dev the libraries for C++, static, with their headers, and what KestrinC is linked by
#   kestrin-profile-tools  the programs
#
# A build of shared libraries makes libkestrin-profile0.1 of those instead of the first one.

option(KESTRIN_PACKAGES "Install what Debian packages have beside the files of the project, and let cpack make them"
       OFF)
if(NOT KESTRIN_PACKAGES)
    return()
endif()
set(KESTRIN_PACKAGE_MAINTAINER "The maintainers of KestrinProfile <maintainers@example.org>" CACHE STRING
    "Name and address that packages carry")

set(abi ${PROJECT_VERSION_MAJOR}.${PROJECT_VERSION_MINOR})
set(runtime_package libkestrinc${abi})
set(runtime_language C)
if(BUILD_SHARED_LIBS)
    set(runtime_package libkestrin-profile${abi})
    set(runtime_language C++)
endif()

set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME kestrin-profile)
set(CPACK_PACKAGE_CONTACT ${KESTRIN_PACKAGE_MAINTAINER})
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_STRIP_FILES ON)
set(CPACK_INSTALL_DEFAULT_DIRECTORY_PERMISSIONS OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE
                                                WORLD_READ WORLD_EXECUTE)
set(CPACK_COMPONENTS_GROUPING IGNORE)
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS ON)

find_program(KESTRIN_GZIP gzip REQUIRED)
mark_as_advanced(KESTRIN_GZIP)
# kestrin_compress(<file> <result>): the same file makes the same result.
function(kestrin_compress file result)
    execute_process(COMMAND ${KESTRIN_GZIP} -9nc ${file} OUTPUT_FILE ${result} COMMAND_ERROR_IS_FATAL ANY)
endfunction()
set(texts ${PROJECT_SOURCE_DIR}/packaging/debian)
set(compressed ${PROJECT_BINARY_DIR}/packages)
kestrin_compress(${texts}/changelog ${compressed}/changelog.gz)
kestrin_compress(${texts}/kestrin-profile-server.1 ${compressed}/kestrin-profile-server.1.gz)

# kestrin_add_debian_package(<component> <package> <section> <what it has>)
macro(kestrin_add_debian_package component package section content)
    list(APPEND CPACK_COMPONENTS_ALL KestrinProfile_${component})
    string(TOUPPER KestrinProfile_${component} key)
    set(CPACK_DEBIAN_${key}_PACKAGE_NAME ${package})
    set(CPACK_DEBIAN_${key}_PACKAGE_SECTION ${section})
    # The summary is the project's.
    set(CPACK_DEBIAN_${key}_DESCRIPTION "${about}\n.\nThis package has ${content}.")
    install(FILES ${compressed}/changelog.gz ${texts}/copyright
            DESTINATION ${CMAKE_INSTALL_DATADIR}/doc/${package} COMPONENT KestrinProfile_${component})
endmacro()

set(about "An application finds out who of a household is watching, and keeps what
each of them has watched, likes, wants to watch and has searched for, with
the household's personalization service.")
if(BUILD_SHARED_LIBS OR KESTRIN_BUILD_C)
    kestrin_add_debian_package(Runtime ${runtime_package} libs "the library that programs in ${runtime_language} load")
    file(CONFIGURE OUTPUT ${compressed}/triggers CONTENT "activate-noawait ldconfig\n")
    set(CPACK_DEBIAN_KESTRINPROFILE_RUNTIME_PACKAGE_CONTROL_EXTRA ${compressed}/triggers)
    # The scripts are those that CPack adds to every package with a shared library.
    file(CONFIGURE OUTPUT ${compressed}/${runtime_package}
         CONTENT "${runtime_package}: maintscript-calls-ldconfig *\n")
    install(FILES ${compressed}/${runtime_package} DESTINATION ${CMAKE_INSTALL_DATADIR}/lintian/overrides
            COMPONENT KestrinProfile_Runtime)
    set(CPACK_DEBIAN_KESTRINPROFILE_RUNTIME_PACKAGE_SHLIBDEPS ON)
    set(dev_depends "${runtime_package} (= ${PROJECT_VERSION}), ")
endif()
kestrin_add_debian_package(Development libkestrin-profile-dev libdevel "what programs are compiled and linked with")
if(NOT BUILD_SHARED_LIBS AND KESTRIN_TRANSPORT STREQUAL "curl")
    string(APPEND dev_depends "libcurl4-openssl-dev | libcurl-dev, zlib1g-dev, ")
endif()
if(NOT BUILD_SHARED_LIBS AND KESTRIN_BUILD_HOUSEHOLD AND KESTRIN_OUTBOX_STORE STREQUAL "sqlite")
    string(APPEND dev_depends "libsqlite3-dev, ")
endif()
set(CPACK_DEBIAN_KESTRINPROFILE_DEVELOPMENT_PACKAGE_DEPENDS "${dev_depends}libc6-dev")

if(KESTRIN_BUILD_CLI AND KESTRIN_BUILD_SERVER)
    kestrin_add_debian_package(Tools kestrin-profile-tools utils "a program for the command line, and a service for tests")
    set(CPACK_DEBIAN_KESTRINPROFILE_TOOLS_PACKAGE_SHLIBDEPS ON)
    set(manual ${compressed}/kestrin-profile.1)
    add_custom_command(
        OUTPUT ${manual}.gz
        COMMAND sh -c "\"$0\" man | \"$1\" -9nc >\"$2\"" $<TARGET_FILE:kestrin-profile> ${KESTRIN_GZIP} ${manual}.gz
        DEPENDS kestrin-profile
        VERBATIM)
    add_custom_target(kestrin_manual ALL DEPENDS ${manual}.gz)
    install(FILES ${manual}.gz ${compressed}/kestrin-profile-server.1.gz
            DESTINATION ${CMAKE_INSTALL_MANDIR}/man1 COMPONENT KestrinProfile_Tools)
endif()

include(CPack)
