#pragma once

#include "quillmere/Switchboard.h"

#include <chrono>
#include <string>
#include <vector>

namespace zeb::tolvo::desk
{

/// A frame on one line: when, between whom, bytes, for a reply how long it took, and how the body begins. Names that
/// are not long leave it within 79 columns.
std::string TraceLine(const Passage& passage, std::chrono::system_clock::time_point now);

/// A heading and a line for each server, each with its newline.
std::string Table(const std::vector<ServerReport>& reports);

} // namespace zeb::tolvo::desk
