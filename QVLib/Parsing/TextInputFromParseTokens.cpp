#include <QVLib/Parsing/ParseToken.h>
#include <QVLib/Parsing/TextInputFromParseTokens.h>
#include <algorithm>
#include <limits>

void TextInputFromParseTokens::AddToken(const CParseToken& token) {
    AddToken(token, 0, std::numeric_limits<unsigned int>::max());
}

void TextInputFromParseTokens::AddToken(const CParseToken& token, unsigned int offset, unsigned int length) {
    const unsigned int size = static_cast<unsigned int>(token.Text().size());
    if (offset >= size || length == 0)
        return;
    CQVTextLocation location = token.Location().GetBegin();
    const char* text = token.Text().data();
    for (const char* const start = text + offset; text < start;)
        location.IncrementByCodePoint(qv_codepoint_from_qvchar(text, start));

    const long long position = m_Pieces.empty() ? 0 : m_Pieces.back().m_Position + m_Pieces.back().m_Length;
    m_Pieces.push_back({&token, offset, std::min(length, size - offset), position, location});
    if (m_Current == m_Pieces.end()) {
        m_Current = m_Pieces.begin();
        m_OffsetInPiece = 0;
        SetLocation(m_Current->m_Location);
    }
}

long long TextInputFromParseTokens::Tell() const {
    return m_Current == m_Pieces.end() ? -1 : m_Current->m_Position + m_OffsetInPiece;
}

void TextInputFromParseTokens::Seek(long long offset) {
    m_OffsetInPiece = 0;
    if (offset < 0) {
        m_Current = m_Pieces.end();
        return;
    }
    // From where it stands: parsers that go back mostly go back a little, and do so all the time.
    while (m_Current != m_Pieces.begin() && (m_Current == m_Pieces.end() || m_Current->m_Position > offset))
        --m_Current;
    while (m_Current != m_Pieces.end() && m_Current->m_Position + m_Current->m_Length <= offset)
        ++m_Current;
    if (m_Current == m_Pieces.end())
        return;
    m_OffsetInPiece = static_cast<unsigned int>(offset - m_Current->m_Position);
    SetLocation(m_Current->m_pToken->Location().GetBegin());
}

bool TextInputFromParseTokens::ReadNextCodePoint(int& codePoint) {
    if (m_Current == m_Pieces.end()) {
        codePoint = 0;
        return false;
    }
    const char* const start = m_Current->m_pToken->Text().data() + m_Current->m_Offset;
    const char* current = start + m_OffsetInPiece;
    codePoint = qv_codepoint_from_qvchar(current, start + m_Current->m_Length);
    m_OffsetInPiece = static_cast<unsigned int>(current - start);
    if (m_OffsetInPiece == m_Current->m_Length) {
        ++m_Current;
        m_OffsetInPiece = 0;
        // Here as well as behind the newline: the line feed of a CR LF is read without a new position.
        if (m_Current != m_Pieces.end())
            SetLocation(m_Current->m_Location);
    }
    return true;
}

void TextInputFromParseTokens::IncrementPosition(int codePoint) {
    if (m_OffsetInPiece == 0 && m_Current != m_Pieces.end())
        SetLocation(m_Current->m_Location);
    else
        CTextInput::IncrementPosition(codePoint);
}
