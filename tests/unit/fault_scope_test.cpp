// The fault scope on either platform: processor faults, a stack overflow
// included, come back as Windows exception codes, and describe_exception
// words them; report passes over a code whose id is 0.
#include <gtest/gtest.h>

#include <cstdint>
#include <cstdlib>
#include <string>

#include "platform/system.h"
#include "run/make.h"
#include "run/report.h"
#include "unit/test_text.h"

namespace {

void return_at_once(void *arg) {
    *static_cast<int *>(arg) = 1;
}

// The faults are the point here, so the undefined-behaviour checks of a
// sanitizer build must not stop them first.
#define FAULTING __attribute__((no_sanitize("undefined")))

FAULTING void write_through_null(void *) {
    volatile int *volatile target = nullptr;
    *target = 1;
}

FAULTING void divide_by_zero(void *) {
    // Both operands volatile: with a constant dividend the compiler may
    // replace the division by a compare.
    volatile int dividend = 7, zero = 0;
    volatile int result = dividend / zero;
    (void)result;
}

volatile uintptr_t depth_limit = ~uintptr_t(0); // never reached: the stack runs out first

void recurse_deeply(void *depth) {
    volatile char frame[4096];
    uintptr_t next = reinterpret_cast<uintptr_t>(depth) + 1;
    frame[0] = static_cast<char>(next);
    if (next < depth_limit)
        recurse_deeply(reinterpret_cast<void *>(next + static_cast<uintptr_t>(frame[0] & 0)));
    frame[1] = 0; // work behind the call keeps it from becoming a jump
}

TEST(FaultScopeTest, FaultsBecomeWindowsExceptionCodes) {
    int ran = 0;
    fault_record fault = {1, 1};
    EXPECT_TRUE(run_fault_scope(return_at_once, &ran, &fault));
    EXPECT_EQ(ran, 1);
    EXPECT_FALSE(run_fault_scope(write_through_null, nullptr, &fault));
    EXPECT_EQ(fault.code, 0xC0000005u);
    EXPECT_FALSE(run_fault_scope(divide_by_zero, nullptr, &fault));
    EXPECT_EQ(fault.code, 0xC0000094u);
    EXPECT_NE(fault.address, 0u);
    EXPECT_FALSE(run_fault_scope(recurse_deeply, nullptr, &fault));
    EXPECT_EQ(fault.code, 0xC00000FDu);
}

// Recurses until the stack guard says stop, and counts the levels.
void recurse_to_the_guard(void *depth) {
    volatile char frame[16384];
    frame[0] = 1;
    if (!is_stack_nearly_used()) recurse_to_the_guard(depth);
    ++*static_cast<uintptr_t *>(depth);
    frame[1] = frame[0]; // work behind the call keeps it from becoming a jump
}

// The guard trips well inside the scope's stack, near its end, and nowhere
// else: outside a scope there is no stack it knows.
TEST(FaultScopeTest, TheStackGuardTripsBeforeTheStackRunsOut) {
    EXPECT_FALSE(is_stack_nearly_used());
    uintptr_t depth = 0;
    fault_record fault = {};
    EXPECT_TRUE(run_fault_scope(recurse_to_the_guard, &depth, &fault)) << fault.code;
    EXPECT_GT(depth, 32768u); // more than half of 1 GiB in frames of 16 KiB
    EXPECT_FALSE(is_stack_nearly_used());
}

TEST(FaultScopeTest, DescribeExceptionWordsTheCodeAndTheAddress) {
    const struct {
        uint32_t code;
        const char *text;
    } rows[] = {
        {0xC0000005, "\"Access violation\" at 00000000DEADBEEF"},
        {0x80000002, "\"Datatype misalignment\" at 00000000DEADBEEF"},
        {0xC0000094, "\"Integer divide by zero\" at 00000000DEADBEEF"},
        {0xC0000095, "\"Integer overflow\" at 00000000DEADBEEF"},
        {0xC0000006, "\"In page error\" at 00000000DEADBEEF"},
        {0xC00000FD, "\"Stack overflow\" at 00000000DEADBEEF"},
        {0xC0000026, "\"Invalid disposition\" at 00000000DEADBEEF"},
        {0x80000001, "\"Guard page violation\" at 00000000DEADBEEF"},
        {0xC000001D, "\"Exception 0xC000001D\" at 00000000DEADBEEF"},
        {0, "Unknown exception"},
    };
    for (const auto &r : rows) {
        const fault_record fault = {r.code, 0xDEADBEEF};
        char16_t *text = nullptr;
        describe_exception(&fault, &text);
        EXPECT_EQ(to_utf8(text), r.text);
        free(text);
    }
    char16_t *text = nullptr;
    describe_exception(nullptr, &text);
    EXPECT_EQ(to_utf8(text), "Unknown exception");
    free(text);
}

// Callers may add a severity, even the fatal flag, to a status that is 0.
TEST(ReportTest, ACodeWhoseIdIsZeroPrintsNothingAndReturns) {
    testing::internal::CaptureStderr();
    report(FATAL);
    report(WARNING);
    report(WARNING + FATAL);
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
}

} // namespace
