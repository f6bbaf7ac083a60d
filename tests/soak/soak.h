#pragma once

#include <ipc/ByteVector.h>

#include <csignal>
#include <cstdint>
#include <cstring>
#include <string_view>

namespace soak
{

using zeb::tolvo::ipc::ByteVector;

/// At the start of every request that is long enough for it.
struct Label
{
    std::uint64_t client = 0;
    std::uint64_t number = 0;
    std::int64_t sentNs = 0; ///< CLOCK_MONOTONIC, which all processes share
};

struct Answer
{
    Label label;                ///< the request's; all zero when that was too short
    std::uint64_t checksum = 0; ///< of the whole request
    std::int64_t service = 0;   ///< process id
};

inline Answer AnswerTo(const ByteVector& request, std::int64_t service)
{
    const std::string_view text(reinterpret_cast<const char*>(request.data()), request.size());
    Answer answer{{}, std::hash<std::string_view>()(text), service};
    if (request.size() >= sizeof answer.label) std::memcpy(&answer.label, request.data(), sizeof answer.label);
    return answer;
}

/// SIGUSR1 ends whatever call it meets, and does nothing else.
inline void LetSignalInterrupt()
{
    struct sigaction action = {};
    action.sa_handler = [](int) {};
    sigaction(SIGUSR1, &action, nullptr); // no SA_RESTART
}

} // namespace soak
