#pragma once

/// Marks what the shared library exports.
#define TOLVO_IPC_EXPORT __attribute__((visibility("default")))
