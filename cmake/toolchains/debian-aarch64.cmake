# Compiles for aarch64 with clang and libc++, with the libraries of a root of Debian 12 that `./dev cross`
# makes, and runs what it has compiled in QEMU.
set(triple aarch64-linux-gnu)
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR aarch64)
set(CMAKE_SYSROOT ${CMAKE_CURRENT_LIST_DIR}/../../build/cross/aarch64/root)
cmake_path(NORMAL_PATH CMAKE_SYSROOT)
set(CMAKE_LIBRARY_ARCHITECTURE ${triple})
set(CMAKE_CROSSCOMPILING_EMULATOR qemu-aarch64-static -L ${CMAKE_SYSROOT})

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
