# Chooses the Rx that the library uses, and defines the target that everything links for it.
#
# In the source tree it defines the interface library `kestrin_rxcpp` with the alias
# `Kestrin::rxcpp`.
#
#   KESTRIN_RXCPP              auto       an installed RxCpp if this compiler takes it, else the
#                                         bundled subset
#                              installed  an installed RxCpp, or an error
#                              bundled    the bundled subset
#   KESTRIN_RXCPP_INCLUDE_DIR  the directory that holds rxcpp/rx-lite.hpp, to use that RxCpp and
#                              look for no other
#
# The target has the property KESTRIN_RXCPP_CHOICE, `installed` or `bundled`. With the subset it
# also has the definition KESTRIN_RXCPP_BUNDLED=1.
#
# It also installs the target, the headers of the subset and itself as the package KestrinRxcpp,
# which the other packages of this project find_dependency(). A program must use the Rx that the
# libraries were built with, because their interfaces consist of its types. So an installed package
# looks only for the place of the headers again; if they are missing it is not found.

# Sets `result` to the directory of an installed RxCpp, or to an empty string.
function(kestrin_rxcpp_find result)
    set(${result} "" PARENT_SCOPE)
    if(KESTRIN_RXCPP_INCLUDE_DIR)
        if(NOT EXISTS "${KESTRIN_RXCPP_INCLUDE_DIR}/rxcpp/rx-lite.hpp")
            message(FATAL_ERROR "KESTRIN_RXCPP_INCLUDE_DIR is '${KESTRIN_RXCPP_INCLUDE_DIR}', "
                                "which does not hold rxcpp/rx-lite.hpp.")
        endif()
        set(${result} "${KESTRIN_RXCPP_INCLUDE_DIR}" PARENT_SCOPE)
        return()
    endif()

    if(NOT TARGET rxcpp AND NOT TARGET rxcpp::rxcpp)
        find_package(rxcpp CONFIG QUIET)
    endif()
    foreach(target IN ITEMS rxcpp::rxcpp rxcpp)
        if(TARGET ${target})
            kestrin_rxcpp_directory_of_target(${target} directory)
            if(directory)
                set(${result} "${directory}" PARENT_SCOPE)
                return()
            endif()
        endif()
    endforeach()

    find_path(KESTRIN_RXCPP_FOUND_DIR NAMES rxcpp/rx-lite.hpp)
    mark_as_advanced(KESTRIN_RXCPP_FOUND_DIR)
    if(KESTRIN_RXCPP_FOUND_DIR)
        set(${result} "${KESTRIN_RXCPP_FOUND_DIR}" PARENT_SCOPE)
    endif()
endfunction()

# Sets `result` to the directory from which <rxcpp/...> resolves. The package of RxCpp names the
# directory below it.
function(kestrin_rxcpp_directory_of_target target result)
    set(${result} "" PARENT_SCOPE)
    get_target_property(directories ${target} INTERFACE_INCLUDE_DIRECTORIES)
    if(NOT directories)
        return()
    endif()
    string(REGEX REPLACE "\\$<(BUILD|INSTALL)_INTERFACE:([^>]*)>" "\\2" directories
                         "${directories}")
    foreach(directory IN LISTS directories)
        get_filename_component(parent "${directory}" DIRECTORY)
        foreach(candidate IN ITEMS "${directory}" "${parent}")
            if(EXISTS "${candidate}/rxcpp/rx-lite.hpp")
                set(${result} "${candidate}" PARENT_SCOPE)
                return()
            endif()
        endforeach()
    endforeach()
endfunction()

# Sets `result` to whether the current compiler takes the RxCpp in `directory`. The answer is kept
# for this compiler, its flags and the directory.
function(kestrin_rxcpp_compiles directory result)
    string(CONCAT question "${directory};${CMAKE_CXX_COMPILER};${CMAKE_CXX_COMPILER_VERSION};"
                  "${CMAKE_CXX_FLAGS}")
    string(SHA1 question "${question}")
    set(known KESTRIN_RXCPP_PROBE_${question})
    if(NOT DEFINED ${known})
        set(CMAKE_TRY_COMPILE_TARGET_TYPE STATIC_LIBRARY)
        set(source "${CMAKE_CURRENT_BINARY_DIR}/CMakeFiles/kestrin_rxcpp_probe.cpp")
        file(WRITE "${source}" [[
#include <rxcpp/rx-lite.hpp>
#include <rxcpp/operators/rx-map.hpp>
#include <rxcpp/operators/rx-tap.hpp>

#include <exception>

int probe() {
    int seen = 0;
    const rxcpp::observable<long> numbers =
        rxcpp::observable<>::create<int>([](rxcpp::subscriber<int> subscriber) {
            subscriber.add([] {});
            subscriber.on_next(1);
            subscriber.on_error(std::make_exception_ptr(1));
        }) |
        rxcpp::operators::map([](int value) { return static_cast<long>(value); }) |
        rxcpp::operators::tap([&seen](long) { ++seen; });
    rxcpp::composite_subscription subscription =
        numbers.subscribe([&seen](long) { ++seen; }, [&seen](std::exception_ptr) { ++seen; });
    subscription.unsubscribe();
    return seen;
}
]])
        try_compile(
            answer "${CMAKE_CURRENT_BINARY_DIR}/CMakeFiles/kestrin_rxcpp_probe" "${source}"
            CMAKE_FLAGS "-DINCLUDE_DIRECTORIES=${directory}"
            COMPILE_DEFINITIONS -w
            CXX_STANDARD 20
            CXX_STANDARD_REQUIRED ON
            OUTPUT_VARIABLE log)
        file(WRITE "${CMAKE_CURRENT_BINARY_DIR}/CMakeFiles/kestrin_rxcpp_probe.log" "${log}")
        set(${known} "${answer}" CACHE INTERNAL "")
        unset(answer CACHE)
    endif()
    set(${result} "${${known}}" PARENT_SCOPE)
endfunction()

# Sets `result` to a directory in the build folder with a copy of the RxCpp in `directory` that
# compilers take which look into templates before they are used (Clang 19, GCC 14), or to an empty
# string if what they refuse is not there. RxCpp up to 4.1.1 and its head define an assignment that
# assigns to a constant member; nothing uses it, and the copy does without. The headers include
# each other by quotes, so one that came earlier on the path would not be found in the place of that
# one: all are copied.
function(kestrin_rxcpp_mend directory result)
    set(${result} "" PARENT_SCOPE)
    set(header rxcpp/rx-notification.hpp)
    if(NOT EXISTS "${directory}/${header}")
        return()
    endif()
    file(READ "${directory}/${header}" text)
    string(REGEX REPLACE "(operator=\\(on_error_notification [a-z]+\\)) *{ *ep *=[^}]*}"
                         "\\1 = delete;" mended "${text}")
    if(mended STREQUAL text)
        return()
    endif()

    string(SHA1 origin "${directory}")
    string(SUBSTRING "${origin}" 0 8 origin)
    set(copy "${CMAKE_BINARY_DIR}/kestrin_rxcpp/${origin}")
    file(COPY "${directory}/rxcpp" DESTINATION "${copy}"
         FILES_MATCHING PATTERN "*.hpp" PATTERN "rx-notification.hpp" EXCLUDE)
    set(present "")
    if(EXISTS "${copy}/${header}")
        file(READ "${copy}/${header}" present)
    endif()
    if(NOT mended STREQUAL present)
        file(WRITE "${copy}/${header}" "${mended}")
    endif()
    set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS "${directory}/${header}")
    set(${result} "${copy}" PARENT_SCOPE)
endfunction()

# Looks for an RxCpp that compiles, as it is or mended. Sets `directory_result` to its directory, or
# to an empty string and `reason_result` to why there is none.
function(kestrin_rxcpp_find_usable directory_result reason_result)
    set(${directory_result} "" PARENT_SCOPE)
    set(${reason_result} "" PARENT_SCOPE)
    kestrin_rxcpp_find(found)
    set(directory "${found}")
    if(NOT directory)
        set(${reason_result} "no RxCpp is installed" PARENT_SCOPE)
        return()
    endif()
    kestrin_rxcpp_compiles("${directory}" compiles)
    if(NOT compiles)
        kestrin_rxcpp_mend("${directory}" copy)
        if(copy)
            kestrin_rxcpp_compiles("${copy}" compiles)
            set(directory "${copy}")
        endif()
    endif()
    if(NOT compiles)
        string(CONCAT reason "the RxCpp in ${found} does not compile with "
                      "${CMAKE_CXX_COMPILER_ID} ${CMAKE_CXX_COMPILER_VERSION}")
        set(${reason_result} "${reason}" PARENT_SCOPE)
        return()
    endif()
    set(${directory_result} "${directory}" PARENT_SCOPE)
endfunction()

# Makes `target` provide the RxCpp in `directory`, or the subset if that is empty. What it sets
# stays out of the exported package, which decides again.
function(kestrin_rxcpp_provide target directory)
    find_package(Threads REQUIRED)
    if(CMAKE_THREAD_LIBS_INIT)
        target_link_libraries(${target} INTERFACE $<BUILD_INTERFACE:${CMAKE_THREAD_LIBS_INIT}>)
    endif()
    if(directory)
        target_include_directories(${target} SYSTEM INTERFACE $<BUILD_INTERFACE:${directory}>)
    else()
        target_link_libraries(${target} INTERFACE $<BUILD_INTERFACE:Kestrin::bundled_rxcpp>)
        target_compile_definitions(${target}
                                   INTERFACE $<BUILD_INTERFACE:KESTRIN_RXCPP_BUNDLED=1>)
    endif()
endfunction()

# Decides in the source tree and defines kestrin_rxcpp.
function(kestrin_rxcpp_define)
    set(KESTRIN_RXCPP "auto" CACHE STRING "The Rx to use: auto, installed or bundled")
    set_property(CACHE KESTRIN_RXCPP PROPERTY STRINGS auto installed bundled)
    set(KESTRIN_RXCPP_INCLUDE_DIR "" CACHE PATH "The directory that holds rxcpp/rx-lite.hpp")
    if(NOT KESTRIN_RXCPP MATCHES "^(auto|installed|bundled)$")
        message(FATAL_ERROR "KESTRIN_RXCPP is '${KESTRIN_RXCPP}'; it must be auto, installed or "
                            "bundled.")
    endif()

    set(directory "")
    set(reason "as KESTRIN_RXCPP demands")
    if(NOT KESTRIN_RXCPP STREQUAL "bundled")
        kestrin_rxcpp_find_usable(directory reason)
    endif()
    if(NOT directory AND KESTRIN_RXCPP STREQUAL "installed")
        message(FATAL_ERROR "KESTRIN_RXCPP is 'installed', but ${reason}. Install RxCpp, set "
                            "KESTRIN_RXCPP_INCLUDE_DIR, or set KESTRIN_RXCPP to auto or bundled.")
    endif()

    if(NOT TARGET kestrin_bundled_rxcpp)
        add_subdirectory("${CMAKE_CURRENT_FUNCTION_LIST_DIR}/../compat/rxcpp"
                         "${CMAKE_CURRENT_BINARY_DIR}/kestrin_bundled_rxcpp")
    endif()
    add_library(kestrin_rxcpp INTERFACE)
    add_library(Kestrin::rxcpp ALIAS kestrin_rxcpp)
    kestrin_rxcpp_provide(kestrin_rxcpp "${directory}")
    if(directory)
        set(choice installed)
        message(STATUS "Rx: installed RxCpp in ${directory}")
    else()
        set(choice bundled)
        message(STATUS "Rx: bundled subset (${reason})")
    endif()
    set_target_properties(kestrin_rxcpp PROPERTIES EXPORT_NAME rxcpp
                                                   KESTRIN_RXCPP_CHOICE ${choice})
    kestrin_rxcpp_install(${choice})
endfunction()

# Installs the package KestrinRxcpp.
function(kestrin_rxcpp_install choice)
    include(GNUInstallDirs)
    set(package ${CMAKE_INSTALL_LIBDIR}/cmake/KestrinRxcpp)
    set(config "${CMAKE_CURRENT_BINARY_DIR}/CMakeFiles/KestrinRxcppConfig.cmake")
    file(WRITE "${config}" "set(KestrinRxcpp_CHOICE ${choice})\n"
         "include(\"\${CMAKE_CURRENT_LIST_DIR}/KestrinRxcppTargets.cmake\")\n"
         "include(\"\${CMAKE_CURRENT_LIST_DIR}/KestrinRxcpp.cmake\")\n")
    install(TARGETS kestrin_rxcpp EXPORT KestrinRxcppTargets)
    install(EXPORT KestrinRxcppTargets NAMESPACE Kestrin:: DESTINATION ${package})
    install(FILES "${config}" "${CMAKE_CURRENT_FUNCTION_LIST_FILE}" DESTINATION ${package})
endfunction()

# Completes the imported target of the package, which was built with `choice`. Sets `failure` to
# why it cannot.
function(kestrin_rxcpp_complete_import choice failure)
    set(${failure} "" PARENT_SCOPE)
    get_target_property(present Kestrin::rxcpp KESTRIN_RXCPP_CHOICE)
    if(present STREQUAL choice)
        return()
    elseif(present)
        set(${failure} "it needs the ${choice} Rx, but this build uses the ${present} one"
            PARENT_SCOPE)
        return()
    endif()

    set(directory "")
    if(choice STREQUAL "installed")
        kestrin_rxcpp_find_usable(directory reason)
        if(NOT directory)
            set(${failure} "it was built with an installed RxCpp, but ${reason}" PARENT_SCOPE)
            return()
        endif()
    endif()
    kestrin_rxcpp_provide(Kestrin::rxcpp "${directory}")
    set_target_properties(Kestrin::rxcpp PROPERTIES KESTRIN_RXCPP_CHOICE ${choice})
endfunction()

if(DEFINED KestrinRxcpp_CHOICE)
    kestrin_rxcpp_complete_import(${KestrinRxcpp_CHOICE} KestrinRxcpp_FAILURE)
    if(KestrinRxcpp_FAILURE)
        set(KestrinRxcpp_FOUND FALSE)
        set(KestrinRxcpp_NOT_FOUND_MESSAGE "${KestrinRxcpp_FAILURE}")
    endif()
    unset(KestrinRxcpp_CHOICE)
    unset(KestrinRxcpp_FAILURE)
elseif(NOT TARGET kestrin_rxcpp)
    kestrin_rxcpp_define()
endif()
