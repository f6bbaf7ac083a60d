#pragma once

#include <ipc/AbstractClientConnector.h>
#include <ipc/Export.h>
#include <ipc/OperatingModeInterface.h>
#include <ipc/ServerType.h>
#include <ipc/ZmqServerConnector.h>

#include <memory>
#include <string>

namespace zeb::tolvo::ipc
{

/// The one object of the process that creates connectors. It owns the ZeroMQ context that they share, from the loading
/// of the library until it is unloaded or the process exits. That end waits until every socket is closed: by then, stop
/// every server and destroy every client.
///
/// The context has descriptors of its own before `main` begins: a program that closes the descriptors that it has
/// inherited must leave those alone. ZeroMQ ends the process (`abort`) when the first socket finds only one to three
/// descriptors left, and when memory runs out.
///
/// Any thread may create connectors at any time. A context that couldn't be created is logged at load; connectors are
/// created all the same, and each reports the failure when it is used.
class TOLVO_IPC_EXPORT ZmqConnectorFactory
{
public:
    /// @return the factory, which is there from the loading of the library on.
    static ZmqConnectorFactory& GetInstance();

    ZmqConnectorFactory(const ZmqConnectorFactory&) = delete;
    ZmqConnectorFactory& operator=(const ZmqConnectorFactory&) = delete;

    /// Creates a persistent client, a `ZmqClientConnector`.
    /// @param endpoint ZeroMQ endpoint of the service, for instance "ipc:///run/clients/status" or "tcp://host:port".
    /// @param operatingMode asked before each wait; must outlive the connector.
    /// @return a client owned by the caller; it connects on its first request.
    std::unique_ptr<AbstractClientConnector> CreateZmqClientConnector(const std::string& endpoint,
                                                                      OperatingModeInterface& operatingMode);

    /// Creates a server that does not listen yet.
    /// @param endpoint ZeroMQ endpoint where the registration service receives servers.
    /// @param identity routing identity of the server, unique at that endpoint: 1 to 255 bytes of any value (253 for
    /// two priorities), the first one not zero.
    /// @param type which server to build; a value that is no enumerator builds the one with one priority.
    /// @return a stopped server. The caller owns it: `RegisterCallback`, `SetStartupMessage`, `StartListening`, later
    /// `StopListening`, then `delete`.
    /// @throws std::length_error as `ZmqServerSequentialTwoPriorities`.
    ZmqServerConnector* CreateZmqServerConnector(const std::string& endpoint, const std::string& identity,
                                                 ServerType type);

private:
    ZmqConnectorFactory();
    ~ZmqConnectorFactory();

    void* mContext;

    static ZmqConnectorFactory mInstance;
};

} // namespace zeb::tolvo::ipc
