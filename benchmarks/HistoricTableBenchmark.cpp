// What a historic table costs beside what a program would do, or use, instead.
//
// Every group runs its peers on the same records in the same process. Nothing is synced, on either side: what
// is compared is the code, not the disk. Bytes and items per second count the records themselves.
//
//   Queue    one record into memory           a memcpy into blocks that are used again
//   Flush    queued records into files        one write() per record; LevelDB batches; SQLite in WAL mode
//   Scan     every record read back           blocks of 64 KiB, each record copied and its time tested;
//   LevelDB Range    1 % of the time                  the same scan Files    one record of one file of many
//   (how cost grows) Threads  1 to 8 threads queueing          (how cost grows)
#include <QVLib/HistoricTables/HistoricTable.h>
#include <algorithm>
#include <benchmark/benchmark.h>
#include <climits>
#include <cstdlib>
#include <filesystem>
#include <leveldb/db.h>
#include <leveldb/write_batch.h>
#include <memory>
#include <sqlite3.h>
#include <stdexcept>
#include <string>
#include <vector>

namespace {

constexpr long long kStart = 132'540'000'000'000'000; // in 2020
constexpr long long kStep = 1'000'000;                // 100 ms
constexpr unsigned int kFlushRecords = 200'000;
constexpr unsigned int kScanRecords = 2'000'000;

void Require(bool bCondition, const char* what) {
    if (!bCondition)
        throw std::runtime_error(what);
}

class Folder {
public:
    Folder() {
        std::string name = (std::filesystem::temp_directory_path() / "qvbench-XXXXXX").string();
        Require(::mkdtemp(name.data()) != nullptr, "no temporary folder");
        m_Path = name;
    }
    ~Folder() { std::filesystem::remove_all(m_Path); }
    CQVFilePath Path() const { return CQVFilePath(m_Path.string()); }
    std::string File(const char* name) const { return (m_Path / name).string(); }
    void Empty() const {
        for (const auto& entry : std::filesystem::directory_iterator(m_Path))
            std::filesystem::remove_all(entry.path());
    }

private:
    std::filesystem::path m_Path;
};

class QuietLog : public COutputLogNull {
public:
    bool AppendMessage(LogType type, int, const char* text, unsigned int length) override {
        Require(type != Error, std::string(text, length).c_str());
        return true;
    }
};

std::vector<unsigned char> MakeRecords(unsigned int count, unsigned int size) {
    std::vector<unsigned char> records(static_cast<size_t>(count) * size, 0x5a);
    for (unsigned int i = 0; i < count; ++i) {
        const long long time = kStart + i * kStep;
        std::memcpy(&records[static_cast<size_t>(i) * size], &time, sizeof time);
    }
    return records;
}

void CountRecords(benchmark::State& state, unsigned long long records, unsigned int size) {
    const auto total = static_cast<int64_t>(state.iterations() * records);
    state.SetItemsProcessed(total);
    state.SetBytesProcessed(total * size);
}

struct Table {
    explicit Table(unsigned int recordSize,
                   QVFileSystemInterface* files = QVFileSystem::GetUnsyncedInstance())
        : size(recordSize), table(files, recordSize, &errors) {
        table.InitialiseFromPath(folder.Path());
    }
    void Queue(const std::vector<unsigned char>& records) {
        for (const unsigned char* record = records.data(); record != records.data() + records.size();
             record += size)
            table.WriteNewRecord(qv_record_timestamp(record), record);
    }

    const unsigned int size;
    Folder folder;
    HistoricTableErrorSummary errors;
    QuietLog log;
    CHistoricTable table;
};

// ---- Queue

void Queue_Table(benchmark::State& state) {
    const auto size = static_cast<unsigned int>(state.range(0));
    Table table(size);
    const auto records = MakeRecords(kFlushRecords, size);
    table.Queue(records);
    table.table.FlushRecords(&table.log);
    for (auto _ : state) {
        table.Queue(records);
        state.PauseTiming();
        Require(table.table.FlushRecords(&table.log) == kFlushRecords, "flush");
        table.table.DeleteAll();
        state.ResumeTiming();
    }
    CountRecords(state, kFlushRecords, size);
}
BENCHMARK(Queue_Table)->Arg(16)->Arg(24)->Arg(64);

void Queue_PeerMemcpy(benchmark::State& state) {
    const auto size = static_cast<unsigned int>(state.range(0));
    const auto records = MakeRecords(kFlushRecords, size);
    const size_t perBlock = 65536 / size;
    std::vector<std::vector<unsigned char>> blocks(kFlushRecords / perBlock + 1,
                                                   std::vector<unsigned char>(65536));
    for (auto _ : state) {
        size_t block = 0;
        size_t used = 0;
        for (const unsigned char* record = records.data(); record != records.data() + records.size();
             record += size) {
            if (used == perBlock) {
                ++block;
                used = 0;
            }
            std::memcpy(blocks[block].data() + used++ * size, record, size);
            benchmark::ClobberMemory();
        }
    }
    CountRecords(state, kFlushRecords, size);
}
BENCHMARK(Queue_PeerMemcpy)->Arg(16)->Arg(24)->Arg(64);

// ---- Flush

// A file system of the caller's own, which knows nothing of gathered writes.
class ForeignFileSystem : public QVFileSystemInterface {
    class File : public QVFileInterface {
    public:
        bool OpenFileForWrite(const CQVFilePath& path) override { return m_File.OpenFileForWrite(path); }
        bool OpenFileForAppend(const CQVFilePath& path) override { return m_File.OpenFileForAppend(path); }
        bool OpenFileForRead(const CQVFilePath& path, bool bLock) override {
            return m_File.OpenFileForRead(path, bLock);
        }
        bool CloseFile() override { return m_File.CloseFile(); }
        bool WriteBytes(const void* data, unsigned int count) override {
            return m_File.WriteBytes(data, count);
        }
        bool ReadBytes(void* buffer, unsigned int count, unsigned int& got) override {
            return m_File.ReadBytes(buffer, count, got);
        }
        bool CutFile(long long length) override { return m_File.CutFile(length); }
        bool SkipForward(unsigned int count) override { return m_File.SkipForward(count); }
        bool SeekToOffset(unsigned int offset) override { return m_File.SeekToOffset(offset); }
        long long GetFileSize() const override { return m_File.GetFileSize(); }
        bool IsOpen() const override { return m_File.IsOpen(); }

    private:
        QVFileUnix m_File{false};
    };

public:
    QVFileInterface* CreateFileObject() override { return new File; }
};

void FlushTable(benchmark::State& state, QVFileSystemInterface* files) {
    const auto size = static_cast<unsigned int>(state.range(0));
    Table table(size, files);
    const auto records = MakeRecords(kFlushRecords, size);
    for (auto _ : state) {
        state.PauseTiming();
        table.table.DeleteAll();
        table.Queue(records);
        state.ResumeTiming();
        Require(table.table.FlushRecords(&table.log) == kFlushRecords, "flush");
    }
    unsigned long long onDisk = 0;
    for (const auto& entry : std::filesystem::directory_iterator(table.folder.Path().GetPath()))
        onDisk += entry.file_size();
    state.counters["written/payload"] = static_cast<double>(onDisk) / static_cast<double>(records.size());
    CountRecords(state, kFlushRecords, size);
}

void Flush_Table(benchmark::State& state) {
    FlushTable(state, QVFileSystem::GetUnsyncedInstance());
}
BENCHMARK(Flush_Table)->Arg(16)->Arg(64)->Unit(benchmark::kMillisecond);

void Flush_TableForeignFiles(benchmark::State& state) {
    ForeignFileSystem files;
    FlushTable(state, &files);
}
BENCHMARK(Flush_TableForeignFiles)->Arg(16)->Arg(64)->Unit(benchmark::kMillisecond);

void Flush_PeerWritePerRecord(benchmark::State& state) {
    const auto size = static_cast<unsigned int>(state.range(0));
    const Folder folder;
    const auto records = MakeRecords(kFlushRecords, size);
    QVFileUnix file(false);
    for (auto _ : state) {
        state.PauseTiming();
        folder.Empty();
        state.ResumeTiming();
        Require(file.OpenFileForAppend(CQVFilePath(folder.File("records"))), "open");
        for (const unsigned char* record = records.data(); record != records.data() + records.size();
             record += size)
            Require(file.WriteBytes(record, size), "write");
        Require(file.CloseFile(), "close");
    }
    CountRecords(state, kFlushRecords, size);
}
BENCHMARK(Flush_PeerWritePerRecord)->Arg(16)->Arg(64)->Unit(benchmark::kMillisecond);

// Keys must sort by time: big-endian time stamp and a number that keeps equal times apart.
std::string LevelDbKey(long long time, unsigned int number) {
    std::string key(12, '\0');
    for (int i = 0; i < 8; ++i)
        key[static_cast<size_t>(i)] = static_cast<char>(time >> (56 - 8 * i));
    for (int i = 0; i < 4; ++i)
        key[static_cast<size_t>(8 + i)] = static_cast<char>(number >> (24 - 8 * i));
    return key;
}

std::unique_ptr<leveldb::DB> OpenLevelDb(const std::string& path) {
    leveldb::Options options;
    options.create_if_missing = true;
    options.compression = leveldb::kNoCompression;
    leveldb::DB* db = nullptr;
    Require(leveldb::DB::Open(options, path, &db).ok(), "LevelDB open");
    return std::unique_ptr<leveldb::DB>(db);
}

void FillLevelDb(leveldb::DB& db, const std::vector<unsigned char>& records, unsigned int size) {
    leveldb::WriteBatch batch;
    unsigned int number = 0;
    for (const unsigned char* record = records.data(); record != records.data() + records.size();
         record += size) {
        batch.Put(LevelDbKey(qv_record_timestamp(record), number),
                  leveldb::Slice(reinterpret_cast<const char*>(record) + 8, size - 8));
        if (++number % 1000 == 0) {
            Require(db.Write(leveldb::WriteOptions(), &batch).ok(), "LevelDB write");
            batch.Clear();
        }
    }
    Require(db.Write(leveldb::WriteOptions(), &batch).ok(), "LevelDB write");
}

void Flush_PeerLevelDb(benchmark::State& state) {
    const auto size = static_cast<unsigned int>(state.range(0));
    const Folder folder;
    const auto records = MakeRecords(kFlushRecords, size);
    for (auto _ : state) {
        state.PauseTiming();
        folder.Empty();
        auto db = OpenLevelDb(folder.File("db"));
        state.ResumeTiming();
        FillLevelDb(*db, records, size);
        state.PauseTiming();
        db.reset();
        state.ResumeTiming();
    }
    CountRecords(state, kFlushRecords, size);
}
BENCHMARK(Flush_PeerLevelDb)->Arg(16)->Arg(64)->Unit(benchmark::kMillisecond);

void Flush_PeerSqliteWal(benchmark::State& state) {
    const auto size = static_cast<unsigned int>(state.range(0));
    const Folder folder;
    const auto records = MakeRecords(kFlushRecords, size);
    const auto run = [](sqlite3* db, const char* text) {
        Require(sqlite3_exec(db, text, nullptr, nullptr, nullptr) == SQLITE_OK, text);
    };
    for (auto _ : state) {
        state.PauseTiming();
        folder.Empty();
        sqlite3* db = nullptr;
        Require(sqlite3_open(folder.File("db").c_str(), &db) == SQLITE_OK, "SQLite open");
        run(db, "PRAGMA journal_mode=WAL; PRAGMA synchronous=OFF; CREATE TABLE r(t INTEGER, v BLOB);"
                "CREATE INDEX i ON r(t);");
        sqlite3_stmt* insert = nullptr;
        Require(sqlite3_prepare_v2(db, "INSERT INTO r VALUES(?,?)", -1, &insert, nullptr) == SQLITE_OK,
                "prepare");
        state.ResumeTiming();
        run(db, "BEGIN");
        for (const unsigned char* record = records.data(); record != records.data() + records.size();
             record += size) {
            sqlite3_bind_int64(insert, 1, qv_record_timestamp(record));
            sqlite3_bind_blob(insert, 2, record + 8, static_cast<int>(size - 8), SQLITE_STATIC);
            Require(sqlite3_step(insert) == SQLITE_DONE, "insert");
            sqlite3_reset(insert);
        }
        run(db, "COMMIT");
        state.PauseTiming();
        sqlite3_finalize(insert);
        sqlite3_close(db);
        state.ResumeTiming();
    }
    CountRecords(state, kFlushRecords, size);
}
BENCHMARK(Flush_PeerSqliteWal)->Arg(16)->Arg(64)->Unit(benchmark::kMillisecond);

// ---- Scan and range

void ReadTable(benchmark::State& state, long long from, long long to, unsigned int expected) {
    const auto size = static_cast<unsigned int>(state.range(0));
    Table table(size);
    table.Queue(MakeRecords(kScanRecords, size));
    table.table.FlushRecords(&table.log);
    CHistoricTable::ReadContext context;
    for (auto _ : state) {
        unsigned int found = 0;
        for (bool more = table.table.BeginRead(from, to, context); more;
             more = table.table.NextRecord(context)) {
            benchmark::DoNotOptimize(context.m_pRecord);
            ++found;
        }
        table.table.EndRead(context);
        Require(found == expected, "records read");
    }
    CountRecords(state, kScanRecords, size);
}

constexpr long long kRangeFrom = kStart + kScanRecords / 2 * kStep;
constexpr long long kRangeTo = kRangeFrom + (kScanRecords / 100 - 1) * kStep;

void Scan_Table(benchmark::State& state) {
    ReadTable(state, 0, LLONG_MAX, kScanRecords);
}
BENCHMARK(Scan_Table)->Arg(16)->Arg(24)->Arg(64)->Unit(benchmark::kMillisecond);

void Range_Table(benchmark::State& state) {
    ReadTable(state, kRangeFrom, kRangeTo, kScanRecords / 100);
}
BENCHMARK(Range_Table)->Arg(16)->Arg(24)->Arg(64)->Unit(benchmark::kMillisecond);

void ReadBlocks(benchmark::State& state, long long from, long long to, unsigned int expected) {
    const auto size = static_cast<unsigned int>(state.range(0));
    Table table(size);
    table.Queue(MakeRecords(kScanRecords, size));
    table.table.FlushRecords(&table.log);
    std::vector<CHistoricTable::HistoricFile> files;
    table.table.GetFiles(files);
    Require(files.size() == 1, "one file");
    CQVFilePath path;
    files[0].GetFilePath(table.folder.Path(), path);
    std::vector<unsigned char> block(65536 / size * size);
    std::vector<unsigned char> copy(size);
    for (auto _ : state) {
        QVFileUnix file(false);
        Require(file.OpenFileForRead(path, false), "open");
        unsigned int found = 0;
        for (;;) {
            unsigned int got = 0;
            Require(file.ReadBytes(block.data(), static_cast<unsigned int>(block.size()), got), "read");
            for (unsigned int at = 0; at + size <= got; at += size) {
                std::memcpy(copy.data(), block.data() + at, size);
                const long long time = qv_record_timestamp(copy.data());
                if (time >= from && time <= to) {
                    benchmark::DoNotOptimize(copy.data());
                    ++found;
                }
            }
            if (got < block.size())
                break;
        }
        Require(found == expected, "records read");
    }
    CountRecords(state, kScanRecords, size);
}

void Scan_PeerBlocks(benchmark::State& state) {
    ReadBlocks(state, 0, LLONG_MAX, kScanRecords);
}
BENCHMARK(Scan_PeerBlocks)->Arg(16)->Arg(24)->Arg(64)->Unit(benchmark::kMillisecond);

void Range_PeerBlocks(benchmark::State& state) {
    ReadBlocks(state, kRangeFrom, kRangeTo, kScanRecords / 100);
}
BENCHMARK(Range_PeerBlocks)->Arg(16)->Arg(24)->Arg(64)->Unit(benchmark::kMillisecond);

void Scan_PeerLevelDb(benchmark::State& state) {
    const auto size = static_cast<unsigned int>(state.range(0));
    const Folder folder;
    const auto db = OpenLevelDb(folder.File("db"));
    FillLevelDb(*db, MakeRecords(kScanRecords, size), size);
    for (auto _ : state) {
        const std::unique_ptr<leveldb::Iterator> iterator(db->NewIterator(leveldb::ReadOptions()));
        unsigned int found = 0;
        for (iterator->SeekToFirst(); iterator->Valid(); iterator->Next()) {
            benchmark::DoNotOptimize(iterator->value().data());
            ++found;
        }
        Require(found == kScanRecords, "records read");
    }
    CountRecords(state, kScanRecords, size);
}
BENCHMARK(Scan_PeerLevelDb)->Arg(16)->Arg(64)->Unit(benchmark::kMillisecond);

// ---- How cost grows

// One record read from the middle of a table of many files.
void Files_ReadOne(benchmark::State& state) {
    const auto files = static_cast<int>(state.range(0));
    Table table(16);
    for (int i = 0; i < files; ++i) {
        const long long record[2] = {kStart + i * CHistoricTable::FilePeriod, i};
        table.table.WriteNewRecord(record[0], record);
    }
    table.table.FlushRecords(&table.log);
    const long long middle = kStart + files / 2 * CHistoricTable::FilePeriod;
    CHistoricTable::ReadContext context;
    for (auto _ : state) {
        Require(table.table.BeginRead(middle, middle, context), "record");
        table.table.EndRead(context);
    }
}
BENCHMARK(Files_ReadOne)->Arg(1)->Arg(100)->Arg(10'000)->Unit(benchmark::kMicrosecond);

// A flush of one record into a table of many files.
void Files_FlushOne(benchmark::State& state) {
    const auto files = static_cast<int>(state.range(0));
    Table table(16);
    long long record[2] = {kStart, 0};
    for (int i = 0; i < files; ++i) {
        record[0] = kStart + i * CHistoricTable::FilePeriod;
        table.table.WriteNewRecord(record[0], record);
    }
    table.table.FlushRecords(&table.log);
    for (auto _ : state) {
        table.table.WriteNewRecord(record[0], record);
        Require(table.table.FlushRecords(&table.log) == 1, "flush");
    }
}
BENCHMARK(Files_FlushOne)->Arg(1)->Arg(100)->Arg(10'000)->Unit(benchmark::kMicrosecond);

void Records_QueueFlushScan(benchmark::State& state) {
    const auto count = static_cast<unsigned int>(state.range(0));
    const auto records = MakeRecords(count, 16);
    for (auto _ : state) {
        Table table(16);
        table.Queue(records);
        Require(table.table.FlushRecords(&table.log) == count, "flush");
        CHistoricTable::ReadContext context;
        unsigned int found = 0;
        for (bool more = table.table.BeginRead(0, LLONG_MAX, context); more;
             more = table.table.NextRecord(context))
            ++found;
        Require(found == count, "records read");
    }
    CountRecords(state, count, 16);
}
BENCHMARK(Records_QueueFlushScan)
    ->RangeMultiplier(10)
    ->Range(10'000, 10'000'000)
    ->Unit(benchmark::kMillisecond);

// Every thread queues; the first also flushes, as a server does.
void Threads_Queue(benchmark::State& state) {
    static std::unique_ptr<Table> table;
    if (state.thread_index() == 0)
        table = std::make_unique<Table>(16);
    long long record[2] = {kStart, 0};
    unsigned int queued = 0;
    for (auto _ : state) {
        table->table.WriteNewRecord(record[0], record);
        if (state.thread_index() == 0 && ++queued % 100'000 == 0)
            table->table.FlushRecords(&table->log);
    }
    state.SetItemsProcessed(static_cast<int64_t>(state.iterations()));
    if (state.thread_index() == 0)
        table.reset();
}
BENCHMARK(Threads_Queue)->ThreadRange(1, 8)->UseRealTime();

} // namespace
