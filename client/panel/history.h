#pragma once

#include "client/panel/hub.h"
#include "client/tessaryctl/logentry.h"

#include <memory>
#include <mutex>
#include <string>
#include <vector>

struct sqlite3;

namespace tessary::panel {

/// The rows of the measurement of the last 24 hours, in SQLite. May be used from any thread.
class History
{
public:
    /// `file`: ":memory:", or a path. Throws Failure LocalFile.
    explicit History(const std::string& file);

    /// One that can not be kept is told on standard error.
    void add(const ctl::LogEntry& entry);

    /// {"columns": [...], "rows": [[...], ...]} of the time from `from` up to `to` (seconds since 1970). Where there are
    /// more than `points` rows, two stand for those of a stretch of time: the least and the greatest of each column.
    Json between(double from, double to, int points) const;

    /// The rows as a measurement log of tessaryctl, which `tessaryctl report` reads.
    std::string csv(double from, double to) const;

private:
    void execute(const std::string& sql) const;
    void insert(const ctl::LogEntry& entry) const;
    void forgetOld(double now) const;
    Json rows(const std::string& sql, double from, double to) const;

    struct Close
    {
        void operator()(sqlite3* database) const;
    };

    mutable std::mutex m_mutex;
    std::unique_ptr<sqlite3, Close> m_database;
    int m_added = 0; ///< since old rows were forgotten
    bool m_lost = false; ///< the last row could not be kept
};

} // namespace tessary::panel
