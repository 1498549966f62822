#include "Replicator.h"

namespace {

constexpr std::chrono::seconds Patience(30);
// An update without records is what becomes of a file that cannot be read. It is due again at once.
constexpr unsigned int EmptyUpdateSize = 21;
constexpr std::chrono::seconds PauseAfterEmptyUpdate(1);

} // namespace

void Replicator::Begin(Session& session) {
    End();
    m_pSession = &session;
    m_bSaidComplete = false;
    m_NextRequest = {};
    m_Store.GetTable().MainResetTransferState();
    TryExchange();
}

void Replicator::End() {
    if (m_bAwaiting)
        m_Store.EndExchange();
    m_bAwaiting = false;
    m_pSession = nullptr;
    m_Store.GetTable().MainResetTransferState();
}

void Replicator::TryExchange() {
    if (m_pSession == nullptr || m_bAwaiting || Session::Clock::now() < m_NextRequest ||
        !m_Store.TryBeginExchange())
        return;
    Message message(MessageStandbyRequest);
    const unsigned int header = message.GetTotalDataSize();
    if (!m_Store.GetTable().MainGetNextStandbyRequest(Channel, message)) {
        m_Store.EndExchange();
        if (!m_bSaidComplete)
            m_Log.Print("The standby has all records");
        m_bSaidComplete = true;
        return;
    }
    m_Asked = Session::Clock::now();
    if (message.GetTotalDataSize() - header == EmptyUpdateSize)
        m_NextRequest = m_Asked + PauseAfterEmptyUpdate;
    m_bAwaiting = true;
    m_pSession->Send(message);
}

void Replicator::TakeReply(FrameInput& in) {
    if (!m_bAwaiting)
        throw ProtocolError("it answers what nobody asked");
    m_bAwaiting = false;
    const bool bApplied = m_Store.GetTable().MainProcessStandbyReply(&m_Log, Channel, in);
    m_Store.EndExchange();
    if (!bApplied)
        throw ProtocolError("its reply cannot be applied");
    in.ExpectEnd();
    TryExchange();
}

bool Replicator::IsComplete() const {
    return m_pSession == nullptr || (!m_bAwaiting && !m_Store.GetTable().MainHasDataToTransfer());
}

bool Replicator::IsOverdue() const {
    return m_bAwaiting && Session::Clock::now() > m_Asked + Patience;
}
