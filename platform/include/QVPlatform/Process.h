// What a command-line program asks of the process and terminal it runs in.
//
// Threads:  everything here may be called from any thread unless a function says otherwise.
#pragma once

#include <QVPlatform/Timestamp.h>

class CQVSecureWString;

// Asks for SIGINT and SIGTERM to be remembered instead of ending the process; a second one of the same kind
// ends it as usual. Call once, before the program starts threads.
void qv_catch_stop_signals();
// True once such a signal has arrived.
bool qv_stop_requested();
// Sleeps until `deadline` of the real-time clock or until a stop signal arrives; true when the time is up,
// false when the program should stop.
bool qv_sleep_until(CQVTimestamp deadline);

// Reads what the standard input holds, at most `size` bytes, waiting for the first; 0 at its end, -1 with
// `error` on a failure. For waits its descriptor is 0. Not to be mixed with the C library's streams.
int qv_read_standard_input(void* buffer, unsigned int size, int& error);

// True when the standard output (1) or error (2) stream is a terminal.
bool qv_is_terminal(int stream);
// The width of that terminal in columns; 80 when it is none or does not say.
unsigned int qv_terminal_width(int stream);

// Reads a line from the standard input into `password`, without its end. Where that is a terminal, `prompt` is
// written to the error stream and what is typed is not shown; a signal that ends or stops the program puts the
// terminal back first. False when there is no line, or the system cannot read one. No copy stays in memory. One
// thread at a time.
bool qv_read_password(const char* prompt, CQVSecureWString& password);

// The highest resident memory of this process so far, in bytes; 0 when unknown.
long long qv_peak_memory();
