#pragma once

#include "quillmere/Switchboard.h"

#include <string>
#include <string_view>
#include <vector>

namespace zeb::tolvo::desk
{

/// The name of the socket, in the clients' directory, at which the registration service itself answers.
inline constexpr char kRegistryName[] = ".registry";

/// @return the answer to a request at that socket; to an unknown one, which requests are known.
std::string AnswerQuestion(std::string_view question, const std::vector<ServerReport>& reports);

} // namespace zeb::tolvo::desk
