// Echoes the requests of clients at the endpoint that is given: a service that a test can stop, kill and start.

#include "support/Peers.h"

int main(int, char** argv)
{
    zmq::context_t context;
    Peer router(context, zmq::socket_type::router, argv[1]);
    router.set(zmq::sockopt::rcvtimeo, -1);
    while (true) router.Answer();
}
