// Echoes the requests of clients at the endpoint that is given: a service that a test can stop, kill and start.

#include <sys/prctl.h>
#include <zmq.hpp>

#include <csignal>

int main(int, char** argv)
{
    prctl(PR_SET_PDEATHSIG, SIGKILL); // it outlives no test, however that ends
    zmq::context_t context;
    zmq::socket_t router(context, zmq::socket_type::router);
    router.bind(argv[1]);
    while (true)
    {
        zmq::message_t client;
        zmq::message_t body;
        if (!router.recv(client) || !router.recv(body)) return 1;
        router.send(client, zmq::send_flags::sndmore);
        router.send(body, zmq::send_flags::none);
    }
}
