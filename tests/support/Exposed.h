#pragma once

#include <ipc/ZmqClientDealerConnector.h>
#include <ipc/ZmqServerSequentialOnePriority.h>
#include <ipc/ZmqServerSequentialTwoPriorities.h>

/// A server whose protected operations a test drives one by one.
template <typename Server>
struct Exposed : Server
{
    using Server::Server;

    using Server::CreateFrontEndSocket;
    using Server::ProcessConnectionEvents;
    using Server::ReadAndProcessBurstOfRequests;
    using Server::RunServer;
    using Server::StopProcessingMessages;

    using Server::mControlEndpoint;
};

using OnePriority = Exposed<zeb::tolvo::ipc::ZmqServerSequentialOnePriority>;
using TwoPriorities = Exposed<zeb::tolvo::ipc::ZmqServerSequentialTwoPriorities>;

struct ExposedDealerClient : zeb::tolvo::ipc::ZmqClientDealerConnector
{
    using ZmqClientDealerConnector::WaitForResponse;
    using ZmqClientDealerConnector::ZmqClientDealerConnector;
};
