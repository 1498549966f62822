// User rights from any bytes. As text: what was understood, printed and read again, is the same, without an
// error. As binary form: it loads or throws, and what was loaded is saved and loads again. The same for a client's
// access context.
#include <QVLib/BinaryStreams/BinaryInputMemory.h>
#include <QVLib/BinaryStreams/BinaryOutputBuffer.h>
#include <QVLib/Security/ClientAccessContext.h>
#include <QVLib/Security/SecuritySettings.h>
#include <QVLib/Security/SecuritySettingsParseContext.h>
#include <QVLib/TextStreams/TextInputString.h>
#include <QVPlatform/Assert.h>
#include <QVPlatform/TextOutput.h>
#include <cstdint>
#include <exception>
#include <memory>
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

constexpr unsigned short ContextVersion = 44; // everything

bool LoadContext(CClientAccessContext& context, CBinaryInput&& in) {
    try {
        context.LoadAccessContext(ContextVersion, in);
        return true;
    } catch (const std::exception&) {
        return false;
    }
}

qvstring BytesOf(const CClientAccessContext& context) {
    BinaryOutputBuffer saved(BinaryStringLengthUTF8Character);
    context.SaveAccessContext(ContextVersion, saved);
    const std::unique_ptr<unsigned char[]> bytes(saved.ToByteArray());
    return {bytes.get(), bytes.get() + saved.GetTotalDataSize()};
}

void CheckContext(const uint8_t* data, unsigned int length) {
    static const CClientAccessContext fresh(qvstring("192.0.2.7"));
    CClientAccessContext context(fresh);
    if (!LoadContext(context, BinaryInputFromReadOnlyData(BinaryStringLengthUTF8Character, data, length))) {
        QV_ASSERT(BytesOf(context) == BytesOf(fresh));
        return;
    }
    const qvstring bytes = BytesOf(context);
    CClientAccessContext again(fresh);
    QV_ASSERT(
        LoadContext(again, BinaryInputFromReadOnlyData(BinaryStringLengthUTF8Character,
                                                       reinterpret_cast<const unsigned char*>(bytes.data()),
                                                       static_cast<unsigned int>(bytes.size()))));
    QV_ASSERT(BytesOf(again) == bytes);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    CheckText(reinterpret_cast<const char*>(data), static_cast<unsigned int>(size));
    CheckBinary(data, static_cast<unsigned int>(size));
    CheckContext(data, static_cast<unsigned int>(size));
    return 0;
}
