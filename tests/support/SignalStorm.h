#pragma once

#include <atomic>
#include <csignal>
#include <filesystem>
#include <future>
#include <string>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <unistd.h>

/// While it lives, each thread that doesn't block SIGUSR2 gets it again and again, without SA_RESTART.
struct SignalStorm
{
    ~SignalStorm() { isOver = true; }

    /// Blocks the storm's signals on the calling thread while it lives.
    struct Shelter
    {
        Shelter()
        {
            sigset_t signals;
            sigemptyset(&signals);
            sigaddset(&signals, SIGUSR2);
            pthread_sigmask(SIG_BLOCK, &signals, &before);
        }

        ~Shelter() { pthread_sigmask(SIG_SETMASK, &before, nullptr); }

        sigset_t before{};
    };

    void Send() const
    {
        const Shelter shelter;
        struct sigaction action = {};
        action.sa_handler = [](int) {};
        sigaction(SIGUSR2, &action, nullptr);
        prctl(PR_SET_TIMERSLACK, 1); // or the pause, without which nobody gets anywhere, grows
        constexpr timespec kPause{0, 10'000};
        for (; !isOver; nanosleep(&kPause, nullptr))
            for (const auto& task : std::filesystem::directory_iterator("/proc/self/task"))
                syscall(SYS_tgkill, getpid(), std::stoi(task.path().filename()), SIGUSR2);
    }

    std::atomic<bool> isOver{false};
    std::future<void> sender = std::async(std::launch::async, [this] { Send(); });
};
