#pragma once

/// On every constant string of the library: it then exists before the factory, which logs while the library is loaded,
/// in whatever order the object files were linked, and outlives it.
#define TOLVO_IPC_CONSTANT_STRING __attribute__((init_priority(1000)))
