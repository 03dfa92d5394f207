#pragma once

// KESTRIN_CONFIG_MANAGER_EXPORT marks what a shared KestrinConfigManager exports; in a static one
// it is empty. KESTRIN_CONFIG_MANAGER_EXCEPTION marks an exception type. It is visible in a static
// library, too, because a handler in another shared library recognises the type by that. The CMake
// target defines KESTRIN_CONFIG_MANAGER_SHARED for those who use a shared KestrinConfigManager.
#if !defined(_WIN32)
#define KESTRIN_CONFIG_MANAGER_EXCEPTION [[gnu::visibility("default")]]
#elif !defined(KESTRIN_CONFIG_MANAGER_SHARED)
#define KESTRIN_CONFIG_MANAGER_EXCEPTION
#elif defined(KESTRIN_CONFIG_MANAGER_BUILDING)
#define KESTRIN_CONFIG_MANAGER_EXCEPTION __declspec(dllexport)
#else
#define KESTRIN_CONFIG_MANAGER_EXCEPTION __declspec(dllimport)
#endif

#ifdef KESTRIN_CONFIG_MANAGER_SHARED
#define KESTRIN_CONFIG_MANAGER_EXPORT KESTRIN_CONFIG_MANAGER_EXCEPTION
#else
#define KESTRIN_CONFIG_MANAGER_EXPORT
#endif
