#include "TlsTesting.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <openssl/err.h>
#include <openssl/pem.h>
#include <openssl/x509v3.h>

namespace {

void AddExtension(X509* certificate, int nid, const char* value) {
    X509V3_CTX context;
    X509V3_set_ctx(&context, certificate, certificate, nullptr, nullptr, 0);
    X509_EXTENSION* const extension = X509V3_EXT_conf_nid(nullptr, &context, nid, value);
    EXPECT_TRUE(extension != nullptr && X509_add_ext(certificate, extension, -1) == 1) << value;
    X509_EXTENSION_free(extension);
}

bool Wait(QVSocket& socket, unsigned int events) {
    return socket.WaitFor(events, kPatience) == QVWaitResult::Ready;
}

} // namespace

Identity::Identity(const char* commonName, const Wishes& wishes, const Identity* issuer)
    : m_Key(EVP_EC_gen("P-256"), EVP_PKEY_free), m_Certificate(X509_new(), X509_free) {
    constexpr long Day = 86400;
    static long serial = 1;
    X509* const certificate = m_Certificate.get();
    X509_set_version(certificate, 2);
    ASN1_INTEGER_set(X509_get_serialNumber(certificate), serial++);
    X509_gmtime_adj(X509_getm_notBefore(certificate), -60 * Day);
    X509_gmtime_adj(X509_getm_notAfter(certificate), wishes.daysLeft * Day);
    X509_set_pubkey(certificate, m_Key.get());
    X509_NAME_add_entry_by_txt(X509_get_subject_name(certificate), "CN", MBSTRING_UTF8,
                               reinterpret_cast<const unsigned char*>(commonName), -1, -1, 0);
    X509_set_issuer_name(certificate,
                         X509_get_subject_name(issuer ? issuer->m_Certificate.get() : certificate));
    if (wishes.authority)
        AddExtension(certificate, NID_basic_constraints, "critical,CA:TRUE");
    if (!wishes.names.empty())
        AddExtension(certificate, NID_subject_alt_name, wishes.names.c_str());
    EXPECT_GT(X509_sign(certificate, (issuer ? *issuer : *this).m_Key.get(), EVP_sha256()), 0);
}

std::string Identity::GetCertificatePem() const {
    BIO* const bio = BIO_new(BIO_s_mem());
    PEM_write_bio_X509(bio, m_Certificate.get());
    char* data = nullptr;
    const long length = BIO_get_mem_data(bio, &data);
    const std::string text(data, static_cast<size_t>(length));
    BIO_free(bio);
    return text;
}

TlsPeer::TlsPeer(QVSocket& socket, const Identity& identity, int maxVersion) : m_Socket(socket) {
    OpenSSLContext context(true);
    m_pSSL = context.NewSSL();
    SSL_use_certificate(m_pSSL, identity.m_Certificate.get());
    SSL_use_PrivateKey(m_pSSL, identity.m_Key.get());
    SSL_set_max_proto_version(m_pSSL, maxVersion);
    SSL_set_bio(m_pSSL, BIO_new(BIO_s_mem()), BIO_new(BIO_s_mem()));
    SSL_set_accept_state(m_pSSL);
}

TlsPeer::~TlsPeer() {
    SSL_free(m_pSSL);
}

bool TlsPeer::Accept() {
    return Run([this] { return SSL_accept(m_pSSL); }) == 1;
}

std::string TlsPeer::Read(size_t count) {
    std::string text(count, '\0');
    size_t got = 0;
    while (got < count) {
        const int part =
            Run([&] { return SSL_read(m_pSSL, text.data() + got, static_cast<int>(count - got)); });
        if (part <= 0)
            break;
        got += static_cast<size_t>(part);
    }
    text.resize(got);
    return text;
}

bool TlsPeer::Write(std::string_view data) {
    return Run([&] { return SSL_write(m_pSSL, data.data(), static_cast<int>(data.size())); }) > 0;
}

void TlsPeer::SendCloseNotify() {
    SSL_shutdown(m_pSSL);
    Flush();
}

void TlsPeer::AskForRenegotiation() {
    SSL_renegotiate(m_pSSL);
    SSL_do_handshake(m_pSSL);
    Flush();
}

int TlsPeer::Run(const std::function<int()>& operation) {
    for (;;) {
        ERR_clear_error();
        const int result = operation();
        const int error = SSL_get_error(m_pSSL, result);
        if (!Flush())
            return -1;
        if (result > 0 || error != SSL_ERROR_WANT_READ || !Receive())
            return result;
    }
}

bool TlsPeer::Flush() {
    char buffer[4096];
    for (int count; (count = BIO_read(SSL_get_wbio(m_pSSL), buffer, sizeof buffer)) > 0;) {
        for (std::string_view rest(buffer, static_cast<size_t>(count)); !rest.empty();) {
            const size_t part = std::min({rest.size(), m_Segment, m_Budget});
            if (part == 0)
                return false;
            SendAll(m_Socket, rest.substr(0, part));
            rest.remove_prefix(part);
            m_Budget -= part;
        }
    }
    return true;
}

bool TlsPeer::Receive() {
    char buffer[4096];
    if (!Wait(m_Socket, QVSocket::Readable))
        return false;
    const int count = m_Socket.RecvData(buffer, sizeof buffer);
    return count > 0 && BIO_write(SSL_get_rbio(m_pSSL), buffer, count) == count;
}

void SendAll(QVSocket& socket, std::string_view data) {
    while (!data.empty() && Wait(socket, QVSocket::Writable)) {
        const int sent = socket.SendData(data.data(), static_cast<unsigned int>(data.size()));
        if (sent < 0 && socket.GetLastError() != EAGAIN)
            return;
        data.remove_prefix(static_cast<size_t>(std::max(sent, 0)));
    }
}

bool Drain(QVSocket& socket, size_t count) {
    std::string buffer(65536, '\0');
    int got = 1;
    while (count > 0 && got > 0 && Wait(socket, QVSocket::Readable)) {
        got = socket.RecvData(buffer.data(), static_cast<unsigned int>(std::min(count, buffer.size())));
        count -= static_cast<size_t>(std::max(got, 0));
    }
    return got == 0;
}

TestServer::TestServer(std::function<void(QVSocket&)> work, int connections) {
    std::vector<QVSocketAddress> candidates;
    qvstring problem;
    QVSocketAddress::Resolve("127.0.0.1:0", true, candidates, problem);
    EXPECT_TRUE(m_Listener.Listen(candidates.at(0)) && m_Listener.GetSocketName(m_Address));
    m_Thread = std::thread([this, connections, work = std::move(work)] {
        for (int i = 0; i < connections; ++i) {
            QVSocket socket;
            QVSocketAddress peer;
            if (m_Listener.WaitForConnection(kPatience) == QVWaitResult::Ready &&
                m_Listener.AcceptConnection(socket, peer)) {
                socket.SetNoDelay();
                work(socket);
            }
        }
    });
}

void TestServer::Join() {
    if (m_Thread.joinable())
        m_Thread.join();
}

QVSocketAddress NobodysAddress() {
    TestServer server([](QVSocket&) {}, 0);
    return server.m_Address;
}

bool TestClient::Connect(const QVSocketAddress& address) {
    m_Address = address;
    m_Complete = -1;
    m_bFailed = false;
    return CreateSocket(address.GetFamily()) == 0 &&
           StartConnect(m_Address.GetSockAddr(), static_cast<int>(m_Address.GetLength()));
}

bool TestClient::Step() {
    const bool bWrite = IsSocketWriteInProgress(m_Sent < m_ToSend.size());
    QVSocketInterest interest{&GetSocket(),
                              bWrite ? QVSocket::Readable | QVSocket::Writable : QVSocket::Readable};
    if (qv_wait_for_sockets({&interest, 1}, kPatience) != QVWaitResult::Ready)
        return false;
    bool bUsable = true;
    if (interest.m_Ready & QVSocket::Readable)
        bUsable = ProcessReadEvent();
    if (bUsable && (interest.m_Ready & QVSocket::Writable) && GetSocket().IsOpen())
        bUsable = ProcessWriteEvent();
    m_bFailed = !bUsable;
    return bUsable;
}

bool TestClient::RunUntil(const std::function<bool()>& done) {
    while (!done()) {
        if (!GetSocket().IsOpen() || !Step())
            return false;
    }
    return true;
}

bool TestClient::RunToEnd() {
    return !RunUntil([] { return false; }) && !GetSocket().IsOpen();
}

size_t TestClient::FillRaw() {
    const std::string junk(4096, 'j');
    size_t total = 0;
    while (GetSocket().WaitFor(QVSocket::Writable, 100) == QVWaitResult::Ready) {
        for (int sent; (sent = GetRawSocket().SendData(junk.data(), 4096)) > 0;)
            total += static_cast<size_t>(sent);
    }
    // Room too small to be told of counts too.
    for (int sent; (sent = GetRawSocket().SendData(junk.data(), 1)) > 0;)
        total += 1;
    return total;
}

void TestClient::ConnectComplete(int errorCode) {
    m_Complete = errorCode;
}

bool TestClient::ProcessReadData() {
    if (!IsComplete())
        return true;
    std::string piece(m_Piece, '\0');
    for (unsigned int received; (m_LastRead = ReadData(piece.data(), m_Piece, received)) == SocketIoDone;)
        m_Received.append(piece, 0, received);
    return m_LastRead == SocketIoWouldBlock ? ProcessWriteData() : m_LastRead != SocketIoError;
}

bool TestClient::ProcessWriteData() {
    while (m_Sent < m_ToSend.size()) {
        const std::string piece = m_ToSend.substr(m_Sent, m_Piece); // the same bytes, elsewhere each time
        unsigned int sent;
        m_LastWrite = WriteData(piece.data(), static_cast<unsigned int>(piece.size()), sent);
        if (m_LastWrite != SocketIoDone)
            return m_LastWrite != SocketIoError;
        m_Sent += sent;
    }
    return true;
}

void TestClient::SocketClosing(SocketCloseCause cause) {
    EXPECT_TRUE(GetSocket().IsOpen());
    EXPECT_EQ(GetSSL(), nullptr);
    m_Events += "closing " + std::to_string(cause);
}

void TestClient::SocketClosed(SocketCloseCause cause) {
    EXPECT_FALSE(GetSocket().IsOpen());
    EXPECT_EQ(GetConnectionState(), Closed);
    m_Events += " closed " + std::to_string(cause);
}
