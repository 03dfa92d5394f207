#pragma once

// HALVARD_SLING_EXPORT marks what a shared HalvardSling exports; in a static one it is empty.
// HALVARD_SLING_EXCEPTION marks an exception type. It is visible in a static library, too, because
// a handler in another shared library recognises the type by that. The CMake target defines
// HALVARD_SLING_SHARED for those who use a shared HalvardSling.
#if !defined(_WIN32)
#define HALVARD_SLING_EXCEPTION [[gnu::visibility("default")]]
#elif !defined(HALVARD_SLING_SHARED)
#define HALVARD_SLING_EXCEPTION
#elif defined(HALVARD_SLING_BUILDING)
#define HALVARD_SLING_EXCEPTION __declspec(dllexport)
#else
#define HALVARD_SLING_EXCEPTION __declspec(dllimport)
#endif

#ifdef HALVARD_SLING_SHARED
#define HALVARD_SLING_EXPORT HALVARD_SLING_EXCEPTION
#else
#define HALVARD_SLING_EXPORT
#endif
