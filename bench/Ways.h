#pragma once

#include "PlainClient.h"
#include "PlainServer.h"

#include <ipc/OperatingModeInterface.h>
#include <ipc/ResponsesFIFO.h>
#include <ipc/ZmqClientConnector.h>
#include <ipc/ZmqClientDealerConnector.h>
#include <ipc/ZmqServerSequentialOnePriority.h>
#include <ipc/ZmqServerSequentialTwoPriorities.h>

#include <memory>
#include <stdexcept>
#include <string>
#include <utility>

namespace zeb::tolvo::bench
{

// The library behind the operations of the hand-written classes. The connectors are made without the factory, whose
// context nobody else reaches: over inproc both ends must share one.

class LibraryServer
{
public:
    LibraryServer(void* context, const std::string& endpoint, const std::string& identity, Handler handler,
                  ServerType type)
    {
        if (type == ServerType::OnePriority)
            mServer = std::make_unique<ipc::ZmqServerSequentialOnePriority>(endpoint, context, identity);
        else
            mServer = std::make_unique<ipc::ZmqServerSequentialTwoPriorities>(endpoint, context, identity);
        mServer->RegisterCallback(std::move(handler));
        mServer->SetStartupMessage(identity);
        if (mServer->StartListening() != StatusCode::Success) throw std::runtime_error("StartListening");
    }

    ~LibraryServer() { Stop(); }

    LibraryServer(const LibraryServer&) = delete;
    LibraryServer& operator=(const LibraryServer&) = delete;

    void Stop()
    {
        if (mServer->StopListening() != StatusCode::Success) throw std::runtime_error("StopListening");
    }

private:
    std::unique_ptr<ipc::ZmqServerConnector> mServer;
};

class LibraryClient
{
public:
    LibraryClient(void* context, const std::string& endpoint) : mClient(endpoint, mOperatingMode, context) {}

    bool SendRequest(const ByteVector& request, ByteVector& response, int timeout)
    {
        return mClient.SendRequest(request, response, timeout) == StatusCode::Success;
    }

private:
    struct MayWait : ipc::OperatingModeInterface
    {
        bool IsBlockingForbidden() override { return false; }
    };

    MayWait mOperatingMode;
    ipc::ZmqClientConnector mClient;
};

class LibraryDealerClient
{
public:
    LibraryDealerClient(void* context, const std::string& endpoint, const std::string& interruptEndpoint)
        : mClient(context, endpoint, interruptEndpoint)
    {
    }

    bool SendRequest(const ByteVector& request, ByteVector& response, int timeout)
    {
        return mClient.SendRequest(request, response, timeout) == StatusCode::Success;
    }

private:
    ipc::ZmqClientDealerConnector mClient;
};

class LibraryFifo
{
public:
    LibraryFifo()
    {
        if (mFifo.Initialize() != StatusCode::Success) throw std::runtime_error("Initialize");
    }

    void Push(const ByteVector& response) { mFifo.PushResponse(response); }

    ByteVector Pop() { return mFifo.PopResponse(); }

    int GetReadFd() const { return mFifo.GetReadFd(); }

private:
    ipc::ResponsesFIFO mFifo;
};

struct Plain
{
    using Server = PlainServer;
    using Client = PlainClient;
    using DealerClient = PlainDealerClient;
    using Fifo = PlainFifo;
};

struct Library
{
    using Server = LibraryServer;
    using Client = LibraryClient;
    using DealerClient = LibraryDealerClient;
    using Fifo = LibraryFifo;
};

inline void Echo(const ByteVector& request, ByteVector& response) { response = request; }

constexpr int kPatienceMs = 10'000; // that a request which works never needs

/// @throws std::runtime_error when no whole reply comes: then nothing measured counts.
template <typename Client>
void Ask(Client& client, const ByteVector& request, ByteVector& response)
{
    if (!client.SendRequest(request, response, kPatienceMs)) throw std::runtime_error("no reply");
    if (response.size() != request.size()) throw std::runtime_error("a reply of another size");
}

} // namespace zeb::tolvo::bench
