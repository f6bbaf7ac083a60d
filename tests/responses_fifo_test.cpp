#include "support/FailureTable.h"

#include <ipc/ResponsesFIFO.h>

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <poll.h>
#include <set>
#include <thread>
#include <unistd.h>

namespace
{

const std::string kTag = "[zeb.ipc.transport.connectors.rpc.library] ResponsesFIFO::";

bool IsReadable(const ipc::ResponsesFIFO& fifo, int timeout = 0)
{
    pollfd item{fifo.GetReadFd(), POLLIN, 0};
    return poll(&item, 1, timeout) == 1;
}

TEST(ResponsesFIFO, IsReadableWhileResponsesAreQueued)
{
    CapturedLog log(7);
    ipc::ResponsesFIFO fifo;
    ASSERT_EQ(fifo.Initialize(), StatusCode::Success);
    const Lines bodies = {"one", "", "three"};
    for (const std::string& body : bodies)
        fifo.PushResponse(Bytes(body));
    for (const std::string& body : bodies)
    {
        EXPECT_TRUE(IsReadable(fifo) && fifo.AreResponsesPending());
        EXPECT_EQ(Text(fifo.PopResponse()), body);
    }
    EXPECT_FALSE(IsReadable(fifo) || fifo.AreResponsesPending());
    EXPECT_EQ(log.Take(), Lines{});

    fifo.PushResponse(Bytes("taken without its byte"));
    EXPECT_EQ(Text(fifo.GetResponse()), "taken without its byte");
    EXPECT_TRUE(IsReadable(fifo));
    EXPECT_EQ(fifo.PopResponse(), ByteVector{});
    EXPECT_FALSE(IsReadable(fifo));
}

TEST(ResponsesFIFO, FullAndEmptyPipeLoseNoResponse)
{
    ipc::ResponsesFIFO fifo;
    ASSERT_EQ(fifo.Initialize(), StatusCode::Success);
    const int capacity = fcntl(fifo.GetReadFd(), F_SETPIPE_SZ, 4096);
    const auto push = [&]
    {
        for (int response = 0; response <= capacity; ++response)
            fifo.PushResponse(Bytes(std::to_string(response)));
    };
    const auto pop = [&]
    {
        for (int response = 0; response <= capacity; ++response)
        {
            EXPECT_EQ(Text(fifo.PopResponse()), std::to_string(response));
        }
    };
    for (const int level : {6, 5})
    {
        CapturedLog log(level);
        push();
        pop();
        const std::string reason = std::string(" failed (errno=") + strerror(EAGAIN) + ")";
        EXPECT_EQ(log.Take(), level == 6 ? (Lines{kTag + "PushResponse: write" + reason, //
                                                  kTag + "PopResponse: read" + reason})
                                         : Lines{});
    }
}

TEST(ResponsesFIFO, WithoutAPipeItQueuesAndTouchesNoDescriptor)
{
    CapturedLog log(7);
    const int standardInput = dup(STDIN_FILENO);
    std::array<int, 2> fds{};
    ASSERT_EQ(pipe2(fds.data(), O_NONBLOCK), 0);
    ASSERT_EQ(write(fds[1], "x", 1), 1);
    dup2(fds[0], STDIN_FILENO);
    {
        ipc::ResponsesFIFO fifo;
        EXPECT_EQ(fifo.GetReadFd(), -1);
        faults::Fail("pipe2", EMFILE);
        EXPECT_EQ(fifo.Initialize(), StatusCode::Failure);
        EXPECT_EQ(log.Take(), Lines{"[zeb.ipc.transport.connectors.rpc.library] Pipe Failed"});
        EXPECT_EQ(fifo.GetReadFd(), -1);
        fifo.PushResponse(Bytes("queued"));
        EXPECT_EQ(Text(fifo.PopResponse()), "queued");
    }
    char byte = 0;
    EXPECT_EQ(read(STDIN_FILENO, &byte, 1), 1);
    EXPECT_EQ(byte, 'x');
    EXPECT_EQ(log.Take(), Lines{});
    dup2(standardInput, STDIN_FILENO);
    for (const int fd : {standardInput, fds[0], fds[1]})
        close(fd);
}

TEST(ResponsesFIFO, GivesEachProducersResponsesOnceAndInOrder)
{
    constexpr int kProducers = 4;
    constexpr int kResponses = 5'000;
    const std::size_t descriptors = OpenDescriptors();
    {
        ipc::ResponsesFIFO fifo;
        ASSERT_EQ(fifo.Initialize(), StatusCode::Success);
        std::vector<std::thread> producers;
        for (int producer = 0; producer < kProducers; ++producer)
        {
            producers.emplace_back(
                [&fifo, producer]
                {
                    for (int response = 0; response < kResponses; ++response)
                    {
                        fifo.PushResponse(Bytes(std::to_string(producer) + ":" + std::to_string(response)));
                    }
                });
        }
        std::array<int, kProducers> next{};
        for (int response = 0; response < kProducers * kResponses; ++response)
        {
            ASSERT_TRUE(IsReadable(fifo, kPatience));
            const std::string body = Text(fifo.PopResponse());
            const auto producer = static_cast<std::size_t>(body.at(0) - '0');
            ASSERT_EQ(body.substr(2), std::to_string(next.at(producer)++));
        }
        for (std::thread& producer : producers)
            producer.join();
        EXPECT_FALSE(IsReadable(fifo) || fifo.AreResponsesPending());
        fifo.PushResponse(Bytes("dropped with the queue"));
    }
    EXPECT_EQ(OpenDescriptors(), descriptors);
}

} // namespace
