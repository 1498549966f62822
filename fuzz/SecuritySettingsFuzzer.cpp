// User rights from any bytes. As text: what was understood, printed and read again, is the same, without an
// error. As binary form: it loads or throws, and what was loaded is saved and loads again.
#include <QVLib/BinaryStreams/BinaryInputMemory.h>
#include <QVLib/BinaryStreams/BinaryOutputBuffer.h>
#include <QVLib/Security/SecuritySettings.h>
#include <QVLib/Security/SecuritySettingsParseContext.h>
#include <QVLib/TextStreams/TextInputString.h>
#include <QVPlatform/Assert.h>
#include <QVPlatform/TextOutput.h>
#include <cstdint>
#include <stdexcept>

namespace {

unsigned int Parse(CSecuritySettings& settings, const char* text, unsigned int length) {
    TextInputQVString input(text, length, "n");
    COutputLogNull log;
    CSecuritySettingsParseContext context(&input, &log);
    settings.ParseText(context);
    return context.GetErrorCount();
}

void CheckText(const char* text, unsigned int length) {
    CSecuritySettings settings;
    Parse(settings, text, length);
    CTextOutputString printed;
    settings.SaveAsText(printed);
    const qvstring& again = printed.GetString();
    CSecuritySettings reread;
    QV_ASSERT(Parse(reread, again.data(), static_cast<unsigned int>(again.size())) == 0);
    QV_ASSERT(reread == settings);
    for (const CSecuritySettingsUser* user : settings.m_Users)
        QV_ASSERT(user->IsTextReadable());
}

bool Load(CSecuritySettings& settings, CBinaryInput&& in) {
    try {
        return settings.LoadBinary(in);
    } catch (const CBinaryInput::EOFException&) {
        return false;
    } catch (const std::length_error&) {
        return false;
    }
}

void CheckBinary(const uint8_t* data, unsigned int length) {
    CSecuritySettings settings;
    if (!Load(settings, BinaryInputFromReadOnlyData(BinaryStringLengthUTF8Character, data, length)))
        return;
    BinaryOutputBuffer saved(BinaryStringLengthUTF8Character);
    settings.SaveBinary(saved);
    CSecuritySettings reloaded;
    QV_ASSERT(Load(reloaded, CBinaryInputFromBinaryOutputBuffer(&saved)));
    QV_ASSERT(reloaded == settings);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    CheckText(reinterpret_cast<const char*>(data), static_cast<unsigned int>(size));
    CheckBinary(data, static_cast<unsigned int>(size));
    return 0;
}
