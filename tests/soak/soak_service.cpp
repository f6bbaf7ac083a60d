// A service of the soak: answers until its standard input ends, each request after some time that is MS at most.
// soak_service ENDPOINT ADDRESS one|two MS

#include "soak.h"

#include <ipc/ZmqConnectorFactory.h>

#include <chrono>
#include <memory>
#include <random>
#include <string>
#include <thread>
#include <unistd.h>

using namespace zeb::tolvo;

int main(int argc, char** argv)
{
    if (argc != 5) return 2;
    const auto type =
        std::string_view(argv[3]) == "two" ? ipc::ServerType::TwoPriorities : ipc::ServerType::OnePriority;
    auto& factory = ipc::ZmqConnectorFactory::GetInstance();
    const std::unique_ptr<ipc::ZmqServerConnector> server(factory.CreateZmqServerConnector(argv[1], argv[2], type));
    std::minstd_rand random(static_cast<unsigned int>(getpid()));
    std::uniform_int_distribution<int> milliseconds(0, std::stoi(argv[4]));
    server->RegisterCallback([&](const soak::ByteVector& request, soak::ByteVector& response) {
        const soak::Answer answer = soak::AnswerTo(request, getpid());
        response.resize(sizeof answer);
        std::memcpy(response.data(), &answer, sizeof answer);
        std::this_thread::sleep_for(std::chrono::milliseconds(milliseconds(random)));
    });
    server->SetStartupMessage(argv[2]);
    soak::LetSignalInterrupt();
    if (server->StartListening() != StatusCode::Success) return 1;

    for (char byte = 0; read(STDIN_FILENO, &byte, 1) != 0;) continue; // a signal ends a read, not the service
    return server->StopListening() == StatusCode::Success ? 0 : 1;
}
