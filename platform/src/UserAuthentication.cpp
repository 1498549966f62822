#include <QVPlatform/UserAuthentication.h>

#include <QVPlatform/SecureMemory.h>
#include <QVPlatform/Unicode.h>
#include <cstdlib>
#include <cstring>
#include <new>
#include <security/pam_appl.h>

namespace {

constexpr size_t MaxMessages = 4096; // bytes; a module that talks without end is not listened to

// What the dialogue needs, and gathers.
struct Dialogue {
    const char* m_User;
    const char* m_Password;
    qvstring m_Messages;
};

bool IsControl(int codePoint) {
    return (codePoint >= 0 && codePoint < ' ') || (codePoint >= 0x7F && codePoint < 0xA0);
}

// Texts come in the encoding of the process's locale, which may be any, and may quote what a server said:
// nothing in them is for a terminal to obey.
void AppendText(qvstring& text, const char* bytes) {
    const char* const end = bytes + std::strlen(bytes);
    while (bytes != end) {
        const int codePoint = qv_codepoint_from_qvchar(bytes, end);
        qv_append_codepoint_to_qvstring(IsControl(codePoint) && codePoint != '\n' ? ' ' : codePoint, text);
    }
}

void AppendMessage(qvstring& messages, const char* message) {
    if (!message || !*message || messages.size() + std::strlen(message) > MaxMessages)
        return;
    if (!messages.empty())
        messages += '\n';
    AppendText(messages, message);
}

int Answer(const pam_message& message, pam_response& response, Dialogue& dialogue) {
    switch (message.msg_style) {
    case PAM_PROMPT_ECHO_OFF:
        response.resp = ::strdup(dialogue.m_Password);
        return response.resp ? PAM_SUCCESS : PAM_BUF_ERR;
    case PAM_PROMPT_ECHO_ON:
        response.resp = ::strdup(dialogue.m_User);
        return response.resp ? PAM_SUCCESS : PAM_BUF_ERR;
    case PAM_ERROR_MSG:
    case PAM_TEXT_INFO:
        AppendMessage(dialogue.m_Messages, message.msg);
        return PAM_SUCCESS;
    default:
        return PAM_CONV_ERR;
    }
}

void WipeResponses(pam_response* responses, int count) {
    for (int i = 0; i < count; ++i) {
        if (!responses[i].resp)
            continue;
        QVRandomGenerator::ClearMemory(responses[i].resp,
                                       static_cast<unsigned int>(std::strlen(responses[i].resp)));
        std::free(responses[i].resp);
    }
    std::free(responses);
}

// Called by PAM, through which no exception may pass. The answers become the module's, unless this fails or it
// wants none: one that only has something to say may leave no place for them.
int Converse(int count, const pam_message** messages, pam_response** answers, void* data) noexcept {
    if (count <= 0 || count > PAM_MAX_NUM_MSG)
        return PAM_CONV_ERR;
    auto* const responses =
        static_cast<pam_response*>(std::calloc(static_cast<size_t>(count), sizeof(pam_response)));
    int status = responses ? PAM_SUCCESS : PAM_BUF_ERR;
    try {
        for (int i = 0; status == PAM_SUCCESS && i < count; ++i)
            status = Answer(*messages[i], responses[i], *static_cast<Dialogue*>(data));
    } catch (const std::bad_alloc&) {
        status = PAM_BUF_ERR;
    }
    if (status == PAM_SUCCESS && answers)
        *answers = responses;
    else if (responses)
        WipeResponses(responses, count);
    return status;
}

// One run of a service's stack; ends it however it is left.
class Transaction {
public:
    Transaction(const qvstring& service, Dialogue& dialogue) : m_Conversation{Converse, &dialogue} {
        m_Status = ::pam_start(service.c_str(), dialogue.m_User, &m_Conversation, &m_pHandle);
    }
    ~Transaction() {
        if (m_pHandle)
            ::pam_end(m_pHandle, m_Status);
    }
    Transaction(const Transaction&) = delete;
    Transaction& operator=(const Transaction&) = delete;

    int Run() {
        if (m_Status == PAM_SUCCESS)
            m_Status = ::pam_authenticate(m_pHandle, PAM_DISALLOW_NULL_AUTHTOK);
        if (m_Status == PAM_SUCCESS)
            m_Status = ::pam_acct_mgmt(m_pHandle, PAM_DISALLOW_NULL_AUTHTOK);
        return m_Status;
    }

    const char* GetUser() const {
        const void* user = nullptr;
        return ::pam_get_item(m_pHandle, PAM_USER, &user) == PAM_SUCCESS ? static_cast<const char*>(user)
                                                                         : nullptr;
    }

private:
    const pam_conv m_Conversation;
    pam_handle_t* m_pHandle = nullptr;
    int m_Status;
};

// PAM takes terminated texts and cuts long ones: what it would see must be the whole.
bool IsWhole(const CQVSecureWString& text) {
    return text.Length() < PAM_MAX_RESP_SIZE && std::strlen(text.Get()) == text.Length();
}

// Modules write names into the system's log, where a line end would begin a line that nobody logged.
bool IsName(const CQVSecureWString& text) {
    if (text.IsEmpty() || !IsWhole(text))
        return false;
    const char* next = text.Get();
    const char* const end = next + text.Length();
    while (next != end)
        if (IsControl(qv_codepoint_from_qvchar(next, end)))
            return false;
    return true;
}

bool Fail(QVUserAuthentication::Result& result, int error) {
    result.m_ErrorCode = error;
    // Linux-PAM knows its texts without a transaction.
    const char* const text = ::pam_strerror(nullptr, error);
    AppendText(result.m_ErrorText, text ? text : "PAM error");
    if (!result.m_Messages.empty())
        result.m_ErrorText.append(": ").append(result.m_Messages);
    return false;
}

} // namespace

const char* const QVUserAuthentication::DefaultService = "qvlib";

QVUserAuthentication::QVUserAuthentication() : QVUserAuthentication(DefaultService) {}

QVUserAuthentication::QVUserAuthentication(const qvstring& service) : m_Service(service) {}

bool QVUserAuthentication::LinuxAuthenticate(const CQVSecureWString& user, const CQVSecureWString& password,
                                             int& errorCode, char* errorText,
                                             unsigned int errorTextSize) const {
    Result result;
    if (Authenticate(user, password, result))
        return true;
    errorCode = result.m_ErrorCode;
    if (errorTextSize == 0)
        return false;
    size_t length = result.m_ErrorText.size();
    if (length > errorTextSize - 1) {
        length = errorTextSize - 1;
        while (length > 0 && (result.m_ErrorText[length] & 0xC0) == 0x80)
            --length;
    }
    std::memcpy(errorText, result.m_ErrorText.data(), length);
    errorText[length] = 0;
    return false;
}

bool QVUserAuthentication::Authenticate(const CQVSecureWString& user, const CQVSecureWString& password,
                                        Result& result) const {
    result = Result();
    if (!IsName(user))
        return Fail(result, PAM_USER_UNKNOWN);
    // Not every module heeds the flag against empty passwords, and a directory may take one for no logon.
    if (password.IsEmpty() || !IsWhole(password))
        return Fail(result, PAM_AUTH_ERR);
    Dialogue dialogue{user.Get(), password.Get(), {}};
    Transaction transaction(m_Service, dialogue);
    const int status = transaction.Run();
    result.m_Messages = dialogue.m_Messages;
    if (status != PAM_SUCCESS)
        return Fail(result, status);
    const char* const systemUser = transaction.GetUser();
    if (!systemUser || !*systemUser)
        return Fail(result, PAM_USER_UNKNOWN);
    result.m_SystemUser = systemUser;
    return true;
}
