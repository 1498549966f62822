#include <QVPlatform/Assert.h>
#include <QVPlatform/Format.h>
#include <cstdlib>
#include <unistd.h>

namespace {

// Straight to the descriptor: the streams' own buffers may be what is broken.
void WriteToStandardError(const char* text, size_t length) {
    while (length > 0) {
        const ssize_t written = write(STDERR_FILENO, text, length);
        if (written <= 0)
            return;
        text += written;
        length -= static_cast<size_t>(written);
    }
}

} // namespace

void qv_assert_failed(const char* file, int line, const char* condition) noexcept {
    char text[1024];
    unsigned int length =
        qv_sprintf(text, sizeof text - 1, "%s:%d: assertion failed: %s", file, line, condition);
    text[length++] = '\n';
    WriteToStandardError(text, length);
    std::abort();
}
