#pragma once

#include <ipc/ZmqConnectorFactory.h>

#include <chrono>
#include <memory>
#include <string>
#include <thread>

namespace zeb::tolvo::ipc::convenience
{

/// Ends a server: stops it, then deletes it.
struct StopAndDelete
{
    /// Waits for a stop: half a second, or what the server thread is doing if that takes longer. While stops fail, it
    /// starts and stops the server again, up to five times, a tenth of a second apart. A server whose thread is left
    /// then is kept for good, since deleting it would end the process; it takes no further request, and the library's
    /// log lines tell why. Never call it from the server's handler: it would join its own thread.
    /// @param server may be listening, stopped or never started; not null.
    void operator()(ZmqServerConnector* server) const noexcept
    {
        constexpr int kAttempts = 5;
        constexpr std::chrono::milliseconds kPause(100);
        Try([&] { server->StopListening(); });
        for (int attempt = 0; attempt < kAttempts && Thread::IsLeft(*server); ++attempt)
        {
            std::this_thread::sleep_for(kPause);
            Try([&] { server->StartListening(); });
            Try([&] { server->StopListening(); });
        }
        if (!Thread::IsLeft(*server)) delete server;
    }

private:
    /// Whether a server can be deleted. No status tells: a stop after one that failed returns 0 although the thread
    /// runs, and of a start's failure nobody knows whether it was the earlier thread's or the new one's.
    struct Thread : ZmqServerConnector
    {
        static bool IsLeft(const ZmqServerConnector& server) { return (server.*(&Thread::mServerThread)).joinable(); }
    };

    template <typename Step>
    static void Try(Step step) noexcept
    {
        try
        {
            step();
        }
        catch (...) // no memory, or no thread for a start: the next attempt may get it
        {
        }
    }
};

/// Owns a server: what it ends with is `StopAndDelete`. Declare it after what its handler uses, and end it before the
/// process or the library ends. Calls go through `->`, by the thread that owns it.
using ServerHandle = std::unique_ptr<ZmqServerConnector, StopAndDelete>;

/// Creates a server that does not listen yet.
/// @param endpoint,identity,type as for `ZmqConnectorFactory::CreateZmqServerConnector`.
/// @return never null.
/// @throws std::length_error as there.
inline ServerHandle MakeServer(const std::string& endpoint, const std::string& identity,
                               ServerType type = ServerType::OnePriority)
{
    return ServerHandle(ZmqConnectorFactory::GetInstance().CreateZmqServerConnector(endpoint, identity, type));
}

} // namespace zeb::tolvo::ipc::convenience
