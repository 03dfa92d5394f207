# Compiles for another processor with clang and libc++, with the libraries of a root of Debian 12 that `./dev cross`
# makes, and runs what it has compiled in QEMU. KESTRIN_PROCESSOR is aarch64, armhf or s390x.
list(APPEND CMAKE_TRY_COMPILE_PLATFORM_VARIABLES KESTRIN_PROCESSOR)

# What CMake and QEMU call the processor.
set(system_processor ${KESTRIN_PROCESSOR})
set(emulator qemu-${KESTRIN_PROCESSOR}-static)
set(triple ${KESTRIN_PROCESSOR}-linux-gnu)
if(KESTRIN_PROCESSOR STREQUAL "armhf")
    set(system_processor armv7l)
    set(emulator qemu-arm-static)
    set(triple arm-linux-gnueabihf)
elseif(NOT KESTRIN_PROCESSOR MATCHES "^(aarch64|s390x)$")
    message(FATAL_ERROR "KESTRIN_PROCESSOR is aarch64, armhf or s390x, not '${KESTRIN_PROCESSOR}'")
endif()

set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR ${system_processor})
set(CMAKE_SYSROOT ${CMAKE_CURRENT_LIST_DIR}/../../build/cross/${KESTRIN_PROCESSOR}/root)
cmake_path(NORMAL_PATH CMAKE_SYSROOT)
set(CMAKE_LIBRARY_ARCHITECTURE ${triple})
set(CMAKE_CROSSCOMPILING_EMULATOR ${emulator} -L ${CMAKE_SYSROOT})

set(CMAKE_C_COMPILER clang-19)
set(CMAKE_CXX_COMPILER clang++-19)
set(CMAKE_C_COMPILER_TARGET ${triple})
set(CMAKE_CXX_COMPILER_TARGET ${triple})
set(CMAKE_STRIP ${triple}-strip CACHE FILEPATH "Takes symbols away")
set(linker_flags "-L${CMAKE_SYSROOT}/usr/lib/${triple}")
set(CMAKE_CXX_FLAGS_INIT -stdlib=libc++)
set(CMAKE_EXE_LINKER_FLAGS_INIT ${linker_flags})
set(CMAKE_SHARED_LINKER_FLAGS_INIT ${linker_flags})

set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
foreach(kind LIBRARY INCLUDE PACKAGE)
    set(CMAKE_FIND_ROOT_PATH_MODE_${kind} ONLY)
endforeach()
