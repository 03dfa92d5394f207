# What a build without CMake finds a library by.

# kestrin_install_pkg_config(<name> DESCRIPTION <text> [REQUIRES <package>…] [LIBS <flag>…] [CFLAGS <flag>…])
# The file <name>.pc, whose prefix is where the file is. An archive names all that it needs, because there is
# no shared library beside it that would do without.
function(kestrin_install_pkg_config name)
    cmake_parse_arguments(arg "" "DESCRIPTION" "REQUIRES;LIBS;CFLAGS" ${ARGN})
    file(RELATIVE_PATH to_prefix ${CMAKE_INSTALL_FULL_LIBDIR}/pkgconfig ${CMAKE_INSTALL_PREFIX})
    list(JOIN arg_REQUIRES ", " requires)
    list(JOIN arg_LIBS " " libs)
    list(JOIN arg_CFLAGS " " cflags)
    get_target_property(type ${name} TYPE)
    if(type STREQUAL "SHARED_LIBRARY")
        get_target_property(definitions ${name} INTERFACE_COMPILE_DEFINITIONS)
        if(definitions)
            list(TRANSFORM definitions PREPEND -D)
            list(JOIN definitions " " definitions)
            string(APPEND cflags " ${definitions}")
        endif()
    endif()
    if(NOT type STREQUAL "INTERFACE_LIBRARY")
        string(PREPEND libs "-L\${libdir} -l${name} ")
    endif()
    configure_file(${PROJECT_SOURCE_DIR}/cmake/library.pc.in ${PROJECT_BINARY_DIR}/packages/${name}.pc
                   @ONLY)
    install(FILES ${PROJECT_BINARY_DIR}/packages/${name}.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
endfunction()
