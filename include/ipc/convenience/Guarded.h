#pragma once

#include <ipc/ByteVector.h>

#include <exception>
#include <utility>

namespace zeb::tolvo::ipc::convenience
{

/// Stands for what a handler threw when that is no `std::exception`.
struct UnknownException : std::exception
{
    /// @return words that say so.
    const char* what() const noexcept override { return "something was thrown that is no std::exception"; }
};

/// Makes a handler for `RegisterCallback` that answers when `handler` throws, where the process would end otherwise.
/// @param handler called as `handler(request, response)`; kept.
/// @param otherwise called as `otherwise(error)` with the `const std::exception&` that was thrown, an
/// `UnknownException` for anything else; `std::current_exception()` is what was thrown. What it returns, text or bytes,
/// is the reply. Where it throws as well, the reply is empty. It is kept, and runs on the server thread as the handler.
/// @return the handler; it never throws.
template <typename Handler, typename Otherwise>
auto Guarded(Handler handler, Otherwise otherwise)
{
    return [handler = std::move(handler), otherwise = std::move(otherwise)](const ByteVector& request,
                                                                            ByteVector& response) mutable noexcept {
        const auto answer = [&](const std::exception& error) {
            try
            {
                const auto reply = otherwise(error);
                response.assign(reply.begin(), reply.end());
            }
            catch (...)
            {
                response.clear();
            }
        };
        try
        {
            handler(request, response);
        }
        catch (const std::exception& error)
        {
            answer(error);
        }
        catch (...)
        {
            answer(UnknownException());
        }
    };
}

} // namespace zeb::tolvo::ipc::convenience
