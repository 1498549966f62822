#include "SplitJournal.h"
#include "HistoricFileName.h"
#include <QVPlatform/Format.h>
#include <cerrno>
#include <charconv>
#include <memory>
#include <string_view>

namespace {

// One line: "split START AT END", times as numbers. The line feed says that it is complete.
constexpr std::string_view kKeyword = "split";
constexpr unsigned int kMaxLength = 128;

bool ReadNumber(std::string_view& text, long long& number) {
    if (!text.starts_with(' '))
        return false;
    const auto [end, error] = std::from_chars(text.data() + 1, text.data() + text.size(), number);
    if (error != std::errc())
        return false;
    text.remove_prefix(static_cast<std::size_t>(end - text.data()));
    return true;
}

} // namespace

CQVSplitJournal::CQVSplitJournal(QVFileSystemInterface* fileSystem, const CQVFilePath& directory)
    : m_pFileSystem(fileSystem), m_Path(directory) {
    m_Path.AppendFileName("split.journal");
}

bool CQVSplitJournal::Write(const Split& split) {
    char line[kMaxLength];
    const unsigned int length = qv_sprintf(line, sizeof line, "%s %lld %lld %lld\n", kKeyword.data(),
                                           split.start, split.split, split.end);
    const std::unique_ptr<QVFileInterface> file(m_pFileSystem->CreateFileObject());
    if (file->OpenFileForWrite(m_Path) && file->WriteBytes(line, length) && file->CloseFile())
        return true;
    PropagateErrorFrom(*file);
    return false;
}

CQVSplitJournal::State CQVSplitJournal::Read(Split& split) {
    char line[kMaxLength];
    unsigned int length = 0;
    const std::unique_ptr<QVFileInterface> file(m_pFileSystem->CreateFileObject());
    if (!file->OpenFileForRead(m_Path, false) || !file->ReadBytes(line, sizeof line, length)) {
        PropagateErrorFrom(*file);
        return m_Path.FileExists() ? State::Unreadable : State::None;
    }
    std::string_view text(line, length);
    if (!text.starts_with(kKeyword))
        return State::Unfinished;
    text.remove_prefix(kKeyword.size());
    Split read;
    if (!ReadNumber(text, read.start) || !ReadNumber(text, read.split) || !ReadNumber(text, read.end) ||
        text != "\n" || !qv_historic_span_has_name(read.start, read.end) || read.start >= read.split ||
        read.split >= read.end)
        return State::Unfinished;
    split = read;
    return State::Complete;
}

bool CQVSplitJournal::Erase() {
    return m_Path.EraseFile() || m_Path.GetLastError() == ENOENT;
}
