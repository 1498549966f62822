#include "InputText.h"

#include <QVLib/TextStreams/TextInputEncoded.h>
#include <QVPlatform/Unicode.h>
#include <algorithm>
#include <cerrno>
#include <cstring>
#include <iostream>
#include <system_error>

namespace {

constexpr std::string_view ByteOrderMark = "\xEF\xBB\xBF";
constexpr std::size_t MaxDocumentSize = 1u << 30;
constexpr std::size_t ReadSize = 1u << 20;
// A located message has room for so much of a name and all that follows it.
constexpr std::size_t MaxNameLength = 500;

std::string MakeName(const std::string& path) {
    if (path == "-")
        return "standard input";
    if (path.size() <= MaxNameLength)
        return path;
    std::size_t start = path.size() - MaxNameLength;
    while (start < path.size() && (path[start] & 0xC0) == 0x80) // within a character
        ++start;
    return "..." + path.substr(start);
}

bool IsUtf16(std::string_view text) {
    return text.starts_with("\xFF\xFE") || text.starts_with("\xFE\xFF");
}

// UTF-16 with a mark, as UTF-8. Half a unit at the end becomes U+FFFD, for the parser to complain about.
std::string FromUtf16(std::string_view bytes) {
    TextInputFromRawData input(reinterpret_cast<const unsigned char*>(bytes.data()),
                               static_cast<unsigned int>(bytes.size()));
    std::string text;
    input.ReadAllInput(text);
    if (bytes.size() % 2 != 0)
        qv_append_codepoint_to_qvstring(0xFFFD, text);
    return text;
}

// The standard input as it comes, without a buffer of the C library's that only full reads would empty.
std::streambuf* GetStandardInput() {
    std::ios_base::sync_with_stdio(false);
    return std::cin.rdbuf();
}

} // namespace

InputFile::InputFile(const std::string& path) : m_Name(MakeName(path)), m_pSource(&m_File) {
    if (path == "-")
        m_pSource = GetStandardInput();
    else if (!m_File.open(path, std::ios_base::in | std::ios_base::binary))
        Fail("opened", ErrorText(errno));
}

void InputFile::Fail(const char* verb, const std::string& reason) const {
    throw InputFileError(m_Name, std::string("cannot be ") + verb + ": " + reason);
}

std::size_t InputFile::Read(char* buffer, std::size_t size) {
    try {
        if (m_pSource->sgetc() == std::streambuf::traits_type::eof())
            return 0;
        const auto available = std::max<std::streamsize>(m_pSource->in_avail(), 1);
        return static_cast<std::size_t>(
            m_pSource->sgetn(buffer, std::min(available, static_cast<std::streamsize>(size))));
    } catch (const std::system_error& error) {
        Fail("read", ErrorText(error.code().value()));
    }
}

std::string InputFile::ReadAll() {
    std::string text;
    std::vector<char> buffer(ReadSize);
    while (const std::size_t got = Read(buffer.data(), buffer.size())) {
        text.append(buffer.data(), got);
        if (text.size() > MaxDocumentSize)
            Fail("read", "it has more than 1 GiB");
    }
    if (IsUtf16(text))
        return FromUtf16(text);
    if (text.starts_with(ByteOrderMark))
        text.erase(0, ByteOrderMark.size());
    return text;
}

// Looks for a line end in what is buffered; true with m_Searched at it.
bool InputLines::FindEnd() {
    const char* const start = m_Buffer.data() + m_Searched;
    const void* const lineFeed = m_Searched < m_End ? std::memchr(start, '\n', m_End - m_Searched) : nullptr;
    m_Searched =
        lineFeed ? m_Searched + static_cast<std::size_t>(static_cast<const char*>(lineFeed) - start) : m_End;
    return lineFeed != nullptr;
}

bool InputLines::IsLineBuffered() {
    return FindEnd();
}

// Makes room and reads more; false at the end of the file.
bool InputLines::Fill() {
    if (m_bAtEnd)
        return false;
    if (m_Begin != 0) {
        std::memmove(m_Buffer.data(), m_Buffer.data() + m_Begin, m_End - m_Begin);
        m_Searched -= m_Begin;
        m_End -= m_Begin;
        m_Begin = 0;
    }
    if (m_End == m_Buffer.size())
        m_Buffer.resize(2 * m_Buffer.size());
    const std::size_t got = m_File.Read(m_Buffer.data() + m_End, m_Buffer.size() - m_End);
    m_End += got;
    m_bAtEnd = got == 0; // asked again, a terminal would go on
    return !m_bAtEnd;
}

std::string_view InputLines::Take(std::size_t end, std::size_t next) {
    const std::string_view line(m_Buffer.data() + m_Begin, end - m_Begin);
    m_Begin = m_Searched = next;
    return line;
}

bool InputLines::Next(std::string_view& line, bool& bTooLong) {
    bTooLong = false;
    bool bEnded;
    while (!(bEnded = FindEnd())) {
        if (m_End - m_Begin > MaxLineLength) {
            bTooLong = true;
            m_Begin = m_End; // the rest is still to come
        }
        if (!Fill())
            break;
    }
    if (!bEnded && m_Begin == m_End && !bTooLong)
        return false;
    ++m_LineNumber;
    bTooLong = bTooLong || m_Searched - m_Begin > MaxLineLength;
    line = Take(m_Searched, m_Searched + (bEnded ? 1 : 0));
    if (bTooLong)
        line = {};
    if (m_LineNumber == 1 && IsUtf16(line))
        throw InputFileError(m_File.GetName(), "is UTF-16; lines are read in UTF-8");
    if (m_LineNumber == 1 && line.starts_with(ByteOrderMark))
        line.remove_prefix(ByteOrderMark.size());
    if (bEnded && line.ends_with('\r'))
        line.remove_suffix(1);
    return true;
}
