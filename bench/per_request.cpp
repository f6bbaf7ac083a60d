// One side of a number of round trips, for counting what each of them costs: the difference between two numbers of
// round trips, divided by the difference of the numbers, holds nothing of start and stop.

#include "Peers.h"

#include <zebl/RootLogger.h>

#include <iostream>
#include <map>
#include <unistd.h>

namespace zeb::tolvo::bench
{

namespace
{

const std::string kIdentity = "counted";

template <typename Way>
void Serve(void* context, const std::string& endpoint, std::size_t count, const ByteVector& /*body*/)
{
    std::promise<void> isDone;
    const auto handler = [&](const ByteVector& request, ByteVector& response) {
        response = request;
        if (--count == 0) isDone.set_value();
    };
    const typename Way::Server server(context, endpoint, kIdentity, handler, ServerType::OnePriority);
    isDone.get_future().wait();
}

template <typename Way>
void Request(void* context, const std::string& endpoint, std::size_t count, const ByteVector& body)
{
    typename Way::Client client(context, endpoint);
    ByteVector response;
    while (count-- > 0) Ask(client, body, response);
}

void Call(void* context, const std::string& endpoint, std::size_t count, const ByteVector& body)
{
    Caller caller(context, endpoint);
    caller.Receive(); // the server announces itself
    while (count-- > 0) caller.Exchange(kIdentity, body);
}

void EchoUntilInputEnds(void* context, const std::string& endpoint, std::size_t /*count*/, const ByteVector& /*body*/)
{
    const EchoPeer peer(context, endpoint);
    char byte = 0;
    while (read(STDIN_FILENO, &byte, 1) > 0)
    {
    }
}

using Role = void (*)(void* context, const std::string& endpoint, std::size_t count, const ByteVector& body);

const std::map<std::string, Role> kRoles = {
    {"plain-server", Serve<Plain>},     {"plain-client", Request<Plain>},     {"caller", Call},
    {"library-server", Serve<Library>}, {"library-client", Request<Library>}, {"echo", EchoUntilInputEnds},
};

} // namespace

} // namespace zeb::tolvo::bench

int main(int argc, char** argv)
{
    using namespace zeb::tolvo::bench;
    const auto role = kRoles.find(argc == 5 ? argv[1] : "");
    if (role == kRoles.end())
    {
        std::cerr << "usage: per-request ROLE ENDPOINT COUNT BYTES\n";
        return 2;
    }
    zebl::Log::RootLogger::GetInstance().SetLevel(TolvoLogLevel::Error);
    const Context context(zmq_ctx_new());
    role->second(context.get(), argv[2], std::stoul(argv[3]), ByteVector(std::stoul(argv[4]), 'x'));
    return 0;
}
