#pragma once

/// @file
/// Memory that runs out: this program's `operator new` fails where a test says so.

/// Makes one allocation of the calling thread fail, the n-th (from 1) while it lives.
class FailingAllocation
{
public:
    explicit FailingAllocation(int n);
    ~FailingAllocation();

    FailingAllocation(const FailingAllocation&) = delete;
    FailingAllocation& operator=(const FailingAllocation&) = delete;

    /// Whether there were so many.
    [[nodiscard]] bool HasFailed() const;
};
