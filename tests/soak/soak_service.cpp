// A service of the soak: answers each request, some time later that is MS at most, with its process id, a space and the
// request, until its standard input ends: soak_service ENDPOINT ADDRESS one|two MS

#include <ipc/convenience/ServerHandle.h>

#include <chrono>
#include <csignal>
#include <random>
#include <string>
#include <thread>
#include <unistd.h>

using namespace zeb::tolvo;

int main(int argc, char** argv)
{
    if (argc != 5) return 2;
    struct sigaction nothing = {};
    nothing.sa_handler = [](int) {};
    sigaction(SIGUSR1, &nothing, nullptr); // no SA_RESTART: it ends whatever call it meets

    const auto type = argv[3] == std::string("two") ? ipc::ServerType::TwoPriorities : ipc::ServerType::OnePriority;
    const auto server = ipc::convenience::MakeServer(argv[1], argv[2], type);
    const std::string id = std::to_string(getpid()) + ' ';
    std::minstd_rand random(static_cast<unsigned int>(getpid()));
    server->RegisterCallback([&](const ipc::ByteVector& request, ipc::ByteVector& response) {
        response.assign(id.begin(), id.end());
        response.insert(response.end(), request.begin(), request.end());
        std::this_thread::sleep_for(std::chrono::milliseconds(random() % (std::stoul(argv[4]) + 1)));
    });
    server->SetStartupMessage(argv[2]);
    if (server->StartListening() != StatusCode::Success) return 1;

    for (char byte = 0; read(STDIN_FILENO, &byte, 1) != 0;) continue; // a signal ends a read, not the service
    return server->StopListening() == StatusCode::Success ? 0 : 1;
}
