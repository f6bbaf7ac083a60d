#pragma once

#include "quillmere/Registration.h"
#include "quillmere/RequestOrder.h"
#include "quillmere/Router.h"
#include "quillmere/SocketFolder.h"

#include <zmq.hpp>

#include <chrono>
#include <deque>
#include <functional>
#include <map>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace zeb::tolvo::desk
{

/// Where servers register and clients reach them: passes each request to the server of its address and each reply to
/// the client whose turn it is. Used by one thread.
class RegistrationService
{
public:
    /// Binds the endpoint of the servers.
    /// @param clients directory in which a registration binds its address.
    /// @throws std::exception that tells what can't be used.
    RegistrationService(zmq::context_t& context, const std::string& servers, const std::string& clients,
                        std::chrono::milliseconds quietTime);

    /// Serves until the descriptor `stop` is readable.
    void Run(int stop);

private:
    using TimePoint = RequestOrder::TimePoint;

    struct Server;

    struct Address
    {
        Address(zmq::context_t& context, const std::string& endpoint, std::string addressName)
            : name(std::move(addressName)), clients(context, endpoint)
        {
        }

        std::string name;
        Router clients;
        Server* server = nullptr; // of its servers the one that registered last
    };

    struct Server
    {
        std::string identity;
        Address& address; // the same for life
        RequestOrder order;
    };

    std::vector<zmq::pollitem_t> MakePollItems(int stop);
    std::chrono::milliseconds TimeUntilRelease() const;

    void TakeFromServer(Message message, TimePoint now);
    void Register(std::string_view identity, const Registration& registration, TimePoint now);
    Server& FindOrAddServer(std::string_view identity, const Registration& registration, TimePoint now);
    Address& FindOrBindAddress(const std::string& name);
    void Return(Server& server, Message reply, TimePoint now);

    void TakeFromClient(Address& address, Message message, TimePoint now);
    void Forward(Server& server, TimePoint now);
    void ReleaseHeld(TimePoint now);

    zmq::context_t& mContext;
    SocketFolder mFolder;
    std::chrono::milliseconds mQuietTime;
    Router mServersRouter;
    std::deque<Address> mAddresses; // only ever grows at its end, so references and positions stay
    std::map<std::string, Server, std::less<>> mServers;
};

} // namespace zeb::tolvo::desk
