#include "support/CapturedLog.h"
#include "support/Faults.h"

#include <ipc/ResponsesFIFO.h>

#include <cstdio>
#include <cstring>
#include <future>
#include <map>

namespace
{

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
        EXPECT_TRUE(IsReadable(fifo)) << body;
        EXPECT_TRUE(fifo.AreResponsesPending()) << body;
        EXPECT_EQ(Text(fifo.PopResponse()), body);
    }
    EXPECT_FALSE(IsReadable(fifo));
    EXPECT_FALSE(fifo.AreResponsesPending());

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
            EXPECT_EQ(Text(fifo.PopResponse()), std::to_string(response));
        const Lines lines = {kTag + "ResponsesFIFO::PushResponse: write" + reason,
                             kTag + "ResponsesFIFO::PopResponse: read" + reason};
        EXPECT_EQ(log.Take(), level == 6 ? lines : Lines{});
    }
}

TEST(ResponsesFIFO, WithoutAPipeItQueuesAndLeavesStandardInputAlone)
{
    CapturedLog log(7);
    ASSERT_NE(std::freopen("/proc/self/exe", "r", stdin), nullptr);
    {
        ipc::ResponsesFIFO fifo;
        faults::Fail("pipe2", EMFILE);
        EXPECT_EQ(fifo.Initialize(), StatusCode::Failure);
        EXPECT_EQ(fifo.GetReadFd(), -1);
        fifo.PushResponse(Bytes("queued"));
        EXPECT_EQ(Text(fifo.PopResponse()), "queued");
    }
    EXPECT_EQ(lseek(STDIN_FILENO, 0, SEEK_CUR), 0); // neither read nor closed
    EXPECT_EQ(log.Take(), Lines{kTag + "Pipe Failed"});
}

TEST(ResponsesFIFO, GivesEachProducersResponsesOnceAndInOrder)
{
    constexpr int kResponses = 5'000;
    const DescriptorsComeBack guard;
    ipc::ResponsesFIFO fifo;
    ASSERT_EQ(fifo.Initialize(), StatusCode::Success);
    const auto produce = [&](char producer) {
        for (int response = 0; response < kResponses; ++response)
        {
            fifo.PushResponse(Bytes(producer + std::to_string(response)));
        }
    };
    std::map<char, int> next = {{'a', 0}, {'b', 0}, {'c', 0}, {'d', 0}};
    std::vector<std::future<void>> producers;
    for (const auto& [name, response] : next) producers.push_back(std::async(std::launch::async, produce, name));
    for (int response = 0; response < 4 * kResponses; ++response)
    {
        ASSERT_TRUE(IsReadable(fifo, kPatience));
        const std::string body = Text(fifo.PopResponse());
        ASSERT_EQ(body.substr(1), std::to_string(next.at(body.at(0))++));
    }
    for (std::future<void>& producer : producers) producer.get();
    EXPECT_FALSE(IsReadable(fifo));
    EXPECT_FALSE(fifo.AreResponsesPending());
    fifo.PushResponse(Bytes("dropped with the queue"));
}

} // namespace
