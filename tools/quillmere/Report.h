#pragma once

#include "quillmere/Switchboard.h"

#include <chrono>
#include <string>
#include <string_view>
#include <vector>

namespace zeb::tolvo::desk
{

/// A client's routing id, legible: the digits of one that ZeroMQ made.
std::string ClientName(std::string_view client);

/// A frame on one line: when, between whom, bytes, for a reply how long it took, and how the body begins. Names that
/// are not long leave it within 79 columns. Empty for what is no frame.
std::string TraceLine(const Passage& passage, std::chrono::system_clock::time_point now);

/// A heading and a line for each server, each with its newline.
std::string Table(const std::vector<ServerReport>& reports);

} // namespace zeb::tolvo::desk
