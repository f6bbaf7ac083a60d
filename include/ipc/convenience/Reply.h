#pragma once

#include <ipc/ByteVector.h>
#include <ipc/convenience/Describe.h>

#include <string>

namespace zeb::tolvo::ipc::convenience
{

/// How a request ended.
struct Reply
{
    StatusCode status{1}; ///< 0 when the request was answered
    ByteVector body;      ///< the reply; empty unless the request was answered

    /// Whether the request was answered.
    explicit operator bool() const { return status == StatusCode{0}; }

    /// @return a copy of the body.
    std::string Text() const { return {body.begin(), body.end()}; }

    /// @return the status in words.
    std::string Describe() const { return convenience::Describe(status); }
};

} // namespace zeb::tolvo::ipc::convenience
