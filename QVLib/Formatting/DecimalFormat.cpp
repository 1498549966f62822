// How a number is written.
#include <QVLib/Formatting/DecimalFormat.h>
#include <QVPlatform/Assert.h>
#include <QVPlatform/TextOutput.h>
#include <algorithm>
#include <charconv>
#include <cmath>
#include <cstring>
#include <iterator>

namespace {

using Format = DecimalFormat::Format;
using DigitList = DecimalFormat::DigitList;

constexpr char NotANumber[] = "NaN";
constexpr char Infinity[] = "Infinity";

// Gathers a number, so that the output is called once. The numbers of digits are a pattern's, and as large as it
// likes: what does not fit goes out in pieces.
class NumberText {
public:
    explicit NumberText(CTextOutput& out) : m_Out(out) {}

    void Put(char c) {
        if (m_pNext == std::end(m_Text))
            Flush();
        *m_pNext++ = c;
    }
    void Put(const char* text, std::size_t length) {
        if (length > Room()) {
            Flush();
            // Never cut, its characters may be several bytes.
            if (length > Room()) {
                m_Out.WriteString(text, static_cast<unsigned int>(length));
                return;
            }
        }
        memcpy(m_pNext, text, length);
        m_pNext += length;
    }
    // A copy of a length that is known beforehand costs less, and few digits are the usual case.
    void PutDigits(const DigitList& digits, long long index, long long count) {
        constexpr long long Few = 8;
        if (count <= Few && index + Few <= DigitList::MaximumDigits && Room() >= Few) {
            memcpy(m_pNext, digits.m_Digits + index, Few);
            m_pNext += count;
        } else {
            Put(digits.m_Digits + index, static_cast<std::size_t>(count));
        }
    }
    void PutZeros(long long count) {
        while (count > 0) {
            if (Room() == 0)
                Flush();
            const long long piece = std::min(count, static_cast<long long>(Room()));
            memset(m_pNext, '0', static_cast<std::size_t>(piece));
            m_pNext += piece;
            count -= piece;
        }
    }
    void Flush() {
        m_Out.WriteString(m_Text, static_cast<unsigned int>(m_pNext - m_Text));
        m_pNext = m_Text;
    }

private:
    std::size_t Room() const { return static_cast<std::size_t>(std::end(m_Text) - m_pNext); }

    CTextOutput& m_Out;
    char m_Text[256];
    char* m_pNext = m_Text;
};

// Digits are taken from `index` on; where none are left, zeros are written.
void PutDigits(NumberText& text, const DigitList& digits, long long& index, long long count) {
    const long long given = std::clamp<long long>(digits.m_nCount - index, 0, std::max(count, 0LL));
    text.PutDigits(digits, index, given);
    index += given;
    text.PutZeros(count - given);
}

void PutInteger(NumberText& text, const Format& format, const DigitList& digits, long long count,
                long long& index) {
    const long long leadingZeros =
        std::clamp<long long>(count - digits.m_nDecimalAt, 0, std::max(count, 0LL));
    const long long group = format.m_GroupingSize;
    if (group <= 0 || count <= group) {
        text.PutZeros(leadingZeros);
        PutDigits(text, digits, index, count - leadingZeros);
        return;
    }
    long long untilComma = count % group;
    for (long long i = 0; i < count; ++i, --untilComma) {
        if (untilComma == 0) {
            if (i > 0)
                text.Put(',');
            untilComma = group;
        }
        text.Put(i >= leadingZeros && index < digits.m_nCount ? digits.m_Digits[index++] : '0');
    }
}

void PutFraction(NumberText& text, const Format& format, const DigitList& digits, long long index) {
    const long long digitsLeft = digits.m_nCount - index;
    const long long zerosBefore =
        digitsLeft > 0 ? std::max(-static_cast<long long>(digits.m_nDecimalAt), 0LL) : 0;
    const long long wanted = std::max<long long>(format.m_MinFractionDigits, zerosBefore + digitsLeft);
    const long long count = std::min<long long>(format.m_MaxFractionDigits, wanted);
    const long long zeros = std::min(zerosBefore, count);
    text.PutZeros(zeros);
    PutDigits(text, digits, index, count - zeros);
}

void PutFixedPoint(NumberText& text, const Format& format, const DigitList& digits) {
    long long count = std::max(format.m_MinIntegerDigits, digits.m_nDecimalAt);
    long long index = 0;
    if (count > format.m_MaxIntegerDigits) {
        count = std::max(format.m_MaxIntegerDigits, 0);
        index = std::clamp<long long>(digits.m_nDecimalAt - count, 0, digits.m_nCount);
    }
    PutInteger(text, format, digits, count, index);

    const bool bFraction = format.m_MinFractionDigits >= 1 || index < digits.m_nCount;
    if (!bFraction && count <= 0)
        text.Put('0');
    if (bFraction || format.m_bAlwaysShowDecimal)
        text.Put('.');
    PutFraction(text, format, digits, index);
}

void PutExponent(NumberText& text, const Format& format, long long exponent) {
    text.Put(format.m_ExponentChar);
    if (exponent < 0)
        text.Put('-');
    else if (format.m_bExponentPlusSign)
        text.Put('+');
    char number[20];
    const std::to_chars_result end =
        std::to_chars(std::begin(number), std::end(number), exponent < 0 ? -exponent : exponent);
    const long long length = end.ptr - number;
    // The sign of a negative exponent is outside the width.
    text.PutZeros(format.m_MinExponentDigits - length);
    text.Put(number, static_cast<std::size_t>(length));
}

void PutScientific(NumberText& text, const Format& format, const DigitList& digits) {
    const long long decimalAt = digits.m_nDecimalAt;
    const long long maximum = format.m_MaxIntegerDigits;
    long long minimum = format.m_MinIntegerDigits;
    long long exponent = decimalAt - minimum;
    if (maximum >= 2 && maximum != minimum) {
        exponent = (decimalAt - (decimalAt >= 1 ? 1 : maximum)) / maximum * maximum;
        minimum = 1;
    }
    long long integerDigits = decimalAt - exponent;
    if (digits.IsDigitListZero()) {
        integerDigits = minimum;
        exponent = 0;
    }
    const long long atLeast = std::max(minimum + format.m_MinFractionDigits, integerDigits);
    const long long count = std::max<long long>(digits.m_nCount, atLeast);
    long long index = 0;
    PutDigits(text, digits, index, integerDigits);
    if (count > integerDigits) {
        text.Put('.');
        PutDigits(text, digits, index, count - integerDigits);
    }
    PutExponent(text, format, exponent);
}

void WriteText(CTextOutput& out, const Format& format, const char* number) {
    out.WriteString(format.m_Prefix);
    out.WriteString(number, static_cast<unsigned int>(strlen(number)));
    out.WriteString(format.m_Suffix);
}

} // namespace

void DecimalFormat::FormatDouble(double value, CTextOutput& out) const {
    const bool bNegative = std::signbit(value);
    const Format& format = bNegative ? m_NegativeFormat : m_PositiveFormat;
    if (std::isnan(value))
        out.WriteString(NotANumber, sizeof NotANumber - 1);
    else if (std::isinf(value))
        WriteText(out, format, Infinity);
    else
        format.FormatDouble(bNegative ? -value : value, out);
}

void DecimalFormat::FormatInt64(long long value, CTextOutput& out) const {
    const unsigned long long bits = static_cast<unsigned long long>(value);
    if (value < 0)
        m_NegativeFormat.FormatUInt64(0 - bits, out);
    else
        m_PositiveFormat.FormatUInt64(bits, out);
}

void DecimalFormat::FormatUInt64(unsigned long long value, CTextOutput& out) const {
    m_PositiveFormat.FormatUInt64(value, out);
}

void DecimalFormat::PrintDecimalFormat(CTextOutput& out) const {
    m_PositiveFormat.PrintFormat(out);
    if (m_bNegativeDefined) {
        out.PrintChar(';');
        m_NegativeFormat.PrintFormat(out);
    }
}

void DecimalFormat::Format::FormatDouble(double value, CTextOutput& out) const {
    DigitList digits;
    digits.SetDouble(value, m_ExponentChar == 0, GetMaxDigitsForFormat());
    FormatDigitList(digits, out);
}

void DecimalFormat::Format::FormatUInt64(unsigned long long value, CTextOutput& out) const {
    DigitList digits;
    digits.SetUInt64(value, m_ExponentChar == 0, GetMaxDigitsForFormat());
    FormatDigitList(digits, out);
}

int DecimalFormat::Format::GetMaxDigitsForFormat() const {
    if (m_ExponentChar == 0)
        return m_MaxFractionDigits;
    const long long digits = static_cast<long long>(m_MaxIntegerDigits) + m_MaxFractionDigits;
    return m_MaxIntegerDigits == Unlimited ? Unlimited
                                           : static_cast<int>(std::min<long long>(digits, Unlimited));
}

void DecimalFormat::Format::FormatDigitList(const DigitList& digits, CTextOutput& out) const {
    QV_ASSERT(digits.m_nCount >= 0 && digits.m_nCount <= DigitList::MaximumDigits);
    NumberText text(out);
    text.Put(m_Prefix.data(), m_Prefix.size());
    if (m_ExponentChar == 0)
        PutFixedPoint(text, *this, digits);
    else
        PutScientific(text, *this, digits);
    text.Put(m_Suffix.data(), m_Suffix.size());
    text.Flush();
}

void DecimalFormat::Format::PrintFormat(CTextOutput& out) const {
    out.WriteString("Prefix '");
    out.WriteString(m_Prefix);
    out.Print("', Int %d-%d, Frac %d-%d", m_MinIntegerDigits, m_MaxIntegerDigits, m_MinFractionDigits,
              m_MaxFractionDigits);
    if (m_bAlwaysShowDecimal)
        out.WriteString(", AlwaysShowDecimal");
    if (m_ExponentChar != 0) {
        out.Print(", %c%s", m_ExponentChar, m_bExponentPlusSign ? "+" : "");
        out.PrintChars(static_cast<unsigned int>(std::max(m_MinExponentDigits, 0)), '0');
    }
    if (!m_Suffix.empty()) {
        out.WriteString(", Suffix '");
        out.WriteString(m_Suffix);
        out.PrintChar('\'');
    }
}
