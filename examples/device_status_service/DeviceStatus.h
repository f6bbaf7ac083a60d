#pragma once

#include <ipc/ByteVector.h>

#include <string>

/// Answers a request for the state of the running machine: "uptime", "loadavg", "meminfo" or "cpuinfo", byte for byte.
/// Any other request opens nothing and is answered with one line that names these.
/// @return the whole content of the kernel's file of that name.
/// @throws std::exception when the file can't be read.
std::string AnswerDeviceStatus(const zeb::tolvo::ipc::ByteVector& request);
