#include <csignal>
#include <iostream>
#include <ipc/convenience/ServerHandle.h>

using namespace zeb::tolvo;

int main()
{
    sigset_t stop{}; // blocked, so that sigwait gets it
    sigaddset(&stop, SIGINT);
    pthread_sigmask(SIG_BLOCK, &stop, nullptr);

    const auto server = ipc::convenience::MakeServer("ipc://desk/servers", "greeter");
    server->RegisterCallback([](const ipc::ByteVector& request, ipc::ByteVector& response) {
        response = request;
        response.insert(response.end(), {' ', 't', 'o', 'o', '\n'});
    });
    server->SetStartupMessage("greeter");
    if (server->StartListening() != StatusCode::Success) return 1;
    std::cout << "the greeter is ready" << std::endl;

    int signal = 0;
    sigwait(&stop, &signal);
} // the server stops
