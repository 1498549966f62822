#include "support/FaultFileSystem.h"

#include <algorithm>
#include <memory>

class FaultFileSystem::File final : public QVFileInterface {
public:
    File(FaultFileSystem& owner, QVFileInterface* file) : m_Owner(owner), m_pFile(file) {}
    ~File() override {
        const std::lock_guard guard(m_Owner.m_Mutex);
        m_Owner.m_LiveObjects--;
    }

    bool OpenFileForWrite(const CQVFilePath& path) override {
        return OpenWith([&] { return m_pFile->OpenFileForWrite(path); });
    }
    bool OpenFileForAppend(const CQVFilePath& path) override {
        return OpenWith([&] { return m_pFile->OpenFileForAppend(path); });
    }
    bool OpenFileForRead(const CQVFilePath& path, bool bLock) override {
        return OpenWith([&] { return m_pFile->OpenFileForRead(path, bLock); });
    }
    bool OpenFileForWriteNoFollow(const CQVFilePath& path, unsigned int mode) override {
        return OpenWith([&] { return m_pFile->OpenFileForWriteNoFollow(path, mode); });
    }

    bool CloseFile() override {
        if (!m_pFile->IsOpen())
            return true;
        const Verdict verdict = m_Owner.Count(Close);
        const bool closed = Forward(m_pFile->CloseFile());
        return verdict.error == 0 ? closed : Fail(verdict.error);
    }

    bool WriteBytes(const void* data, unsigned int count) override {
        const Verdict verdict = m_Owner.Count(Write);
        if (verdict.error == 0)
            return Forward(m_pFile->WriteBytes(data, count));
        const unsigned int keep =
            verdict.keep == Half ? count / 2 : std::min(verdict.keep, count - (count != 0));
        if (verdict.torn && keep != 0)
            m_pFile->WriteBytes(data, keep);
        return Fail(verdict.error);
    }

    bool ReadBytes(void* buffer, unsigned int count, unsigned int& got) override {
        got = 0;
        return Counted(Read, [&] { return m_pFile->ReadBytes(buffer, count, got); });
    }
    bool CutFile(long long length) override {
        return Counted(Cut, [&] { return m_pFile->CutFile(length); });
    }
    bool SkipForward(unsigned int count) override {
        return Counted(Move, [&] { return m_pFile->SkipForward(count); });
    }
    bool SeekToOffset(unsigned int offset) override {
        return Counted(Move, [&] { return m_pFile->SeekToOffset(offset); });
    }
    long long GetFileSize() const override {
        return m_Owner.Count(Size).error == 0 ? m_pFile->GetFileSize() : -1;
    }
    bool IsOpen() const override { return m_pFile->IsOpen(); }

private:
    // A failed opening leaves the object closed, as with real files.
    template<typename Call>
    bool OpenWith(Call call) {
        m_pFile->CloseFile();
        return Counted(Open, call);
    }

    template<typename Call>
    bool Counted(Operations operation, Call call) {
        const Verdict verdict = m_Owner.Count(operation);
        return verdict.error == 0 ? Forward(call()) : Fail(verdict.error);
    }

    bool Forward(bool result) {
        if (!result)
            PropagateErrorFrom(*m_pFile);
        return result;
    }

    bool Fail(int error) {
        SetLastError(error);
        return false;
    }

    FaultFileSystem& m_Owner;
    const std::unique_ptr<QVFileInterface> m_pFile;
};

FaultFileSystem::FaultFileSystem(QVFileSystemInterface* base) : m_pBase(base) {}

QVFileInterface* FaultFileSystem::CreateFileObject() {
    const std::lock_guard guard(m_Mutex);
    m_LiveObjects++;
    return new File(*this, m_pBase->CreateFileObject());
}

void FaultFileSystem::FailAt(unsigned int n, int error, unsigned int operations) {
    Arm(n, error, operations, true, false, 0);
}

void FaultFileSystem::FailFrom(unsigned int n, int error, unsigned int operations) {
    Arm(n, error, operations, false, false, 0);
}

void FaultFileSystem::TearAt(unsigned int n, int error, unsigned int operations, unsigned int keep) {
    Arm(n, error, operations, true, true, keep);
}

void FaultFileSystem::TearFrom(unsigned int n, int error, unsigned int operations, unsigned int keep) {
    Arm(n, error, operations, false, true, keep);
}

void FaultFileSystem::Heal() {
    Arm(0, 0, All, true, false, 0);
}

unsigned int FaultFileSystem::GetCount() const {
    const std::lock_guard guard(m_Mutex);
    return m_Count;
}

unsigned int FaultFileSystem::GetFailures() const {
    const std::lock_guard guard(m_Mutex);
    return m_Failures;
}

int FaultFileSystem::GetLiveObjects() const {
    const std::lock_guard guard(m_Mutex);
    return m_LiveObjects;
}

void FaultFileSystem::Arm(unsigned int n, int error, unsigned int operations, bool once, bool torn,
                          unsigned int keep) {
    const std::lock_guard guard(m_Mutex);
    m_At = n;
    m_Error = error;
    m_Operations = operations;
    m_bOnce = once;
    m_bTorn = torn;
    m_Keep = keep;
    m_Count = 0;
    m_Failures = 0;
}

FaultFileSystem::Verdict FaultFileSystem::Count(Operations operation) {
    const std::lock_guard guard(m_Mutex);
    if ((m_Operations & operation) == 0)
        return {};
    m_Count++;
    if (m_At == 0 || m_Count < m_At || (m_bOnce && m_Count != m_At))
        return {};
    m_Failures++;
    return {m_Error, m_bTorn && m_Count == m_At, m_Keep};
}
