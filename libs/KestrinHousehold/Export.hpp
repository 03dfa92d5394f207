#pragma once

// KESTRIN_HOUSEHOLD_EXPORT marks what a shared KestrinHousehold exports; in a static one it is empty.
// The CMake target defines KESTRIN_HOUSEHOLD_SHARED for those who use a shared KestrinHousehold.
#if !defined(KESTRIN_HOUSEHOLD_SHARED)
#define KESTRIN_HOUSEHOLD_EXPORT
#elif !defined(_WIN32)
#define KESTRIN_HOUSEHOLD_EXPORT [[gnu::visibility("default")]]
#elif defined(KESTRIN_HOUSEHOLD_BUILDING)
#define KESTRIN_HOUSEHOLD_EXPORT __declspec(dllexport)
#else
#define KESTRIN_HOUSEHOLD_EXPORT __declspec(dllimport)
#endif
