#pragma once

#include "PlainClient.h"
#include "PlainServer.h"

#include <ipc/ResponsesFIFO.h>
#include <ipc/ZmqClientConnector.h>
#include <ipc/ZmqClientDealerConnector.h>
#include <ipc/ZmqServerSequentialOnePriority.h>
#include <ipc/ZmqServerSequentialTwoPriorities.h>
#include <ipc/convenience/WaitingAllowed.h>

#include <memory>
#include <stdexcept>
#include <string>
#include <utility>

namespace zeb::tolvo::bench
{

// What a case is measured with. The library's connectors are made without the factory, whose context nobody else
// reaches: over inproc both ends must share one.

inline void RequireSuccess(StatusCode status, const char* call)
{
    if (status != StatusCode::Success) throw std::runtime_error(call);
}

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
        RequireSuccess(mServer->StartListening(), "StartListening");
    }

    ~LibraryServer() { Stop(); }

    void Stop() { RequireSuccess(mServer->StopListening(), "StopListening"); }

private:
    std::unique_ptr<ipc::ZmqServerConnector> mServer;
};

struct LibraryClient : private ipc::convenience::WaitingAllowed, public ipc::ZmqClientConnector
{
    LibraryClient(void* context, const std::string& endpoint) : ZmqClientConnector(endpoint, *this, context) {}
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
    using DealerClient = ipc::ZmqClientDealerConnector;
    using Fifo = ipc::ResponsesFIFO;
};

inline void Echo(const ByteVector& request, ByteVector& response) { response = request; }

/// @throws std::runtime_error when no whole reply comes: then nothing measured counts.
template <typename Client>
void Ask(Client& client, const ByteVector& request, ByteVector& response)
{
    constexpr int kPatienceMs = 10'000; // that a request which works never needs
    RequireSuccess(client.SendRequest(request, response, kPatienceMs), "no reply");
    if (response.size() != request.size()) throw std::runtime_error("a reply of another size");
}

} // namespace zeb::tolvo::bench
