#pragma once

/// The version of these headers; the build reads it from here. The soname carries the major number.
#define TOLVO_IPC_VERSION_MAJOR 0
#define TOLVO_IPC_VERSION_MINOR 1
#define TOLVO_IPC_VERSION_PATCH 0
