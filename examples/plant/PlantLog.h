// PlantLog - the log of a server: a line with the time, on the error stream. Any thread may write to it.
#pragma once

#include <QVPlatform/OutputLog.h>
#include <QVPlatform/Timestamp.h>
#include <cstdio>
#include <mutex>

class PlantLog : public COutputLog {
public:
    void Clear() override {}
    bool AppendMessage(LogType type, int, const char* text, unsigned int length) override {
        CQVTimestamp now;
        now.SetUTC();
        qvstring line;
        now.ToText(line);
        line += type == Error ? " ERROR " : type == Warning ? " WARNING " : " ";
        // What others sent may be quoted in it: no line but this one comes of it.
        for (const char c : qvstring(text, length))
            line += (c >= 0 && c < ' ') || c == 0x7F ? '?' : c;
        line += '\n';
        const std::lock_guard lock(m_Mutex);
        return std::fwrite(line.data(), 1, line.size(), stderr) == line.size();
    }

private:
    std::mutex m_Mutex;
};
