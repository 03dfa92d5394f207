#pragma once

// Functions of a shared library that throw the errors of ours.

[[gnu::visibility("default")]] void throwProfileError(int code);
[[gnu::visibility("default")]] void throwConfigurationManagerError();
[[gnu::visibility("default")]] void throwSlingError();
