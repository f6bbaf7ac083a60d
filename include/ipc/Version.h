#pragma once

/// @file
/// The version of these headers; the build reads it from here.

/// Changes with the binary interface, from 1.0 on. The soname carries it.
#define TOLVO_IPC_VERSION_MAJOR 0
/// Before 1.0, changes when callers must be built again.
#define TOLVO_IPC_VERSION_MINOR 1
/// Changes when callers need not be built again.
#define TOLVO_IPC_VERSION_PATCH 0
