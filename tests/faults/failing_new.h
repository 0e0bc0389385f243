#pragma once

#include <cstdint>
#include <new>

#include <gtest/gtest.h>

namespace ombrix::test {

/// Allocations through operator new that are not freed, of the whole program.
std::int64_t liveBlocks();

/// Makes the n-th allocation from now on fail, once; 0 for none.
void failAllocation(std::int64_t n);

/// Whether the allocation that was to fail has come.
bool allocationCame();

/// Runs an operation with its first allocation failing, then its second, and so on until it needs no more.
///
/// @param make   makes what the operation works on.
/// @param run    the operation on it.
/// @param check  called with what an operation that failed has left, to see that it can still be used.
template <class Make, class Run, class Check>
void expectEveryAllocationMayFail(const char* name, const Make& make, const Run& run, const Check& check) {
    SCOPED_TRACE(name);
    const bool broken = ::testing::Test::HasFailure();
    {
        auto subject = make();  // the task library cannot stand a failure while it sets itself up
        run(subject);
    }
    constexpr std::int64_t MANY = 20000;
    for (std::int64_t n = 1; n < MANY; ++n) {
        bool failed = false;
        bool came = false;
        std::int64_t leaked = 1;
        // What is made once and kept, like the buffers of threads, is there the second time
        for (int attempt = 0; attempt < 2 && leaked != 0; ++attempt) {
            const std::int64_t before = liveBlocks();
            {
                auto subject = make();
                failAllocation(n);
                failed = false;
                try {
                    run(subject);
                } catch (const std::bad_alloc&) {
                    failed = true;
                }
                came = allocationCame();
                failAllocation(0);
                if (failed) {
                    check(subject);
                }
            }
            leaked = liveBlocks() - before;
        }
        ASSERT_EQ(leaked, 0) << "blocks leaked where allocation " << n << " failed";
        ASSERT_TRUE(broken || !::testing::Test::HasFailure()) << "allocation " << n << " failed";
        if (!came) {  // some do without memory for a buffer, and do not fail
            return;
        }
    }
    FAIL() << "too many allocations for a test";
}

}  // namespace ombrix::test
