// CQVError - the last error of an object that talks to the operating system.
//
// Model:    a base of file objects, file paths and the binary and text files. An operation that fails returns
//           false and leaves the system's error number here; an operation that succeeds leaves it alone.
// Errors:   numbers are errno values. 0 means that nothing has failed since construction or ClearLastError().
// Threads:  one thread at a time, like the object that derives from it.
#pragma once

class CQVError {
public:
    CQVError() = default;

    // The errno of the last failed operation, 0 when there is none.
    int GetLastError() const { return m_LastError; }

    // Writes the system's text of the last error into `buffer` (at most `size` bytes, always terminated;
    // `size` 0 writes nothing) and returns the number of bytes written without the terminator. A number
    // without a text gives "Error %d".
    unsigned int GetLastErrorString(char* buffer, unsigned int size) const;

    void ClearLastError() { m_LastError = 0; }

    // Takes over the last error of another object.
    void PropagateErrorFrom(const CQVError& other) { m_LastError = other.m_LastError; }

    // For file objects and their doubles: remembers an errno.
    void SetLastError(int error) { m_LastError = error; }

private:
    int m_LastError = 0;
};

// The system's text of an errno, independent of the process's locale; "Error %d" for a number without one.
// Writes at most `size` bytes, always terminated (`size` 0 writes nothing); returns the bytes written without
// the terminator. May be called from any thread.
unsigned int QVFormatMessage(int error, char* buffer, unsigned int size);
