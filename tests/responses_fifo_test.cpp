#include "support/CapturedLog.h"
#include "support/Faults.h"
#include "support/Peers.h"

#include <ipc/ResponsesFIFO.h>

#include <gtest/gtest.h>

#include <array>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <poll.h>
#include <thread>
#include <unistd.h>

namespace
{

using Lines = std::vector<std::string>;

const std::string kTag = "[zeb.ipc.transport.connectors.rpc.library] ";

bool IsReadable(const ipc::ResponsesFIFO& fifo, int timeout = 0)
{
    pollfd item{fifo.GetReadFd(), POLLIN, 0};
    return poll(&item, 1, timeout) == 1;
}

TEST(ResponsesFIFO, IsReadableWhileResponsesAreQueued)
{
    ipc::ResponsesFIFO fifo;
    ASSERT_EQ(fifo.Initialize(), StatusCode::Success);
    const Lines bodies = {"one", "", "three"};
    for (const std::string& body : bodies) fifo.PushResponse(Bytes(body));
    for (const std::string& body : bodies)
    {
        EXPECT_TRUE(IsReadable(fifo) && fifo.AreResponsesPending());
        EXPECT_EQ(Text(fifo.PopResponse()), body);
    }
    EXPECT_FALSE(IsReadable(fifo) || fifo.AreResponsesPending());

    fifo.PushResponse(Bytes("taken without its byte"));
    EXPECT_EQ(Text(fifo.GetResponse()), "taken without its byte");
    EXPECT_TRUE(IsReadable(fifo));
    EXPECT_EQ(fifo.PopResponse(), ByteVector{});
}

TEST(ResponsesFIFO, FullAndEmptyPipeLoseNoResponse)
{
    ipc::ResponsesFIFO fifo;
    ASSERT_EQ(fifo.Initialize(), StatusCode::Success);
    const int responses = fcntl(fifo.GetReadFd(), F_SETPIPE_SZ, 4096) + 1;
    const std::string reason = std::string(" failed (errno=") + strerror(EAGAIN) + ")";
    for (const int level : {6, 5})
    {
        CapturedLog log(level);
        for (int response = 0; response < responses; ++response) fifo.PushResponse(Bytes(std::to_string(response)));
        for (int response = 0; response < responses; ++response)
        {
            EXPECT_EQ(Text(fifo.PopResponse()), std::to_string(response));
        }
        const Lines lines = {kTag + "ResponsesFIFO::PushResponse: write" + reason,
                             kTag + "ResponsesFIFO::PopResponse: read" + reason};
        EXPECT_EQ(log.Take(), level == 6 ? lines : Lines{});
    }
}

TEST(ResponsesFIFO, WithoutAPipeItQueuesAndLeavesStandardInputAlone)
{
    CapturedLog log(7);
    std::array<int, 2> fds{};
    const int standardInput = dup(STDIN_FILENO);
    ASSERT_TRUE(pipe(fds.data()) == 0 && write(fds[1], "x", 1) == 1 && dup2(fds[0], STDIN_FILENO) == 0);
    {
        ipc::ResponsesFIFO fifo;
        faults::Fail("pipe2", EMFILE);
        EXPECT_EQ(fifo.Initialize(), StatusCode::Failure);
        EXPECT_EQ(fifo.GetReadFd(), -1);
        fifo.PushResponse(Bytes("queued"));
        EXPECT_EQ(Text(fifo.PopResponse()), "queued");
    }
    char byte = 0;
    EXPECT_TRUE(read(STDIN_FILENO, &byte, 1) == 1 && byte == 'x');
    EXPECT_EQ(log.Take(), Lines{kTag + "Pipe Failed"});
    dup2(standardInput, STDIN_FILENO);
    for (const int fd : {standardInput, fds[0], fds[1]}) close(fd);
}

TEST(ResponsesFIFO, GivesEachProducersResponsesOnceAndInOrder)
{
    constexpr int kResponses = 5'000;
    const std::size_t descriptors = OpenDescriptors();
    {
        ipc::ResponsesFIFO fifo;
        ASSERT_EQ(fifo.Initialize(), StatusCode::Success);
        const auto produce = [&fifo](int producer) {
            for (int response = 0; response < kResponses; ++response)
            {
                fifo.PushResponse(Bytes(std::to_string(producer) + ":" + std::to_string(response)));
            }
        };
        std::array<std::thread, 4> producers;
        int started = 0;
        for (std::thread& producer : producers) producer = std::thread(produce, started++);
        std::array<int, 4> next{};
        for (int response = 0; response < 4 * kResponses; ++response)
        {
            ASSERT_TRUE(IsReadable(fifo, kPatience));
            const std::string body = Text(fifo.PopResponse());
            ASSERT_EQ(body.substr(2), std::to_string(next.at(static_cast<std::size_t>(body.at(0) - '0'))++));
        }
        for (std::thread& producer : producers) producer.join();
        EXPECT_FALSE(IsReadable(fifo) || fifo.AreResponsesPending());
        fifo.PushResponse(Bytes("dropped with the queue"));
    }
    EXPECT_EQ(OpenDescriptors(), descriptors);
}

} // namespace
