# GoogleTest, and how a test is declared.

if(KESTRIN_LIBCXX)
    # Debian's compiled GoogleTest is for libstdc++; its sources are installed beside it.
    set(INSTALL_GTEST OFF)
    set(KESTRIN_GOOGLETEST_SOURCE_DIR "/usr/src/googletest" CACHE PATH "Where GoogleTest's sources are")
    add_subdirectory(${KESTRIN_GOOGLETEST_SOURCE_DIR} ${PROJECT_BINARY_DIR}/googletest
                     EXCLUDE_FROM_ALL SYSTEM)
else()
    find_package(GTest REQUIRED)
endif()
include(GoogleTest)

# Against hanging only: no test takes a tenth of it, and none builds a project in it.
set(KESTRIN_TEST_TIMEOUT 1500)
set(KESTRIN_NESTED_BUILD_TIMEOUT 7200)

# Compiled twice as fast; what is tested is optimised all the same. UndefinedBehaviorSanitizer's checks
# of each pointer, half of the time of a test's file, stay with what is tested, too.
set(KESTRIN_TEST_OPTIONS -O0 -g1)
if(KESTRIN_SANITIZE MATCHES "undefined")
    list(APPEND KESTRIN_TEST_OPTIONS -fno-sanitize=null,alignment,object-size,vptr)
endif()

# The development service. A build without it (libc++) drives one that another build made.
set(KESTRIN_SERVER_EXECUTABLE "" CACHE FILEPATH "The development service to test with")
if(KESTRIN_BUILD_SERVER)
    set(kestrin_server $<TARGET_FILE:kestrin-profile-server>)
else()
    set(kestrin_server ${KESTRIN_SERVER_EXECUTABLE})
endif()

# kestrin_test_with_server(<target>)
# A test that starts the development service, which is KESTRIN_SERVER there.
function(kestrin_test_with_server name)
    target_compile_definitions(${name} PRIVATE KESTRIN_SERVER="${kestrin_server}")
    if(KESTRIN_BUILD_SERVER)
        add_dependencies(${name} kestrin-profile-server)
    endif()
endfunction()

# What a few tests are told, which a sanitizer, or ThreadSanitizer alone, keeps from showing what they
# look for.
set(kestrin_under_sanitizer 0)
set(kestrin_under_thread_sanitizer 0)
if(KESTRIN_SANITIZE)
    set(kestrin_under_sanitizer 1)
endif()
if(KESTRIN_SANITIZE MATCHES "thread")
    set(kestrin_under_thread_sanitizer 1)
endif()

# The headers that most tests include, precompiled once for all of them.
function(kestrin_reuse_test_headers name)
    if(KESTRIN_PRECOMPILE_HEADERS AND NOT TARGET kestrin_test_headers)
        file(CONFIGURE OUTPUT ${PROJECT_BINARY_DIR}/kestrin_test_headers.cpp CONTENT "")
        add_library(kestrin_test_headers OBJECT ${PROJECT_BINARY_DIR}/kestrin_test_headers.cpp)
        # As executables are compiled, else they do not take it.
        set_target_properties(kestrin_test_headers PROPERTIES POSITION_INDEPENDENT_CODE OFF)
        target_compile_options(kestrin_test_headers PRIVATE ${KESTRIN_TEST_OPTIONS} -fPIE)
        target_link_libraries(kestrin_test_headers PRIVATE kestrin_warnings GTest::gmock)
        kestrin_precompile(kestrin_test_headers <filesystem> <fstream> <future> <map> <set>
                           <gmock/gmock.h>)
    endif()
    kestrin_precompile(${name} REUSE_FROM kestrin_test_headers)
endfunction()

# All executables of kestrin_add_test.
add_custom_target(kestrin_tests)

# kestrin_add_test(<name> SOURCES … LIBRARIES … [INTERNAL_SOURCES …] [PROPERTIES …])
# A GoogleTest executable; each of its tests is a test of ctest's, run in a process of its own.
# INTERNAL_SOURCES test what a shared library does not export; a build of shared libraries leaves
# them out.
function(kestrin_add_test name)
    cmake_parse_arguments(arg "" "" "SOURCES;INTERNAL_SOURCES;LIBRARIES;PROPERTIES" ${ARGN})
    if(NOT BUILD_SHARED_LIBS)
        list(APPEND arg_SOURCES ${arg_INTERNAL_SOURCES})
    endif()
    if(NOT arg_SOURCES)
        return()
    endif()
    add_executable(${name} ${arg_SOURCES})
    target_include_directories(${name} PRIVATE ${PROJECT_SOURCE_DIR}/tests)
    target_compile_options(${name} PRIVATE ${KESTRIN_TEST_OPTIONS})
    target_link_libraries(${name} PRIVATE kestrin_warnings ${arg_LIBRARIES} GTest::gmock_main)
    kestrin_reuse_test_headers(${name})
    add_dependencies(kestrin_tests ${name})
    gtest_discover_tests(
        ${name}
        TEST_PREFIX "${name}: "
        DISCOVERY_TIMEOUT ${KESTRIN_TEST_TIMEOUT}
        PROPERTIES TIMEOUT ${KESTRIN_TEST_TIMEOUT} ${arg_PROPERTIES})
endfunction()
