// Assertions for programming errors.
//
// QV_ASSERT(condition) prints source file, line and condition to standard error and aborts the process when
// the condition is false. It stays on in every build type: a server that has lost its own invariants must not
// go on writing a plant's records. Never use it for anything that data from outside can cause.
#pragma once

// Prints "file:line: assertion failed: condition" and aborts. Called by QV_ASSERT only.
[[noreturn]] void qv_assert_failed(const char* file, int line, const char* condition) noexcept;

#define QV_ASSERT(condition)                                                                                 \
    (__builtin_expect(static_cast<bool>(condition), 1) ? static_cast<void>(0)                                \
                                                       : qv_assert_failed(__FILE__, __LINE__, #condition))
