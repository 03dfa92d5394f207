#pragma once

// KESTRIN_PROFILE_EXPORT marks what a shared KestrinProfile exports; in a static one it is empty.
// KESTRIN_PROFILE_EXCEPTION marks an exception type. It is visible in a static library, too,
// because a handler in another shared library recognises the type by that. The CMake target defines
// KESTRIN_PROFILE_SHARED for those who use a shared KestrinProfile.
#if !defined(_WIN32)
#define KESTRIN_PROFILE_EXCEPTION [[gnu::visibility("default")]]
#elif !defined(KESTRIN_PROFILE_SHARED)
#define KESTRIN_PROFILE_EXCEPTION
#elif defined(KESTRIN_PROFILE_BUILDING)
#define KESTRIN_PROFILE_EXCEPTION __declspec(dllexport)
#else
#define KESTRIN_PROFILE_EXCEPTION __declspec(dllimport)
#endif

#ifdef KESTRIN_PROFILE_SHARED
#define KESTRIN_PROFILE_EXPORT KESTRIN_PROFILE_EXCEPTION
#else
#define KESTRIN_PROFILE_EXPORT
#endif
