#pragma once

#include "support/CapturedLog.h"
#include "support/Faults.h"
#include "support/Peers.h"

#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <vector>

using Lines = std::vector<std::string>;

struct Fault
{
    std::string function;
    int error;
    int skip = 0;
};

/// What an operation does when calls fail: its lines, its status, and what it closes in which order.
struct FailureCase
{
    std::vector<Fault> faults;
    StatusCode status;
    Lines lines;
    Lines closed;
};

/// Runs the operation at the level that prints errors and at the one that does not, each time on a new subject that
/// `prepare` has put into its state: only the lines may differ, and no descriptor may be left over. `closing` names the
/// calls that count as closing.
template <typename Subject>
void ExpectFailures(const std::vector<FailureCase>& cases, const std::function<void(Subject&)>& prepare,
                    const std::function<StatusCode(Subject&)>& operation,
                    const Lines& closing = {"zmq_msg_close", "zmq_close"})
{
    const std::size_t descriptors = OpenDescriptors();
    for (const FailureCase& failure : cases)
    {
        for (const int level : {3, 2})
        {
            const Fault& first = failure.faults.front();
            SCOPED_TRACE(first.function + " " + std::to_string(first.error) + " after " + std::to_string(first.skip) +
                         ", level " + std::to_string(level));
            CapturedLog log(level);
            Subject subject;
            prepare(subject);
            log.Take();
            for (const Fault& fault : failure.faults)
                faults::Fail(fault.function, fault.error, fault.skip);
            faults::Record();
            EXPECT_EQ(operation(subject), failure.status);
            EXPECT_EQ(faults::Recorded(closing), failure.closed);
            faults::Reset();
            EXPECT_EQ(log.Take(), level == 3 ? failure.lines : Lines{});
        }
        EXPECT_EQ(AwaitDescriptors(descriptors), descriptors);
    }
}
