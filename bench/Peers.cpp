#include "Peers.h"

#include "quillmere/RegistrationService.h"

#include <cerrno>
#include <fcntl.h>
#include <unistd.h>

namespace zeb::tolvo::bench
{

namespace
{

constexpr int kPatienceMs = 10'000;

std::filesystem::path MakeFolder()
{
    std::string path = (std::filesystem::temp_directory_path() / "tolvo-bench-XXXXXX").string();
    Require(mkdtemp(path.data()) != nullptr, "mkdtemp");
    return path;
}

void SetOption(const Socket& socket, int option, int value)
{
    Require(zmq_setsockopt(socket.get(), option, &value, sizeof value) == 0, "zmq_setsockopt");
}

Socket MakeRouter(void* context, const std::string& endpoint)
{
    Socket router = MakeSocket(context, ZMQ_ROUTER);
    SetOption(router, ZMQ_ROUTER_MANDATORY, 1);
    SetOption(router, ZMQ_LINGER, 0);
    Require(zmq_bind(router.get(), endpoint.c_str()) == 0, "zmq_bind");
    return router;
}

void SendBackEverything(void* router)
{
    Frame sender;
    Frame body;
    while (zmq_msg_recv(sender.Get(), router, 0) >= 0 && zmq_msg_recv(body.Get(), router, 0) >= 0)
    {
        // A client of fresh sockets may have gone: its reply is lost, which is its right.
        if (zmq_msg_send(sender.Get(), router, ZMQ_SNDMORE) < 0) continue;
        Require(zmq_msg_send(body.Get(), router, 0) >= 0, "zmq_msg_send");
    }
}

} // namespace

Wiring::Wiring(const std::string& transport)
    : mTransport(transport),
      mFolder(MakeFolder()),
      mConnectors(zmq_ctx_new()),
      mPeers(IsIpc() ? zmq_ctx_new() : nullptr)
{
}

Wiring::~Wiring() { std::filesystem::remove_all(mFolder); }

Caller::Caller(void* context, const std::string& endpoint) : mRouter(MakeRouter(context, endpoint))
{
    SetOption(mRouter, ZMQ_RCVTIMEO, kPatienceMs);
}

void Caller::AwaitServer(const Wiring& wiring, const std::string& identity)
{
    if (wiring.IsIpc())
    {
        Receive();
        return;
    }
    static const ByteVector kNothing;
    // Looking for replies makes the router take note of new connections; sending alone does so once in a while.
    while (!TrySend(identity, kNothing)) IsReplyThere(std::chrono::milliseconds(0));
    Receive();
}

bool Caller::IsReplyThere(std::chrono::milliseconds patience)
{
    zmq_pollitem_t item = PollIn(mRouter);
    return zmq_poll(&item, 1, static_cast<long>(patience.count())) > 0;
}

bool Caller::TrySend(const std::string& identity, const ByteVector& body)
{
    if (zmq_send(mRouter.get(), identity.data(), identity.size(), ZMQ_SNDMORE) < 0)
    {
        Require(zmq_errno() == EHOSTUNREACH, "zmq_send");
        return false;
    }
    Require(zmq_send_const(mRouter.get(), body.data(), body.size(), 0) >= 0, "zmq_send_const");
    return true;
}

void Caller::Send(const std::string& identity, const ByteVector& body)
{
    Require(TrySend(identity, body), "the server's address");
}

Frame& Caller::Receive()
{
    Require(zmq_msg_recv(mFrame.Get(), mRouter.get(), 0) >= 0, "no reply");
    Require(zmq_msg_recv(mFrame.Get(), mRouter.get(), 0) >= 0, "no reply");
    return mFrame;
}

void Caller::Exchange(const std::string& identity, const ByteVector& body)
{
    Send(identity, body);
    if (Receive().Size() != body.size()) throw std::runtime_error("a reply of another size");
}

EchoPeer::EchoPeer(void* context, const std::string& endpoint)
    : mContext(context), mRouter(MakeRouter(context, endpoint)), mThread(SendBackEverything, mRouter.get())
{
}

EchoPeer::~EchoPeer()
{
    zmq_ctx_shutdown(mContext);
    mThread.join();
}

DeskService::DeskService(const std::string& servers, const std::string& clients)
{
    Require(pipe2(mStop, O_CLOEXEC) == 0, "pipe2");
    mThread = std::thread([=] {
        zmq::context_t context;
        desk::RegistrationService service(context, servers, clients, std::chrono::milliseconds(1));
        service.Run(mStop[0]);
    });
}

DeskService::~DeskService()
{
    static_cast<void>(!write(mStop[1], "", 1));
    mThread.join();
    close(mStop[0]);
    close(mStop[1]);
}

} // namespace zeb::tolvo::bench
