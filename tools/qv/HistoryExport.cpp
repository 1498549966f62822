// qv history export and qv history ddl: the way of a table's records into a database server, in the format that
// the server itself loads fastest, and the table to load them into.
//
// The files are read directly and not through the table's reads: those pass over a file that cannot be read,
// and an export that lacks records must not look like a whole one.

#include "Help.h"
#include "History.h"
#include "HistoryFolder.h"
#include "Output.h"

#include <CLI/CLI.hpp>
#include <QVPlatform/Process.h>
#include <algorithm>
#include <charconv>
#include <cmath>
#include <csignal>
#include <cstdint>
#include <filesystem>
#include <memory>

namespace {

constexpr std::size_t OutputBufferSize = 256u << 10;
constexpr unsigned int ReadBlockSize = 256u << 10;
constexpr unsigned long long RecordsPerProgress = 1u << 16;

constexpr long long TicksPerMicrosecond = 10;
constexpr long long MicrosecondsUntil2000 = 12'591'158'400'000'000; // since 1601
constexpr long long TicksUntil1970 = 116'444'736'000'000'000;       // since 1601
// The first time of a timestamptz: 4714-11-24 BC.
constexpr long long FirstPostgreSqlMicrosecond = -211'813'488'000'000'000; // since 2000
constexpr std::size_t MaxPostgreSqlColumns = 1600;
// Longer ones would be cut without an error, and might then be the same.
constexpr std::size_t MaxIdentifierLength = 63;

struct ExportOptions {
    FolderOptions m_Folder;
    RangeOptions m_Range;
    std::string m_Format;
    std::string m_Output;
};

struct DdlOptions {
    std::string m_Layout = SampleLayout::Standard;
    std::string m_Engine;
    std::string m_Table = "samples";
};

// The types of both engines, in the order of SampleField::Type. PostgreSQL has no unsigned types, so those
// take the next larger one.
struct EngineTypes {
    const char* m_pClickHouse;
    const char* m_pPostgreSql;
};
constexpr EngineTypes TypesOfFields[] = {
    {"Int8", "smallint"},  {"Int16", "smallint"},          {"Int32", "integer"}, {"Int64", "bigint"},
    {"UInt8", "smallint"}, {"UInt16", "integer"},          {"UInt32", "bigint"}, {"UInt64", "numeric(20)"},
    {"Float32", "real"},   {"Float64", "double precision"}};

// The named fields in the order of the bytes.
std::vector<SampleField> FieldsAsTheyLie(const SampleLayout& layout) {
    std::vector<SampleField> fields = layout.GetFields();
    std::sort(fields.begin(), fields.end(),
              [](const SampleField& a, const SampleField& b) { return a.m_Offset < b.m_Offset; });
    return fields;
}

// A name for a column beside those of the layout.
std::string UnusedName(const SampleLayout& layout, std::string name) {
    while (layout.Find(name) != nullptr)
        name += '_';
    return name;
}

// Turns records into the bytes of a format, behind what the text holds already.
class RecordEncoder {
public:
    virtual ~RecordEncoder() = default;
    virtual void Begin(std::string& out) const = 0;
    virtual void Add(const unsigned char* record, std::string& out) = 0;
    virtual void End(std::string& out) const = 0;
};

// ClickHouse's RowBinary is fields back to back, little-endian: what the records are.
class RowBinaryEncoder : public RecordEncoder {
public:
    explicit RowBinaryEncoder(const SampleLayout& layout) : m_RecordSize(layout.GetRecordSize()) {}

    void Begin(std::string&) const override {}
    void Add(const unsigned char* record, std::string& out) override {
        out.append(reinterpret_cast<const char*>(record), m_RecordSize);
    }
    void End(std::string&) const override {}

private:
    const unsigned int m_RecordSize;
};

class CsvEncoder : public RecordEncoder {
public:
    explicit CsvEncoder(const SampleLayout& layout) : m_Fields(FieldsAsTheyLie(layout)) {}

    void Begin(std::string& out) const override {
        for (const SampleField& field : m_Fields) {
            out += field.m_Name;
            out += &field == &m_Fields.back() ? '\n' : ',';
        }
    }
    void Add(const unsigned char* record, std::string& out) override {
        m_TimeFormatter.Append(out, SampleLayout::GetTime(record), false);
        for (std::size_t index = 1; index < m_Fields.size(); ++index) {
            out += ',';
            AppendValue(m_Fields[index], record, out);
        }
        out += '\n';
    }
    void End(std::string&) const override {}

private:
    static void AppendValue(const SampleField& field, const unsigned char* record, std::string& out) {
        if (!field.IsReal()) {
            if (field.IsSigned())
                AppendNumber(out, field.GetInteger(record));
            else
                AppendNumber(out, field.GetUnsigned(record));
            return;
        }
        const double value = field.GetReal(record);
        if (std::isnan(value)) {
            out += "nan"; // no engine knows one with a sign
        } else if (field.m_Type == SampleField::F32) {
            char digits[32];
            out.append(digits, std::to_chars(digits, std::end(digits), static_cast<float>(value)).ptr);
        } else {
            AppendNumber(out, value);
        }
    }

    const std::vector<SampleField> m_Fields;
    TimeFormatter m_TimeFormatter;
};

template<typename Unsigned>
void AppendBigEndian(std::string& out, Unsigned bits) {
    char bytes[sizeof bits];
    for (std::size_t index = 0; index < sizeof bits; ++index)
        bytes[index] = static_cast<char>(bits >> (8 * (sizeof bits - 1 - index)));
    out.append(bytes, sizeof bytes);
}

// Refuses layouts that no PostgreSQL table has columns for.
void CheckForPostgreSql(const SampleLayout& layout) {
    if (layout.GetFields().size() > MaxPostgreSqlColumns)
        throw ToolError(ExitUsage, "--layout: PostgreSQL has no tables of more than " +
                                       CountText(MaxPostgreSqlColumns, "column") +
                                       "; give the other fields no name");
    for (const SampleField& field : layout.GetFields())
        if (field.m_Name.size() > MaxIdentifierLength)
            throw ToolError(ExitUsage, "--layout: the name " + Quoted(field.m_Name) +
                                           " is too long for PostgreSQL; it takes " +
                                           CountText(MaxIdentifierLength, "character"));
}

// PostgreSQL's COPY BINARY: each value with its length in front, big-endian.
class PgCopyEncoder : public RecordEncoder {
public:
    explicit PgCopyEncoder(const SampleLayout& layout) : m_Fields(FieldsAsTheyLie(layout)) {
        CheckForPostgreSql(layout);
    }

    void Begin(std::string& out) const override {
        out += std::string_view("PGCOPY\n\377\r\n\0", 11);
        AppendBigEndian(out, std::uint32_t(0)); // flags
        AppendBigEndian(out, std::uint32_t(0)); // length of the header's extension
    }
    void Add(const unsigned char* record, std::string& out) override {
        AppendBigEndian(out, static_cast<std::uint16_t>(m_Fields.size()));
        AppendSized(out, static_cast<std::uint64_t>(GetMicroseconds(SampleLayout::GetTime(record))));
        for (std::size_t index = 1; index < m_Fields.size(); ++index)
            AppendValue(m_Fields[index], record, out);
    }
    void End(std::string& out) const override { AppendBigEndian(out, std::uint16_t(0xFFFF)); }

private:
    template<typename Unsigned>
    static void AppendSized(std::string& out, Unsigned bits) {
        AppendBigEndian(out, static_cast<std::uint32_t>(sizeof bits));
        AppendBigEndian(out, bits);
    }

    static long long GetMicroseconds(long long time) {
        const long long whole = time / TicksPerMicrosecond - (time % TicksPerMicrosecond < 0 ? 1 : 0);
        const long long result = whole - MicrosecondsUntil2000;
        if (result < FirstPostgreSqlMicrosecond)
            throw ToolError(ExitInputOutput, "the time " + std::to_string(time) +
                                                 " of a record lies before 4714 BC, where PostgreSQL's "
                                                 "times begin; leave it out with --from");
        return result;
    }

    static void AppendValue(const SampleField& field, const unsigned char* record, std::string& out) {
        switch (field.m_Type) {
        case SampleField::I8:
        case SampleField::I16:
            AppendSized(out, static_cast<std::uint16_t>(field.GetInteger(record)));
            break;
        case SampleField::U8:
            AppendSized(out, static_cast<std::uint16_t>(field.GetUnsigned(record)));
            break;
        case SampleField::I32:
        case SampleField::U16:
        case SampleField::F32: // its bits
            AppendSized(out, static_cast<std::uint32_t>(field.GetUnsigned(record)));
            break;
        case SampleField::U64:
            AppendNumeric(out, field.GetUnsigned(record));
            break;
        case SampleField::I64:
        case SampleField::U32:
        case SampleField::F64:
            AppendSized(out, static_cast<std::uint64_t>(field.GetUnsigned(record)));
            break;
        case SampleField::Bytes: // has no name, so it is no column
            break;
        }
    }

    // A numeric has digits of 10,000, the highest first and without zeros at the end.
    static void AppendNumeric(std::string& out, unsigned long long value) {
        constexpr unsigned int Base = 10'000;
        std::uint16_t digits[5]; // the lowest first
        unsigned int count = 0;
        for (; value != 0; value /= Base)
            digits[count++] = static_cast<std::uint16_t>(value % Base);
        unsigned int zeros = 0;
        while (zeros < count && digits[zeros] == 0)
            ++zeros;
        AppendBigEndian(out, static_cast<std::uint32_t>(8 + 2 * (count - zeros)));
        AppendBigEndian(out, static_cast<std::uint16_t>(count - zeros));
        AppendBigEndian(out, static_cast<std::uint16_t>(count == 0 ? 0 : count - 1)); // weight of the first
        AppendBigEndian(out, std::uint16_t(0));                                       // positive
        AppendBigEndian(out, std::uint16_t(0)); // digits behind the point
        while (count > zeros)
            AppendBigEndian(out, digits[--count]);
    }

    const std::vector<SampleField> m_Fields;
};

std::unique_ptr<RecordEncoder> MakeEncoder(const std::string& format, const SampleLayout& layout) {
    if (format == "rowbinary")
        return std::make_unique<RowBinaryEncoder>(layout);
    if (format == "pgcopy")
        return std::make_unique<PgCopyEncoder>(layout);
    return std::make_unique<CsvEncoder>(layout);
}

// Where an export goes: a file, or the standard output. A file that does not become whole is removed.
class ExportOutput {
public:
    explicit ExportOutput(const std::string& path) : m_Path(path) {
        m_Buffer.reserve(2 * OutputBufferSize);
        if (!m_Path.empty() && !m_File.OpenFileForWrite(CQVFilePath(m_Path)))
            Fail();
    }
    ~ExportOutput() {
        if (!m_File.IsOpen())
            return;
        std::error_code ignored;
        if (std::filesystem::is_regular_file(m_Path, ignored))
            std::filesystem::remove(m_Path, ignored);
    }
    ExportOutput(const ExportOutput&) = delete;
    ExportOutput& operator=(const ExportOutput&) = delete;

    // What is to be written is appended here, and WriteWhenFull() called now and then.
    std::string& GetBuffer() { return m_Buffer; }
    void WriteWhenFull() {
        if (m_Buffer.size() >= OutputBufferSize)
            Write();
    }
    void Finish() {
        Write();
        if (!m_Path.empty() && !m_File.CloseFile())
            Fail();
    }

private:
    void Write() {
        if (m_Path.empty())
            WriteStandardOutput(m_Buffer);
        else if (!m_File.WriteBytes(m_Buffer.data(), static_cast<unsigned int>(m_Buffer.size())))
            Fail();
        m_Buffer.clear();
    }
    [[noreturn]] void Fail() const {
        throw ToolError(ExitInputOutput,
                        Quoted(m_Path) + " cannot be written: " + ErrorText(m_File.GetLastError()));
    }

    const std::string m_Path;
    QVFileUnix m_File;
    std::string m_Buffer;
};

// Calls `visit` with the records of a range in one file. What is no whole record at its end is left out: it
// is torn, or another process is just writing it.
template<typename Visit>
void ForEachRecordOfFile(const std::string& path, unsigned int recordSize, const TimeRange& range,
                         std::vector<unsigned char>& block, Visit visit) {
    QVFileUnix file;
    const auto fail = [&] {
        throw ToolError(ExitInputOutput, path + " cannot be read: " + ErrorText(file.GetLastError()) +
                                             "; when another process keeps house in the folder, try again");
    };
    if (!file.OpenFileForRead(CQVFilePath(path), false))
        fail();
    const unsigned int blockSize = std::max(ReadBlockSize / recordSize, 1u) * recordSize;
    block.resize(blockSize);
    for (unsigned int got = blockSize; got == blockSize;) {
        if (!file.ReadBytes(block.data(), blockSize, got))
            fail();
        const unsigned char* const end = block.data() + got / recordSize * recordSize;
        for (const unsigned char* record = block.data(); record != end; record += recordSize) {
            const long long time = SampleLayout::GetTime(record);
            if (time >= range.m_From && time <= range.m_To)
                visit(record);
        }
    }
}

void CheckOutput(const ExportOptions& options) {
    if (options.m_Output.empty() && options.m_Format != "csv" && qv_is_terminal(1))
        throw ToolError(ExitUsage, options.m_Format +
                                       " is not for people to read; write it to a file with --output, or "
                                       "into a pipe");
    if (options.m_Output.ends_with(".qvhis"))
        throw ToolError(ExitUsage, "--output: " + Quoted(options.m_Output) +
                                       " would be taken for a file of a table; choose another name");
}

ExitCode Export(const ExportOptions& options) {
    CheckOutput(options);
    // A reader that goes away is then an error of the write.
    std::signal(SIGPIPE, SIG_IGN);
    const HistoryFolder folder(options.m_Folder, HistoryFolder::Read);
    const TimeRange range = folder.GetRange(options.m_Range);
    const std::unique_ptr<RecordEncoder> encoder = MakeEncoder(options.m_Format, folder.GetLayout());
    std::vector<CHistoricTable::HistoricFile> files;
    folder.GetTable().GetFiles(files);

    ExportOutput output(options.m_Output);
    Progress progress("Exporting:", "records", folder.GetRecordCount());
    unsigned long long count = 0;
    std::vector<unsigned char> block;
    encoder->Begin(output.GetBuffer());
    for (const CHistoricTable::HistoricFile& file : files) {
        // An entry without records may have no file.
        if (file.m_NumRecords == 0 || !file.OverlapsSearchRange(range.m_From, range.m_To))
            continue;
        char name[CHistoricTable::FileNameBufferSize];
        file.GetFileName(name);
        ForEachRecordOfFile(folder.GetPath() + "/" + name, folder.GetLayout().GetRecordSize(), range, block,
                            [&](const unsigned char* record) {
                                encoder->Add(record, output.GetBuffer());
                                output.WriteWhenFull();
                                if (++count % RecordsPerProgress == 0)
                                    progress.Update(count);
                            });
    }
    encoder->End(output.GetBuffer());
    output.Finish();
    return ExitDone;
}

// A table's name, with a schema or database before it where there is a '.', in the quotes of the engine. Names
// that would need an escape in them are refused.
std::string QuoteTableName(const std::string& name, char quote) {
    std::string result;
    unsigned int parts = 0;
    for (std::size_t start = 0; start <= name.size(); ++parts) {
        const std::size_t end = std::min(name.find('.', start), name.size());
        const std::string part = name.substr(start, end - start);
        const bool bPlain = std::all_of(part.begin(), part.end(), [](unsigned char character) {
            return character == '_' || (character >= '0' && character <= '9') ||
                   ((character | 0x20) >= 'a' && (character | 0x20) <= 'z');
        });
        if (part.empty() || part.size() > MaxIdentifierLength || !bPlain ||
            (part[0] >= '0' && part[0] <= '9') || parts == 2)
            throw ToolError(ExitUsage, "--table: " + Quoted(name) +
                                           " is no name; it may hold letters, digits and '_', at most " +
                                           std::to_string(MaxIdentifierLength) +
                                           ", not begin with a digit, and have a schema before a '.'");
        result += (parts == 0 ? "" : ".") + (quote + part + quote);
        start = end + 1;
    }
    return result;
}

// "(tag, time)", or only the time for layouts without tags.
std::string KeyColumns(const SampleLayout& layout, char quote) {
    const std::string time = quote + std::string("time") + quote;
    return layout.Find("tag") == nullptr ? "(" + time + ")"
                                         : "(" + (quote + std::string("tag") + quote) + ", " + time + ")";
}

std::string MakeClickHouseTable(const SampleLayout& layout, const std::string& tableName) {
    const std::string table = QuoteTableName(tableName, '`');
    std::string text = "-- qv history export DIR --format rowbinary |\n"
                       "--     clickhouse-client --query 'INSERT INTO " +
                       table + " FORMAT RowBinary'\nCREATE TABLE " + table + "\n(\n";
    unsigned int offset = 0;
    // RowBinary has no gaps, so the bytes without a name need columns too.
    const auto addPadding = [&](unsigned int end) {
        if (end != offset)
            text += "    `" + UnusedName(layout, "reserved_" + std::to_string(offset)) + "` FixedString(" +
                    std::to_string(end - offset) + "),\n";
    };
    for (const SampleField& field : FieldsAsTheyLie(layout)) {
        addPadding(field.m_Offset);
        text += "    `" + field.m_Name + "` " + TypesOfFields[field.m_Type].m_pClickHouse + ",\n";
        offset = field.m_Offset + field.m_Size;
    }
    addPadding(layout.GetRecordSize());
    return text + "    `" + UnusedName(layout, "time_utc") +
           "` DateTime64(7, 'UTC') MATERIALIZED fromUnixTimestamp64Nano((`time` - " +
           std::to_string(TicksUntil1970) + ") * 100, 'UTC')\n)\nENGINE = MergeTree\nORDER BY " +
           KeyColumns(layout, '`') + ";\n";
}

std::string MakePostgreSqlTable(const SampleLayout& layout, const std::string& tableName) {
    CheckForPostgreSql(layout);
    const std::string table = QuoteTableName(tableName, '"');
    std::string text = "-- qv history export DIR --format pgcopy |\n"
                       "--     psql --command='COPY " +
                       table + " FROM STDIN (FORMAT binary)'\nCREATE TABLE " + table + " (\n";
    for (const SampleField& field : FieldsAsTheyLie(layout)) {
        const char* const type =
            field.m_Offset == 0 ? "timestamptz" : TypesOfFields[field.m_Type].m_pPostgreSql;
        text += std::string(field.m_Offset == 0 ? "" : ",\n") + "    \"" + field.m_Name + "\" " + type +
                " NOT NULL";
    }
    // No primary key: a table may hold two records of one tag and time.
    return text + "\n);\nCREATE INDEX ON " + table + " " + KeyColumns(layout, '"') + ";\n";
}

ExitCode PrintDdl(const DdlOptions& options) {
    const SampleLayout layout(options.m_Layout);
    WriteStandardOutput(options.m_Engine == "clickhouse" ? MakeClickHouseTable(layout, options.m_Table)
                                                         : MakePostgreSqlTable(layout, options.m_Table));
    return ExitDone;
}

} // namespace

void AddHistoryExportCommands(CLI::App& history, ToolContext& context) {
    CLI::App* const exporting =
        history.add_subcommand("export", "Write the records of a time range for a database server");
    const auto exportOptions = std::make_shared<ExportOptions>();
    exportOptions->m_Folder.AddTo(*exporting);
    exportOptions->m_Range.AddTo(*exporting);
    exporting
        ->add_option("--format", exportOptions->m_Format,
                     "rowbinary for ClickHouse, pgcopy for PostgreSQL, csv for any")
        ->required()
        ->check(CLI::IsMember({"rowbinary", "csv", "pgcopy"}));
    exporting->add_option("--output", exportOptions->m_Output, "write to this file, not the standard output");
    SetExample(*exporting, "qv history export plant --format csv --output plant.csv");
    exporting->callback([exportOptions, &context] { context.m_ExitCode = Export(*exportOptions); });

    CLI::App* const ddl = history.add_subcommand("ddl", "Print the SQL of a table that takes an export");
    const auto ddlOptions = std::make_shared<DdlOptions>();
    ddl->add_option("--engine", ddlOptions->m_Engine, "whose SQL")
        ->required()
        ->check(CLI::IsMember({"clickhouse", "postgresql"}));
    ddl->add_option("--layout", ddlOptions->m_Layout,
                    "fields of a record, name:type,... (default: " + ddlOptions->m_Layout + ")");
    ddl->add_option("--table", ddlOptions->m_Table,
                    "name of the table (default: " + ddlOptions->m_Table + ")");
    SetExample(*ddl, "qv history ddl --engine postgresql");
    ddl->callback([ddlOptions, &context] { context.m_ExitCode = PrintDdl(*ddlOptions); });
}
