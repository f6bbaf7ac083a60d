#pragma once

#include <ipc/ByteVector.h>
#include <ipc/OperatingModeInterface.h>

#include <tolvo/StatusCode.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <future>
#include <map>
#include <poll.h>
#include <string>
#include <thread>
#include <vector>

namespace ipc = zeb::tolvo::ipc;
using ipc::ByteVector;
using zeb::tolvo::MakeStatusCodeFromErrno;
using zeb::tolvo::StatusCode;
using Lines = std::vector<std::string>;

constexpr int kPatience = 30'000; // ms that a correct program never needs, however busy the machine

inline ByteVector Bytes(const std::string& text) { return {text.begin(), text.end()}; }

inline std::string Text(const ByteVector& bytes) { return {bytes.begin(), bytes.end()}; }

/// What a server registers with.
inline std::string Registration(const std::string& address)
{
    return R"({"address":")" + address + R"(","type":"register"})";
}

/// Ends a test at its first fatal failure, be it in a helper or on a thread whose future the test awaits.
struct FatalFailuresThrow : testing::EmptyTestEventListener
{
    void OnTestPartResult(const testing::TestPartResult& result) override
    {
        if (result.fatally_failed()) throw testing::AssertionException(result);
    }
};

inline const bool kDoFatalFailuresThrow =
    (testing::UnitTest::GetInstance()->listeners().Append(new FatalFailuresThrow), true);

inline bool IsReadable(int fd, int timeout = kPatience)
{
    pollfd item{fd, POLLIN, 0};
    return poll(&item, 1, timeout) == 1;
}

/// A folder of its own for socket files, removed at the end.
struct TempFolder
{
    TempFolder()
    {
        [this] { ASSERT_NE(mkdtemp(mPath.data()), nullptr); }();
    }

    ~TempFolder() { std::filesystem::remove_all(mPath); }

    std::string Path(const std::string& name) const { return mPath + "/" + name; }

    std::string Endpoint(const std::string& name) const { return "ipc://" + Path(name); }

private:
    std::string mPath = std::filesystem::temp_directory_path() / "tolvo-ipc-XXXXXX";
};

/// @return whether the condition has become true in time.
template <typename Condition>
bool Await(Condition isTrue)
{
    const auto end = std::chrono::steady_clock::now() + std::chrono::milliseconds(kPatience);
    while (!isTrue() && std::chrono::steady_clock::now() < end) std::this_thread::yield();
    return isTrue();
}

/// Expects as many open descriptors at its end as at its start, and awaits them: ZeroMQ closes sockets on a thread of
/// its own.
struct DescriptorsComeBack
{
    ~DescriptorsComeBack()
    {
        Await([&] { return Open() == before; });
        EXPECT_EQ(Open(), before);
    }

    static std::ptrdiff_t Open() { return std::distance(std::filesystem::directory_iterator("/proc/self/fd"), {}); }

    const std::ptrdiff_t before = Open();
};

/// A host that lets its clients wait unless told otherwise.
struct OperatingMode : ipc::OperatingModeInterface
{
    bool IsBlockingForbidden() override { return isForbidden; }

    bool isForbidden = false;
};
