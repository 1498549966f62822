// Authenticator - asks whether passwords are right, in threads of its own: PAM lets a wrong one wait for seconds, and
// nobody else may wait with it.
#pragma once

#include "Configuration.h"

#include <QVLib/Security/UserAccessToken.h>
#include <condition_variable>
#include <deque>
#include <functional>
#include <mutex>
#include <optional>
#include <thread>

class Authenticator {
public:
    struct Answer {
        unsigned int m_Session = 0;
        bool m_bAccepted = false;
        qvstring m_Problem; // for the log: it may tell whether there is such a user
        CQVUserAccessToken m_Token;
    };

    // Of the users in `testUsers` or, without any, of the system through the PAM service. `onAnswer` is called by a thread
    // of the authenticator when there is something to take.
    Authenticator(std::optional<std::map<qvstring, TestUser>> testUsers, const qvstring& service,
                  std::function<void()> onAnswer);
    ~Authenticator();
    Authenticator(const Authenticator&) = delete;
    Authenticator& operator=(const Authenticator&) = delete;

    // Queues a question; false when too many wait already.
    bool Ask(unsigned int session, const CQVSecureWString& user, const CQVSecureWString& password);
    std::deque<Answer> TakeAnswers();

private:
    static constexpr unsigned int ThreadCount = 4;
    static constexpr std::size_t MaxQuestions = 32;

    struct Question {
        unsigned int m_Session;
        CQVSecureWString m_User;
        CQVSecureWString m_Password;
    };

    void AnswerQuestions(const std::stop_token& stop);
    void Check(const Question& question, Answer& answer) const;

    const std::optional<std::map<qvstring, TestUser>> m_TestUsers;
    const qvstring m_Service;
    const std::function<void()> m_OnAnswer;
    std::mutex m_Mutex; // guards the next two
    std::deque<Question> m_Questions;
    std::deque<Answer> m_Answers;
    std::condition_variable_any m_Asked;
    std::vector<std::jthread> m_Threads; // last, so that they end first
};
