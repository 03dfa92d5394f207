# Compiler flags and helpers that every target of this project shares.

set(KESTRIN_COMPILE_TOGETHER OFF CACHE STRING
    "Compile many sources of a target as one: ON, PROGRAMS (not those of libraries), OFF; a missing include is not found then")

add_library(kestrin_warnings INTERFACE)
# What one source declares is global for the next that is compiled with it.
target_compile_options(
    kestrin_warnings INTERFACE -Wall -Wextra -Wpedantic -Wconversion
                               $<$<NOT:$<BOOL:$<TARGET_PROPERTY:UNITY_BUILD>>>:-Wshadow>)
if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU" AND CMAKE_CXX_COMPILER_VERSION VERSION_LESS 13)
    # At -O3 GCC 12 sees overlaps in std::string's own functions (GCC bug 105651).
    target_compile_options(kestrin_warnings INTERFACE -Wno-restrict)
endif()
if(KESTRIN_WARNINGS_AS_ERRORS)
    target_compile_options(kestrin_warnings INTERFACE -Werror)
endif()

if(KESTRIN_SANITIZE)
    add_compile_options(-fsanitize=${KESTRIN_SANITIZE} -fno-omit-frame-pointer
                        -fno-sanitize-recover=all)
    add_link_options(-fsanitize=${KESTRIN_SANITIZE})
    if(CMAKE_CXX_COMPILER_ID STREQUAL "Clang" AND KESTRIN_SANITIZE MATCHES "thread")
        # In its static form the sanitizer's operator new cannot be replaced, as some tests do.
        execute_process(COMMAND ${CMAKE_CXX_COMPILER} -print-file-name=libclang_rt.tsan-${CMAKE_SYSTEM_PROCESSOR}.so
                        OUTPUT_VARIABLE runtime OUTPUT_STRIP_TRAILING_WHITESPACE)
        cmake_path(GET runtime PARENT_PATH runtime)
        add_link_options(-shared-libsan LINKER:-rpath,${runtime})
    endif()
    if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
        # What a sanitizer adds hides from g++ that a value is there (the manual says so).
        add_compile_options(-Wno-maybe-uninitialized)
    endif()
endif()

# Whoever looks at the libraries closely, or runs the programs under a sanitizer, compiles the programs
# in half the time without this.
option(KESTRIN_OPTIMIZE_PROGRAMS "Optimise the programs as the build type says; OFF: not at all" ON)
option(KESTRIN_PRECOMPILE_HEADERS
       "Precompile the headers of others that tests and programs include; a missing include is not found then"
       OFF)

# kestrin_precompile(<target> <header>… | REUSE_FROM <target>)
function(kestrin_precompile name)
    if(NOT KESTRIN_PRECOMPILE_HEADERS)
        return()
    endif()
    if(ARGV1 STREQUAL "REUSE_FROM")
        target_precompile_headers(${name} ${ARGN})
    else()
        target_precompile_headers(${name} PRIVATE ${ARGN})
    endif()
    # Else ccache takes nothing that includes them from its cache.
    if(CMAKE_CXX_COMPILER_ID MATCHES "Clang")
        target_compile_options(${name} PRIVATE "SHELL:-Xclang -fno-pch-timestamp")
    else()
        target_compile_options(${name} PRIVATE -fpch-preprocess)
    endif()
endfunction()

# kestrin_program(<target> [<header>…])
# How a target of a program is compiled; the headers are those of others that most of its files
# include.
function(kestrin_program name)
    if(NOT KESTRIN_OPTIMIZE_PROGRAMS)
        target_compile_options(${name} PRIVATE -O0)
    endif()
    if(ARGN)
        kestrin_precompile(${name} ${ARGN})
    endif()
endfunction()

# Debian's compiled C++ libraries are built against libstdc++. With libc++ they either fail to link
# or link and misbehave, so nothing compiled in C++ may come from outside in such a build.
if(CMAKE_CXX_FLAGS MATCHES "-stdlib=libc\\+\\+")
    set(KESTRIN_LIBCXX ON)
else()
    set(KESTRIN_LIBCXX OFF)
endif()

# The include root of a library. All share libs/; but an application's own platform libraries have the
# names of ours, so beside those KestrinProfile gets a root that holds nothing else.
function(kestrin_include_root name result)
    set(root ${PROJECT_SOURCE_DIR}/libs)
    if(NOT KESTRIN_OWN_PLATFORM)
        set(root ${PROJECT_BINARY_DIR}/include)
        file(MAKE_DIRECTORY ${root})
        file(CREATE_LINK ${PROJECT_SOURCE_DIR}/libs/${name} ${root}/${name} SYMBOLIC)
    endif()
    set(${result} ${root} PARENT_SCOPE)
endfunction()

# Where installed programs and shared libraries look for the shared libraries beside them: wherever
# the whole tree is moved to.
if(NOT DEFINED CMAKE_INSTALL_RPATH)
    file(RELATIVE_PATH from_programs ${CMAKE_INSTALL_FULL_BINDIR} ${CMAKE_INSTALL_FULL_LIBDIR})
    if(APPLE)
        set(CMAKE_INSTALL_RPATH @loader_path @loader_path/${from_programs})
    else()
        set(CMAKE_INSTALL_RPATH $ORIGIN $ORIGIN/${from_programs})
    endif()
    set(CMAKE_INSTALL_RPATH_USE_LINK_PATH ON)
endif()
# In the build folder they look beside themselves, too: the room for this path stays in what is installed, and
# would be as long as the name of the folder.
set(CMAKE_BUILD_RPATH_USE_ORIGIN ON)

# What is installed belongs to development unless it says otherwise; cmake --install takes one of these with
# --component.
set(CMAKE_INSTALL_DEFAULT_COMPONENT_NAME KestrinProfile_Development)
set(kestrin_library_components
    LIBRARY COMPONENT KestrinProfile_Runtime NAMELINK_COMPONENT KestrinProfile_Development
    RUNTIME COMPONENT KestrinProfile_Runtime)
set(kestrin_program_component RUNTIME COMPONENT KestrinProfile_Tools)

# A library that carries a version and hides what is not marked. Before 1.0 a minor version may change
# the binary interface.
function(kestrin_hide_unmarked name)
    set_target_properties(
        ${name} PROPERTIES VERSION ${PROJECT_VERSION}
                           SOVERSION ${PROJECT_VERSION_MAJOR}.${PROJECT_VERSION_MINOR}
                           CXX_VISIBILITY_PRESET hidden
                           VISIBILITY_INLINES_HIDDEN ON)
endfunction()

# How every shared library of ours is linked on Linux and Android.
function(kestrin_link_for_devices name)
    target_link_options(
        ${name} PRIVATE
        # Threads run in it, and what it hands over at the exit of the process stays behind.
        LINKER:-z,nodelete
        # Phones have pages of this size, too.
        LINKER:-z,max-page-size=16384)
endfunction()

# What every library has that may be shared: it exports what its headers mark and nothing else.
function(kestrin_export_marked name)
    kestrin_hide_unmarked(${name})
    string(REGEX REPLACE "([a-z])([A-Z])" "\\1_\\2" macro ${name})
    string(TOUPPER ${macro} macro)
    set_target_properties(${name} PROPERTIES DEFINE_SYMBOL ${macro}_BUILDING)
    get_target_property(type ${name} TYPE)
    if(NOT type STREQUAL "SHARED_LIBRARY")
        return()
    endif()
    target_compile_definitions(${name} PUBLIC ${macro}_SHARED)
    if(UNIX AND NOT APPLE)
        # Templates of the standard library are visible whatever a compiler is told.
        set(exports ${CMAKE_CURRENT_BINARY_DIR}/${name}.map)
        configure_file(${PROJECT_SOURCE_DIR}/cmake/exports.map.in ${exports} @ONLY)
        target_link_options(${name} PRIVATE LINKER:--version-script=${exports})
        set_property(TARGET ${name} APPEND PROPERTY LINK_DEPENDS ${exports})
        kestrin_link_for_devices(${name})
    endif()
endfunction()

# kestrin_add_library(<name> SOURCES … LINK … [PRIVATE_LINK …] [NOT_INSTALLED <folder>])
# A library of libs/: target <name>, alias <name>::<name>, include root libs/, installed with its
# headers, except those in the folder NOT_INSTALLED.
function(kestrin_add_library name)
    cmake_parse_arguments(arg "" "NOT_INSTALLED" "SOURCES;LINK;PRIVATE_LINK" ${ARGN})
    add_library(${name} ${arg_SOURCES})
    add_library(${name}::${name} ALIAS ${name})
    kestrin_export_marked(${name})
    target_compile_features(${name} PUBLIC cxx_std_20)
    kestrin_include_root(${name} root)
    target_include_directories(
        ${name} PUBLIC $<BUILD_INTERFACE:${root}>
                       $<INSTALL_INTERFACE:${CMAKE_INSTALL_INCLUDEDIR}>)
    if(BUILD_SHARED_LIBS)
        # Linked once and for all: nobody who uses the installed library has to find these.
        list(TRANSFORM arg_PRIVATE_LINK REPLACE "(.+)" "$<BUILD_INTERFACE:\\1>")
    endif()
    target_link_libraries(${name} PUBLIC ${arg_LINK}
                                  PRIVATE $<BUILD_INTERFACE:kestrin_warnings>
                                          $<BUILD_INTERFACE:kestrin_internal> ${arg_PRIVATE_LINK})
    install(TARGETS ${name} EXPORT ${name}Targets ${kestrin_library_components})
    if(arg_NOT_INSTALLED)
        set(not_installed PATTERN ${arg_NOT_INSTALLED} EXCLUDE)
    endif()
    install(DIRECTORY ${CMAKE_CURRENT_SOURCE_DIR}/ DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/${name}
            FILES_MATCHING PATTERN "*.hpp" PATTERN "internal" EXCLUDE ${not_installed})
endfunction()

# kestrin_add_fake(<library> <name> SOURCES …)
# What the tests of applications use in the place of a part of a library: <library>::<name>, installed
# with it; a static library of its own, so that no application ships it.
function(kestrin_add_fake library name)
    cmake_parse_arguments(arg "" "" "SOURCES" ${ARGN})
    set(target ${library}${name})
    add_library(${target} STATIC ${arg_SOURCES})
    add_library(${library}::${name} ALIAS ${target})
    set_target_properties(${target} PROPERTIES EXPORT_NAME ${name})
    target_link_libraries(${target} PUBLIC ${library} PRIVATE $<BUILD_INTERFACE:kestrin_warnings>)
    install(TARGETS ${target} EXPORT ${library}Targets)
endfunction()
