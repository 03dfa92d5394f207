#pragma once

// KESTRIN_HOUSEHOLD_EXPORT marks what a shared KestrinHousehold exports; in a static one it is
// empty. KESTRIN_HOUSEHOLD_EXCEPTION marks an exception type. It is visible in a static library,
// too, because a handler in another shared library recognises the type by that. The CMake target
// defines KESTRIN_HOUSEHOLD_SHARED for those who use a shared KestrinHousehold.
#if !defined(_WIN32)
#define KESTRIN_HOUSEHOLD_EXCEPTION [[gnu::visibility("default")]]
#elif !defined(KESTRIN_HOUSEHOLD_SHARED)
#define KESTRIN_HOUSEHOLD_EXCEPTION
#elif defined(KESTRIN_HOUSEHOLD_BUILDING)
#define KESTRIN_HOUSEHOLD_EXCEPTION __declspec(dllexport)
#else
#define KESTRIN_HOUSEHOLD_EXCEPTION __declspec(dllimport)
#endif

#ifdef KESTRIN_HOUSEHOLD_SHARED
#define KESTRIN_HOUSEHOLD_EXPORT KESTRIN_HOUSEHOLD_EXCEPTION
#else
#define KESTRIN_HOUSEHOLD_EXPORT
#endif
