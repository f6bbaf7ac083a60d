#pragma once

#include <csignal>
#include <string>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

/// A program that a shell starts, killed at the end.
struct Process
{
    explicit Process(const std::string& command, int output = STDOUT_FILENO) : id(fork())
    {
        if (id != 0) return;
        prctl(PR_SET_PDEATHSIG, SIGKILL); // it outlives no test, however that ends
        dup2(output, STDOUT_FILENO);
        execl("/bin/sh", "sh", "-c", command.c_str(), nullptr);
        _exit(127);
    }

    ~Process() { End(SIGKILL); }

    /// @return as waitpid: 0 for the exit code 0, the number of a signal that ended it.
    int End(int signal)
    {
        int status = -1;
        if (id > 0 && kill(id, signal) == 0) waitpid(id, &status, 0);
        id = -1;
        return status;
    }

    pid_t id;
};
