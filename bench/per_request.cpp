// One side of a number of round trips, for counting what each of them costs: the difference between two numbers of
// round trips, divided by the difference of the numbers, holds nothing of start and stop.

#include "Peers.h"
#include "Ways.h"

#include <zebl/RootLogger.h>

#include <iostream>
#include <string>
#include <unistd.h>

namespace zeb::tolvo::bench
{

namespace
{

const std::string kIdentity = "counted";

template <typename Way>
void Serve(const std::string& endpoint, std::size_t count)
{
    const Context context(zmq_ctx_new());
    std::promise<void> isDone;
    std::size_t answered = 0;
    const auto handler = [&](const ByteVector& request, ByteVector& response) {
        response = request;
        if (++answered == count) isDone.set_value();
    };
    const typename Way::Server server(context.get(), endpoint, kIdentity, handler, ServerType::OnePriority);
    isDone.get_future().wait();
}

template <typename Way>
void Request(const std::string& endpoint, std::size_t count, std::size_t bytes)
{
    const Context context(zmq_ctx_new());
    typename Way::Client client(context.get(), endpoint);
    const ByteVector request(bytes, 'x');
    ByteVector response;
    while (count-- > 0) Ask(client, request, response);
}

void Call(const std::string& endpoint, std::size_t count, std::size_t bytes)
{
    const Context context(zmq_ctx_new());
    Caller caller(context.get(), endpoint);
    const ByteVector body(bytes, 'x');
    caller.Receive(); // the server announces itself
    while (count-- > 0) caller.Exchange(kIdentity, body);
}

void EchoUntilInputEnds(const std::string& endpoint)
{
    const Context context(zmq_ctx_new());
    const EchoPeer peer(context.get(), endpoint);
    char byte = 0;
    while (read(STDIN_FILENO, &byte, 1) > 0)
    {
    }
}

int Run(const std::string& role, const std::string& endpoint, std::size_t count, std::size_t bytes)
{
    if (role == "plain-server")
        Serve<Plain>(endpoint, count);
    else if (role == "library-server")
        Serve<Library>(endpoint, count);
    else if (role == "plain-client")
        Request<Plain>(endpoint, count, bytes);
    else if (role == "library-client")
        Request<Library>(endpoint, count, bytes);
    else if (role == "caller")
        Call(endpoint, count, bytes);
    else if (role == "echo")
        EchoUntilInputEnds(endpoint);
    else
        return 2;
    return 0;
}

} // namespace

} // namespace zeb::tolvo::bench

int main(int argc, char** argv)
{
    zebl::Log::RootLogger::GetInstance().SetLevel(TolvoLogLevel::Error);
    if (argc == 5) return zeb::tolvo::bench::Run(argv[1], argv[2], std::stoul(argv[3]), std::stoul(argv[4]));
    std::cerr << "usage: per-request ROLE ENDPOINT COUNT BYTES\n";
    return 2;
}
