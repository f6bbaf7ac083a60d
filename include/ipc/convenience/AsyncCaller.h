#pragma once

#include <ipc/convenience/Caller.h>

#include <cerrno>
#include <condition_variable>
#include <csignal>
#include <cstddef>
#include <functional>
#include <list>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>
#include <sys/eventfd.h>
#include <system_error>
#include <thread>
#include <unistd.h>
#include <utility>

namespace zeb::tolvo::ipc::convenience
{

/// A client of one service for event loops: calls return at once, and a descriptor tells of replies.
///
/// Requests go out one after another, in the order of the calls, from a thread of its own that the first call starts
/// and on which signals are blocked. As with `Caller`, a late reply is lost, never taken for another request's.
///
/// Each request that was taken has its `done` called once, in order, by `Dispatch` alone, whether it was answered or
/// not; after the destruction none is called. Any thread may call `Call`; the loop's thread alone does all else. A
/// forked child must leave by `exec` or `_exit`: it does not have that thread, and the destructor would wait for it.
class AsyncCaller
{
public:
    /// Called with the reply, or with the status that tells why there is none. It may call `Call` and `Dispatch`, and
    /// may destroy this `AsyncCaller`.
    using Done = std::function<void(Reply reply)>;

    /// Creates the descriptor, but no thread and no socket yet.
    /// @param endpoint ZeroMQ endpoint of the service.
    /// @param limit how many requests may wait, for their turn or for `Dispatch`.
    /// @throws std::system_error when no descriptor can be had.
    explicit AsyncCaller(std::string endpoint, std::size_t limit = 1000)
        : mState(std::make_shared<State>(std::move(endpoint), limit))
    {
    }

    AsyncCaller(AsyncCaller&&) = default; ///< What was moved from may only be destroyed.

    /// Waits for the request under way, its time-out at most, and drops the others.
    ~AsyncCaller()
    {
        if (mState) mState->End();
    }

    /// Queues a request and returns at once.
    /// @param request moved in; copied once, into ZeroMQ's message.
    /// @param timeout any duration; it begins when the request goes out.
    /// @param done called once the request has ended; not empty.
    /// @return false when the limit is reached: then the request was not taken, and `done` is not called.
    /// @throws std::system_error when the thread can't be created; the request was not taken either.
    [[nodiscard]] bool Call(ByteVector request, Timeout timeout, Done done)
    {
        return mState->Take({std::move(request), timeout, std::move(done), {}});
    }

    /// The same for text.
    /// @param request copied once more.
    /// @param timeout,done as above.
    /// @return as above.
    [[nodiscard]] bool Call(std::string_view request, Timeout timeout, Done done)
    {
        return Call(ByteVector(request.begin(), request.end()), timeout, std::move(done));
    }

    /// The descriptor to wait on: readable while replies wait. This object owns it: do not read or close it. Programs
    /// that this one executes don't inherit it.
    /// @return the same one for life.
    int GetFd() const { return mState->fd; }

    /// Calls the `done` of requests that have ended, at most `limit` of them, and returns; it never waits. While more
    /// have ended the descriptor stays readable, also after a `done` has thrown, whose exception passes through.
    void Dispatch()
    {
        const std::shared_ptr<State> state = mState;            // a `done` may destroy the caller
        for (std::size_t most = state->limit; most > 0; --most) // replies that keep coming must not keep the loop here
        {
            Requests ended = state->PopEnded();
            if (ended.empty()) return;
            ended.front().done(std::move(ended.front().reply));
        }
    }

private:
    struct Request
    {
        ByteVector body;
        Timeout timeout;
        Done done;
        Reply reply;
    };

    using Requests = std::list<Request>; // moves from one to the next without an allocation, which could fail

    struct State
    {
        State(std::string endpoint, std::size_t most) : caller(std::move(endpoint)), limit(most)
        {
            if (fd < 0) throw std::system_error(errno, std::generic_category(), "eventfd");
        }

        ~State() { close(fd); }

        bool Take(Request request)
        {
            Requests taken;
            taken.push_back(std::move(request));
            const std::lock_guard<std::mutex> lock(mutex);
            if (count >= limit) return false;
            if (!worker.joinable()) worker = std::thread([this] { Work(); });
            ++count;
            waiting.splice(waiting.end(), taken);
            changed.notify_one();
            return true;
        }

        void Work()
        {
            // The host's signal handlers run on its own threads, and end no wait here; those of faults must run.
            sigset_t signals;
            sigfillset(&signals);
            for (const int fault : {SIGSEGV, SIGBUS, SIGFPE, SIGILL, SIGTRAP, SIGSYS, SIGABRT})
                sigdelset(&signals, fault);
            pthread_sigmask(SIG_BLOCK, &signals, nullptr);

            std::unique_lock<std::mutex> lock(mutex);
            while (true)
            {
                changed.wait(lock, [this] { return isEnding || !waiting.empty(); });
                if (isEnding) return;
                Requests underWay;
                underWay.splice(underWay.end(), waiting, waiting.begin());
                lock.unlock();
                Ask(underWay.front());
                lock.lock();
                if (ended.empty()) eventfd_write(fd, 1);
                ended.splice(ended.end(), underWay);
            }
        }

        void Ask(Request& request) noexcept
        {
            try
            {
                request.reply = caller.Call(std::exchange(request.body, {}), request.timeout);
            }
            catch (const std::exception&) // that of an allocation is the only one
            {
                request.reply.status = MakeStatusCodeFromErrno(ENOMEM);
            }
        }

        /// @return the request that ended first, if there is one.
        Requests PopEnded()
        {
            Requests first;
            const std::lock_guard<std::mutex> lock(mutex);
            if (ended.empty()) return first;
            first.splice(first.end(), ended, ended.begin());
            --count;
            eventfd_t ignored = 0;
            if (ended.empty()) eventfd_read(fd, &ignored);
            return first;
        }

        void End()
        {
            {
                const std::lock_guard<std::mutex> lock(mutex);
                isEnding = true;
                changed.notify_one();
            }
            if (worker.joinable()) worker.join();
            waiting.clear();
            ended.clear();
        }

        Caller caller; // the worker's
        const std::size_t limit;
        const int fd = eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
        std::mutex mutex; // guards all below
        std::condition_variable changed;
        Requests waiting;
        Requests ended;
        std::size_t count = 0; // waiting, under way or ended
        bool isEnding = false;
        std::thread worker;
    };

    std::shared_ptr<State> mState;
};

} // namespace zeb::tolvo::ipc::convenience
