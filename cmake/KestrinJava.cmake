# Whether the jar and the native library for Java are built: KESTRIN_JAVA.
#
# Without KestrinC, under sanitizers and with libc++ they are not.
#
#   KESTRIN_BUILD_JAVA  auto  if there is a JDK and this is the top-level project
#                       ON    or an error
#                       OFF

set(KESTRIN_BUILD_JAVA auto CACHE STRING
    "Build the jar and the native library for Java and Kotlin: ON; OFF; or auto, if there is a JDK")
set_property(CACHE KESTRIN_BUILD_JAVA PROPERTY STRINGS auto ON OFF)

set(KESTRIN_JAVA OFF)
# The virtual machine is not made for sanitizers. On Linux it has libstdc++ loaded, whose functions for
# exceptions would be found before those of libc++: the first exception would end the process.
if(NOT KESTRIN_BUILD_C OR KESTRIN_SANITIZE OR KESTRIN_LIBCXX)
    return()
endif()

# kestrin_find_jdk(QUIET | REQUIRED)
macro(kestrin_find_jdk manner)
    find_package(Java 17 ${manner} COMPONENTS Runtime Development)
    if(Java_FOUND AND NOT DEFINED JAVA_HOME AND NOT DEFINED ENV{JAVA_HOME})
        # The header of the compiler's JDK and of no other; FindJNI does not look there by itself.
        file(REAL_PATH ${Java_JAVAC_EXECUTABLE} JAVA_HOME)
        cmake_path(GET JAVA_HOME PARENT_PATH JAVA_HOME)
        cmake_path(GET JAVA_HOME PARENT_PATH JAVA_HOME)
    endif()
    find_package(JNI ${manner} COMPONENTS JVM)
endmacro()

if(KESTRIN_BUILD_JAVA STREQUAL "auto")
    if(PROJECT_IS_TOP_LEVEL)
        # A JDK that was installed since the last time is found: the answer is not kept.
        kestrin_find_jdk(QUIET)
        if(Java_FOUND AND JNI_FOUND)
            set(KESTRIN_JAVA ON)
        endif()
    endif()
elseif(KESTRIN_BUILD_JAVA)
    kestrin_find_jdk(REQUIRED)
    set(KESTRIN_JAVA ON)
endif()
