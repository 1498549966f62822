#include <QVPlatform/Error.h>

#include <algorithm>
#include <cstdio>
#include <cstring>

unsigned int CQVError::GetLastErrorString(char* buffer, unsigned int size) const {
    return QVFormatMessage(m_LastError, buffer, size);
}

unsigned int QVFormatMessage(int error, char* buffer, unsigned int size) {
    if (size == 0)
        return 0;
    char number[32];
    const char* text = strerrordesc_np(error);
    if (!text) {
        std::snprintf(number, sizeof number, "Error %d", error);
        text = number;
    }
    const size_t length = std::min(std::strlen(text), size_t{size - 1});
    std::memcpy(buffer, text, length);
    buffer[length] = '\0';
    return static_cast<unsigned int>(length);
}
