#include "support/CapturedLog.h"
#include "support/Faults.h"

#include <ipc/ResponsesFIFO.h>

#include <cstdio>
#include <cstring>

const std::string kTag = "[zeb.ipc.transport.connectors.rpc.library] ";

struct Fifo : testing::Test
{
    Fifo() { EXPECT_EQ(fifo.Initialize(), StatusCode::Success); }

    const DescriptorsComeBack guard;
    ipc::ResponsesFIFO fifo;
};

TEST_F(Fifo, IsReadableForAnEmptyResponseAndForOneTakenWithoutItsByte)
{
    fifo.PushResponse({});
    EXPECT_TRUE(IsReadable(fifo.GetReadFd(), 0));
    EXPECT_TRUE(fifo.AreResponsesPending());
    EXPECT_EQ(fifo.PopResponse(), ByteVector{});
    EXPECT_FALSE(fifo.AreResponsesPending());
    fifo.PushResponse(Bytes("taken without its byte"));
    EXPECT_EQ(Text(fifo.GetResponse()), "taken without its byte");
    EXPECT_TRUE(IsReadable(fifo.GetReadFd(), 0));
    EXPECT_EQ(fifo.PopResponse(), ByteVector{});
    fifo.PushResponse(Bytes("dropped with the queue"));
}

TEST_F(Fifo, FullAndEmptyPipeLoseNoResponse)
{
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

TEST(FifoWithoutAPipe, QueuesAndLeavesStandardInputAlone)
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

TEST_F(Fifo, IsReadableUntilEachProducersResponsesAreTakenOnceAndInOrder)
{
    constexpr int kResponses = 5'000;
    std::map<char, int> next = {{'a', 0}, {'b', 0}, {'c', 0}, {'d', 0}};
    std::vector<std::future<void>> producers;
    for (const auto& [name, response] : next)
        producers.push_back(std::async(std::launch::async, [this, name = name] {
            for (int number = 0; number < kResponses; ++number) fifo.PushResponse(Bytes(name + std::to_string(number)));
        }));
    for (int response = 0; response < 4 * kResponses; ++response)
    {
        ASSERT_TRUE(IsReadable(fifo.GetReadFd()));
        ASSERT_TRUE(fifo.AreResponsesPending());
        const std::string body = Text(fifo.PopResponse());
        ASSERT_EQ(body.substr(1), std::to_string(next.at(body.at(0))++));
    }
    EXPECT_FALSE(IsReadable(fifo.GetReadFd(), 0));
    EXPECT_FALSE(fifo.AreResponsesPending());
}
