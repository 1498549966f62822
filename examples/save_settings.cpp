// Saves settings in a binary file so that a crash or a power cut at any moment leaves the old file or the new
// one, and reads them back without trusting what the file holds.
#include <QVLib/BinaryStreams/BinaryFile.h>
#include <QVPlatform/OutputLog.h>
#include <cstdio>
#include <stdexcept>

struct Settings {
    qvstring station;
    unsigned int scanMilliseconds = 1000;
    bool alarmsEnabled = true;
    std::list<qvstring> operators;
};

constexpr unsigned int kVersion = 1;

bool Save(const CQVFilePath& path, const Settings& settings, COutputLog* log) {
    // Written beside the file, and put in its place once it is complete. A failed write is remembered until
    // the commit, so one test at the end is enough.
    CBinaryOutputFile file(BinaryStringLengthUTF8Character);
    if (!file.OpenTransacted(path)) {
        log->PrintError("%s cannot be written (error %d)", path.GetPathCStr(), file.GetLastError());
        return false;
    }
    file << kVersion << settings.station << settings.scanMilliseconds << settings.alarmsEnabled
         << settings.operators;
    return file.CloseAndCommitTransactedFile(log);
}

bool Load(const CQVFilePath& path, Settings& settings) {
    CBinaryInputFile file(BinaryStringLengthUTF8Character);
    unsigned int version = 0;
    if (!file.OpenBinaryFile(path)) {
        return false;
    }
    try {
        file >> version;
        if (version != kVersion) {
            return false;
        }
        file >> settings.station >> settings.scanMilliseconds >> settings.alarmsEnabled >> settings.operators;
        return true;
    } catch (const CBinaryInput::EOFException& end) {
        std::printf("%s is cut off at byte %u\n", path.GetPathCStr(), end.GetPosition());
    } catch (const std::length_error& error) {
        std::printf("%s is damaged: %s\n", path.GetPathCStr(), error.what());
    }
    return false;
}

int main() {
    const CQVFilePath path("station.settings");
    COutputLogToString log;
    if (!Save(path, {"Pump house 3", 250, true, {"Ada", "Grete"}}, &log)) {
        std::fputs(log.GetString().c_str(), stderr);
        return 1;
    }
    std::printf("What the save did:\n%s", log.GetString().c_str());

    Settings settings;
    if (!Load(path, settings)) {
        return 1;
    }
    std::printf("%s is scanned every %u ms by %zu operators\n", settings.station.c_str(),
                settings.scanMilliseconds, settings.operators.size());

    // The first half of a file is refused, and where it ends is told.
    {
        CBinaryOutputFile half(BinaryStringLengthUTF8Character);
        half.OpenDirect(path);
        half << kVersion << "Pump house 3";
    }
    return Load(path, settings) ? 1 : 0;
}
