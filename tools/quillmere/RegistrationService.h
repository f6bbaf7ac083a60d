#pragma once

#include "quillmere/Connections.h"
#include "quillmere/Router.h"
#include "quillmere/SocketFolder.h"
#include "quillmere/Switchboard.h"

#include <zmq.hpp>

#include <chrono>
#include <deque>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace zeb::tolvo::desk
{

/// Where servers register and clients reach them: a switchboard with its sockets. Used by one thread.
class RegistrationService : private Wires
{
public:
    /// Binds the endpoint of the servers, and in the directory `clients` a socket that tells what there is.
    /// @param clients directory in which a registration binds its address, too.
    /// @param access to each socket.
    /// @param tracer may be empty.
    /// @throws std::exception that tells what can't be used.
    RegistrationService(zmq::context_t& context, const std::string& servers, const std::string& clients,
                        const std::optional<Access>& access, std::chrono::milliseconds quietTime, Tracer tracer = {});

    /// Serves until the descriptor `stop` is readable. May be called again. A registration and each call also bind
    /// again what has lost its socket file: a registration its address, and both the endpoint of the servers.
    void Run(int stop);

    std::vector<ServerReport> Report() const { return mSwitchboard.Report(); }

private:
    void Bind(const std::string& address) override;
    void Restore(std::size_t address) override;
    int SendToServer(std::string_view identity, zmq::message_t body) override;
    int SendToClient(std::size_t address, std::string_view client, zmq::message_t body) override;

    void HangUp(const Message& message) override { CloseConnectionOf(message); }

    std::string PeerOf(const Message& message) override { return desk::PeerOf(message); }

    void AnswerQuestions();
    void RestoreOwn();
    std::vector<zmq::pollitem_t> MakePollItems(int stop);
    std::chrono::milliseconds TimeUntilCatchUp() const;

    zmq::context_t& mContext;
    std::optional<Access> mAccess;
    SocketFolder mFolder;
    Connections mConnections;
    Router mServers;
    Router mRegistry;
    std::deque<Router> mClients; // by number of the address
    Switchboard mSwitchboard;
};

} // namespace zeb::tolvo::desk
