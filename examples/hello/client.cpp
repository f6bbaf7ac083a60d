#include <iostream>
#include <ipc/convenience/Caller.h>

using namespace std::chrono_literals;

int main()
{
    zeb::tolvo::ipc::convenience::Caller greeter("ipc://desk/clients/greeter");
    const auto reply = greeter.Call("hi", 2s);
    if (!reply) std::cerr << "no reply: " << reply.Describe() << "\n";
    std::cout << reply.Text();
    return reply ? 0 : 1;
}
