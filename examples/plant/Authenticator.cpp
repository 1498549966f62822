#include "Authenticator.h"

#include <QVPlatform/UserAuthentication.h>
#include <openssl/crypto.h>

Authenticator::Authenticator(std::optional<std::map<qvstring, TestUser>> testUsers, const qvstring& service,
                             std::function<void()> onAnswer)
    : m_TestUsers(std::move(testUsers)), m_Service(service), m_OnAnswer(std::move(onAnswer)) {
    for (unsigned int i = 0; i < ThreadCount; i++)
        m_Threads.emplace_back([this](const std::stop_token& stop) { AnswerQuestions(stop); });
}

Authenticator::~Authenticator() {
    for (std::jthread& thread : m_Threads)
        thread.request_stop();
}

bool Authenticator::Ask(unsigned int session, const CQVSecureWString& user,
                        const CQVSecureWString& password) {
    {
        const std::lock_guard lock(m_Mutex);
        if (m_Questions.size() >= MaxQuestions)
            return false;
        m_Questions.push_back({session, user, password});
    }
    m_Asked.notify_one();
    return true;
}

std::deque<Authenticator::Answer> Authenticator::TakeAnswers() {
    const std::lock_guard lock(m_Mutex);
    return std::exchange(m_Answers, {});
}

void Authenticator::AnswerQuestions(const std::stop_token& stop) {
    std::unique_lock lock(m_Mutex);
    while (m_Asked.wait(lock, stop, [this] { return !m_Questions.empty(); }) && !stop.stop_requested()) {
        const Question question = std::move(m_Questions.front());
        m_Questions.pop_front();
        lock.unlock();
        Answer answer;
        answer.m_Session = question.m_Session;
        Check(question, answer);
        lock.lock();
        m_Answers.push_back(std::move(answer));
        m_OnAnswer();
    }
}

void Authenticator::Check(const Question& question, Answer& answer) const {
    if (!m_TestUsers) {
        answer.m_bAccepted =
            answer.m_Token.Logon(QVUserAuthentication(m_Service), question.m_User, question.m_Password);
        answer.m_Problem = answer.m_Token.m_szLogonError;
        return;
    }
    const auto user = m_TestUsers->find(question.m_User.Get());
    const CQVSecureWString& password = question.m_Password;
    answer.m_bAccepted = user != m_TestUsers->end() &&
                         user->second.m_Password.Length() == password.Length() &&
                         CRYPTO_memcmp(user->second.m_Password.Get(), password.Get(), password.Length()) == 0;
    if (answer.m_bAccepted) {
        answer.m_Token.SetSpecifiedUser(question.m_User);
        answer.m_Token.m_Groups = user->second.m_Groups;
    }
}
