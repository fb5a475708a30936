#include "client/panel/history.h"

#include "client/tessaryctl/failure.h"

#include <algorithm>
#include <iostream>
#include <sqlite3.h>

namespace tessary::panel {

using ctl::ExitCode;
using ctl::Failure;
using ctl::LogEntry;

namespace {

constexpr double kept = 24 * 3600.0; // s
constexpr int rowsBetweenForgetting = 300;

struct Column
{
    const char* name;
    std::optional<std::int64_t> LogEntry::*value;
};

/// Of between(), behind "time".
constexpr Column columns[] = {{"present", &LogEntry::present}, {"bit_rate", &LogEntry::frameRate},
    {"delay_factor_ms", &LogEntry::delayFactorMs}, {"continuity_errors", &LogEntry::errors},
    {"iat_median_us", &LogEntry::medianUs}, {"iat_p95_us", &LogEntry::percentile95Us},
    {"iat_p99_us", &LogEntry::percentile99Us}, {"iat_longest_us", &LogEntry::longestUs}};

/// What a log calls it; that is the table's column, too.
std::string storedAs(std::optional<std::int64_t> LogEntry::*value)
{
    const auto& numbers = ctl::logNumbers();
    return std::find_if(numbers.begin(), numbers.end(), [&](const ctl::LogNumber& n) {
        return n.value == value;
    })->name;
}

/// A prepared statement; the database is locked while it lives.
class Statement
{
public:
    Statement(sqlite3* database, const std::string& sql)
    {
        if (::sqlite3_prepare_v2(database, sql.c_str(), -1, &m_statement, nullptr) != SQLITE_OK)
            throw Failure(ExitCode::LocalFile, std::string("history: ") + ::sqlite3_errmsg(database));
    }
    ~Statement() { ::sqlite3_finalize(m_statement); }
    Statement(const Statement&) = delete;
    Statement& operator=(const Statement&) = delete;

    void bind(double value) { ::sqlite3_bind_double(m_statement, ++m_bound, value); }
    void bind(const std::string& value)
    {
        ::sqlite3_bind_text(m_statement, ++m_bound, value.c_str(), -1, SQLITE_TRANSIENT);
    }
    void bind(const std::optional<std::int64_t>& value)
    {
        ++m_bound;
        if (value.has_value())
            ::sqlite3_bind_int64(m_statement, m_bound, *value);
    }
    /// True while there is a row.
    bool step() { return ::sqlite3_step(m_statement) == SQLITE_ROW; }
    /// For what gives no rows.
    void carryOut()
    {
        if (::sqlite3_step(m_statement) != SQLITE_DONE)
            throw Failure(ExitCode::LocalFile, ::sqlite3_errmsg(::sqlite3_db_handle(m_statement)));
    }

    int width() const { return ::sqlite3_column_count(m_statement); }
    bool isNull(int column) const { return ::sqlite3_column_type(m_statement, column) == SQLITE_NULL; }
    double number(int column) const { return ::sqlite3_column_double(m_statement, column); }
    std::optional<std::int64_t> whole(int column) const
    {
        return isNull(column) ? std::nullopt
                              : std::optional<std::int64_t>(::sqlite3_column_int64(m_statement, column));
    }
    std::string text(int column) const
    {
        const unsigned char* text = ::sqlite3_column_text(m_statement, column);
        return text == nullptr ? std::string() : reinterpret_cast<const char*>(text);
    }

private:
    sqlite3_stmt* m_statement = nullptr;
    int m_bound = 0;
};

std::string columnList(const char* separator)
{
    std::string list = "time, event, server";
    for (const auto& number : ctl::logNumbers())
        list += std::string(", ") + number.name + separator;
    return list + ", seconds, crossed, note";
}

LogEntry::Event eventOf(const std::string& name)
{
    for (int i = 0; i <= static_cast<int>(LogEntry::Event::End); ++i) {
        if (ctl::nameOf(static_cast<LogEntry::Event>(i)) == name)
            return static_cast<LogEntry::Event>(i);
    }
    return LogEntry::Event::Period;
}

LogEntry entryOf(const Statement& row)
{
    LogEntry entry;
    entry.time = ctl::wallTimeOf(row.number(0));
    entry.event = eventOf(row.text(1));
    entry.server = row.text(2);
    int column = 3;
    for (const auto& number : ctl::logNumbers())
        entry.*(number.value) = row.whole(column++);
    if (!row.isNull(column))
        entry.seconds = row.number(column);
    entry.crossed = row.text(column + 1);
    entry.note = row.text(column + 2);
    return entry;
}

/// "time, f(a), f(b), ..." with `time` and the function around each column.
std::string selected(const std::string& time, const std::string& function)
{
    std::string list = time;
    for (const Column& column : columns)
        list += ", " + function + "(" + storedAs(column.value) + ")";
    return list;
}

// Rows of an event that is not about the reception say nothing here; none of these has "present".
constexpr const char* inSpan = " FROM history WHERE time >= ?1 AND time < ?2 AND present IS NOT NULL ";

} // namespace

void History::Close::operator()(sqlite3* database) const
{
    ::sqlite3_close(database);
}

History::History(const std::string& file)
{
    sqlite3* database = nullptr;
    const int error = ::sqlite3_open(file.c_str(), &database);
    m_database.reset(database);
    if (error != SQLITE_OK)
        throw Failure(ExitCode::LocalFile, "cannot open the history " + file + ": " + ::sqlite3_errstr(error),
            "name a file that this user may write");
    ::sqlite3_busy_timeout(database, 2000);
    execute("PRAGMA journal_mode=WAL");
    execute("PRAGMA synchronous=NORMAL");
    execute("CREATE TABLE IF NOT EXISTS history (" + columnList(" INTEGER") + ")");
    execute("CREATE INDEX IF NOT EXISTS history_time ON history (time)");
}

void History::execute(const std::string& sql) const
{
    char* error = nullptr;
    if (::sqlite3_exec(m_database.get(), sql.c_str(), nullptr, nullptr, &error) == SQLITE_OK)
        return;
    const std::string text = error != nullptr ? error : "unknown error";
    ::sqlite3_free(error);
    throw Failure(
        ExitCode::LocalFile, "history: " + text, "is it a file of tessary-panel, on a disk with room?");
}

void History::add(const LogEntry& entry)
{
    const std::lock_guard lock(m_mutex);
    try {
        insert(entry);
        if (++m_added % rowsBetweenForgetting == 0)
            forgetOld(ctl::secondsOf(entry.time));
        m_lost = false;
    } catch (const Failure& failure) { // the measurement goes on without its history
        if (!m_lost)
            std::cerr << "tessary-panel: the history is not kept: " << failure.what()
                      << "\n    is there room on its disk?" << std::endl;
        m_lost = true;
    }
}

void History::insert(const LogEntry& entry) const
{
    std::string marks = "?, ?, ?";
    for (std::size_t i = 0; i < ctl::logNumbers().size() + 3; ++i)
        marks += ", ?";
    Statement row(m_database.get(), "INSERT INTO history (" + columnList("") + ") VALUES (" + marks + ")");
    row.bind(ctl::secondsOf(entry.time));
    row.bind(std::string(ctl::nameOf(entry.event)));
    row.bind(entry.server);
    for (const auto& number : ctl::logNumbers())
        row.bind(entry.*(number.value));
    if (entry.seconds.has_value())
        row.bind(*entry.seconds);
    else
        row.bind(std::optional<std::int64_t>());
    row.bind(entry.crossed);
    row.bind(entry.note);
    row.carryOut();
}

void History::forgetOld(double now) const
{
    Statement forget(m_database.get(), "DELETE FROM history WHERE time < ?");
    forget.bind(now - kept);
    forget.carryOut();
}

Json History::rows(const std::string& sql, double from, double to) const
{
    Statement query(m_database.get(), sql);
    query.bind(from);
    query.bind(to);
    Json all = Json::array();
    while (query.step()) {
        Json row = Json::array({query.number(0)});
        for (int i = 1; i < query.width(); ++i)
            row.push_back(query.isNull(i) ? Json() : Json(*query.whole(i)));
        all.push_back(row);
    }
    return all;
}

Json History::between(double from, double to, int points) const
{
    const std::lock_guard lock(m_mutex);
    Json names = Json::array({"time"});
    for (const Column& column : columns)
        names.push_back(column.name);
    Statement count(m_database.get(), std::string("SELECT count(*), min(time), max(time)") + inSpan);
    count.bind(from);
    count.bind(to);
    count.step();
    if (count.number(0) <= points)
        return {{"columns", names},
            {"rows", rows("SELECT " + selected("time", "") + inSpan + "ORDER BY time", from, to)}};
    const double first = count.number(1);
    const double width = std::max((count.number(2) - first) / (points / 2.0), 0.001);
    const std::string stretch =
        "CAST((time - " + std::to_string(first) + ") / " + std::to_string(width) + " AS INTEGER)";
    const std::string group = inSpan + ("GROUP BY " + stretch);
    return {{"columns", names},
        {"rows",
            rows("SELECT " + selected("min(time) AS t", "min") + group + " UNION ALL SELECT "
                    + selected("max(time) AS t", "max") + group + " ORDER BY t",
                from, to)}};
}

std::string History::csv(double from, double to) const
{
    const std::lock_guard lock(m_mutex);
    std::string text = headerOf(ctl::LogFormat::Csv) + "\n";
    Statement query(m_database.get(),
        "SELECT " + columnList("") + " FROM history WHERE time >= ?1 AND time < ?2 ORDER BY time");
    query.bind(from);
    query.bind(to);
    while (query.step())
        text += lineOf(entryOf(query), ctl::LogFormat::Csv) + "\n";
    return text;
}

} // namespace tessary::panel
