#include "host/recordings/index.h"

#include <sqlite3.h>

namespace host {
namespace {

// A file is ten minutes long at most, and no clock runs so much faster that this would not do.
constexpr UnixMs kLongestFile = 3'600'000;
constexpr int kVersion = 2;

// The triggers keep the sums, which are asked for every few seconds.
constexpr const char* kTables = R"(
CREATE TABLE files(camera INTEGER NOT NULL, number INTEGER NOT NULL, begin INTEGER NOT NULL, end INTEGER NOT NULL,
    bytes INTEGER NOT NULL, state INTEGER NOT NULL, keep INTEGER NOT NULL, PRIMARY KEY(camera, number)) WITHOUT ROWID;
CREATE INDEX files_of_camera ON files(camera, begin);
CREATE INDEX files_in_time ON files(begin) WHERE keep = 0;
CREATE INDEX files_kept ON files(begin) WHERE keep = 1;
CREATE TABLE sums(camera INTEGER PRIMARY KEY, bytes INTEGER NOT NULL, kept INTEGER NOT NULL);
CREATE TRIGGER file_comes AFTER INSERT ON files BEGIN
    INSERT INTO sums VALUES(new.camera, new.bytes, new.bytes * new.keep) ON CONFLICT DO UPDATE SET
        bytes = bytes + excluded.bytes, kept = kept + excluded.kept;
END;
CREATE TRIGGER file_changes AFTER UPDATE ON files BEGIN
    UPDATE sums SET bytes = bytes + new.bytes - old.bytes,
        kept = kept + new.bytes * new.keep - old.bytes * old.keep WHERE camera = new.camera;
END;
CREATE TRIGGER file_goes AFTER DELETE ON files BEGIN
    UPDATE sums SET bytes = bytes - old.bytes, kept = kept - old.bytes * old.keep WHERE camera = old.camera;
END;
CREATE TABLE events(number INTEGER PRIMARY KEY, camera TEXT NOT NULL, time INTEGER NOT NULL, until INTEGER NOT NULL,
    kind INTEGER NOT NULL, text TEXT NOT NULL);
CREATE INDEX events_of_camera ON events(camera, time);
CREATE INDEX events_in_time ON events(time);
CREATE TABLE told(one INTEGER PRIMARY KEY, number INTEGER NOT NULL);
PRAGMA user_version = 2;
)";

IndexError::Kind KindOf(int status) {
    switch (status & 0xFF) {
    case SQLITE_BUSY:
    case SQLITE_LOCKED:
        return IndexError::Kind::Locked;
    case SQLITE_FULL:
    case SQLITE_READONLY:
    case SQLITE_IOERR:
    case SQLITE_CANTOPEN:
    case SQLITE_PERM:
    case SQLITE_NOMEM:
        return IndexError::Kind::NotWritable;
    default:
        return IndexError::Kind::Damaged;
    }
}

[[noreturn]] void ThrowIndex(sqlite3* database, int status) {
    throw IndexError(KindOf(status),
                     std::string("the index of recordings: ") +
                         (database != nullptr ? ::sqlite3_errmsg(database) : ::sqlite3_errstr(status)));
}

} // namespace

class Index::Statement {
public:
    Statement(sqlite3* database, const char* text) : m_database(database) {
        if (const int status = ::sqlite3_prepare_v2(database, text, -1, &m_statement, nullptr);
            status != SQLITE_OK)
            ThrowIndex(database, status);
    }
    Statement(const Statement&) = delete;
    Statement& operator=(const Statement&) = delete;
    ~Statement() { ::sqlite3_finalize(m_statement); }

    void Bind(std::int64_t value) { Check(::sqlite3_bind_int64(m_statement, ++m_bound, value)); }
    // What is lent outlives the steps.
    void Bind(std::string_view text) {
        Check(::sqlite3_bind_text(m_statement, ++m_bound, text.data() != nullptr ? text.data() : "",
                                  static_cast<int>(text.size()), SQLITE_STATIC));
    }
    // True for a row.
    bool Step() {
        const int status = ::sqlite3_step(m_statement);
        if (status != SQLITE_ROW && status != SQLITE_DONE)
            ThrowIndex(m_database, status);
        return status == SQLITE_ROW;
    }
    [[nodiscard]] std::int64_t Integer(int column) const {
        return ::sqlite3_column_int64(m_statement, column);
    }
    [[nodiscard]] bool IsNull(int column) const {
        return ::sqlite3_column_type(m_statement, column) == SQLITE_NULL;
    }
    [[nodiscard]] std::string Text(int column) const {
        const auto* text = ::sqlite3_column_text(m_statement, column);
        return text == nullptr
                   ? std::string()
                   : std::string(reinterpret_cast<const char*>(text),
                                 static_cast<std::size_t>(::sqlite3_column_bytes(m_statement, column)));
    }

private:
    void Check(int status) const {
        if (status != SQLITE_OK)
            ThrowIndex(m_database, status);
    }
    sqlite3* const m_database;
    sqlite3_stmt* m_statement = nullptr;
    int m_bound = 0;
};

void Index::CloseDatabase::operator()(sqlite3* database) const noexcept {
    ::sqlite3_close_v2(database);
}

Index::Index(const std::string& path, Access access, int wait) {
    sqlite3* database = nullptr;
    const int flags =
        access == Access::Write ? SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE : SQLITE_OPEN_READWRITE;
    const int status = ::sqlite3_open_v2(path.c_str(), &database, flags | SQLITE_OPEN_NOFOLLOW, nullptr);
    m_database.reset(database);
    if (status != SQLITE_OK)
        ThrowIndex(database, status);
    ::sqlite3_extended_result_codes(database, 1);
    ::sqlite3_busy_timeout(database, wait);
    if (access == Access::Read) {
        Run("PRAGMA query_only = 1");
        return;
    }
    // A file that a crash of the machine leaves behind is not in order without a sync at each checkpoint; the
    // last moments may be missing, and are found in the folder.
    Run("PRAGMA journal_mode = WAL; PRAGMA synchronous = NORMAL");
    Statement version(database, "PRAGMA user_version");
    const std::int64_t found = version.Step() ? version.Integer(0) : 0;
    Statement content(database, "SELECT count(*) FROM sqlite_master");
    const bool empty = content.Step() && content.Integer(0) == 0;
    if (empty) {
        Change change(*this);
        Run(kTables);
        change.End();
    } else if (found != kVersion) {
        throw IndexError(IndexError::Kind::Outdated, "the index of recordings is of another version");
    } else {
        Statement check(database, "PRAGMA quick_check(1)");
        if (!check.Step() || check.Text(0) != "ok")
            throw IndexError(IndexError::Kind::Damaged, "the index of recordings is damaged");
    }
}

Index::~Index() = default;

void Index::Run(const char* text) {
    if (const int status = ::sqlite3_exec(m_database.get(), text, nullptr, nullptr, nullptr);
        status != SQLITE_OK)
        ThrowIndex(m_database.get(), status);
}

Index::Change::Change(Index& index) : m_index(index) {
    m_index.Run("BEGIN IMMEDIATE");
}

Index::Change::~Change() {
    if (!m_ended)
        (void)::sqlite3_exec(m_index.m_database.get(), "ROLLBACK", nullptr, nullptr, nullptr);
}

void Index::Change::End() {
    m_index.Run("COMMIT");
    m_ended = true;
}

template <typename... Values>
void Index::Do(const char* text, const Values&... values) {
    Statement statement(m_database.get(), text);
    (statement.Bind(values), ...);
    while (statement.Step()) {
    }
}

template <typename... Values>
std::vector<RecordedFile> Index::Files(const char* text, const Values&... values) {
    Statement statement(m_database.get(), text);
    (statement.Bind(values), ...);
    std::vector<RecordedFile> files;
    while (statement.Step()) {
        const std::int64_t state = statement.Integer(5);
        files.push_back({.key = {statement.Integer(0), statement.Integer(1)},
                         .begin = statement.Integer(2),
                         .end = statement.Integer(3),
                         .bytes = static_cast<std::uint64_t>(statement.Integer(4)),
                         .state = state == 0   ? FileState::Finished
                                  : state == 1 ? FileState::Open
                                               : FileState::Cut,
                         .keep = statement.Integer(6) != 0});
    }
    return files;
}

template <typename... Values>
std::optional<RecordedFile> Index::File(const char* text, const Values&... values) {
    auto files = Files(text, values...);
    return files.empty() ? std::nullopt : std::optional(files.front());
}

void Index::Put(const RecordedFile& file) {
    Do("INSERT INTO files VALUES(?, ?, ?, ?, ?, ?, ?) ON CONFLICT DO UPDATE SET begin = excluded.begin, "
       "end = excluded.end, bytes = excluded.bytes, state = excluded.state, keep = excluded.keep",
       file.key.camera, file.key.number, file.begin, file.end, static_cast<std::int64_t>(file.bytes),
       static_cast<std::int64_t>(file.state), std::int64_t{file.keep ? 1 : 0});
}

void Index::Remove(FileKey key) {
    Do("DELETE FROM files WHERE camera = ? AND number = ?", key.camera, key.number);
}

std::optional<RecordedFile> Index::Find(FileKey key) {
    return File("SELECT * FROM files WHERE camera = ? AND number = ?", key.camera, key.number);
}

std::vector<RecordedFile> Index::FilesOf(std::int64_t camera) {
    return Files("SELECT * FROM files WHERE camera = ? ORDER BY number", camera);
}

std::vector<RecordedFile> Index::FilesOf(std::int64_t camera, TimeSpan span) {
    return Files("SELECT * FROM files WHERE camera = ? AND begin BETWEEN ? AND ? AND end >= ? "
                 "ORDER BY begin, number",
                 camera, span.begin - kLongestFile, span.end, span.begin);
}

std::optional<RecordedFile> Index::After(FileKey key) {
    return File("SELECT * FROM files WHERE camera = ? AND number > ? ORDER BY number LIMIT 1", key.camera,
                key.number);
}

std::optional<RecordedFile> Index::Before(FileKey key) {
    return File("SELECT * FROM files WHERE camera = ? AND number < ? ORDER BY number DESC LIMIT 1",
                key.camera, key.number);
}

std::optional<RecordedFile> Index::LastBefore(std::int64_t camera, UnixMs time) {
    return File("SELECT * FROM files WHERE camera = ? AND begin < ? AND end < ? "
                "ORDER BY begin DESC, number DESC LIMIT 1",
                camera, time, time);
}

std::optional<RecordedFile> Index::FirstFrom(std::int64_t camera, UnixMs time) {
    return File("SELECT * FROM files WHERE camera = ? AND begin >= ? ORDER BY begin, number LIMIT 1", camera,
                time);
}

std::vector<std::int64_t> Index::DaysOf(std::int64_t camera, std::int64_t aheadMs) {
    Statement statement(m_database.get(),
                        "SELECT DISTINCT (begin + ?1) / 86400000 AS day FROM files WHERE camera = ?2 UNION "
                        "SELECT DISTINCT (end + ?1) / 86400000 FROM files WHERE camera = ?2 ORDER BY day");
    statement.Bind(aheadMs);
    statement.Bind(camera);
    std::vector<std::int64_t> days;
    while (statement.Step())
        days.push_back(statement.Integer(0));
    return days;
}

Index::Bytes Index::BytesOf(std::int64_t camera) {
    Statement statement(m_database.get(), "SELECT bytes, kept FROM sums WHERE camera = ?");
    statement.Bind(camera);
    if (!statement.Step())
        return {};
    return {static_cast<std::uint64_t>(statement.Integer(0)),
            static_cast<std::uint64_t>(statement.Integer(1))};
}

Index::Bytes Index::BytesOfAll() {
    Statement statement(m_database.get(), "SELECT coalesce(sum(bytes), 0), coalesce(sum(kept), 0) FROM sums");
    if (!statement.Step())
        return {};
    return {static_cast<std::uint64_t>(statement.Integer(0)),
            static_cast<std::uint64_t>(statement.Integer(1))};
}

std::optional<RecordedFile> Index::Oldest(std::int64_t camera, bool open) {
    // What is being written stands at the end of time, so few rows are passed over.
    const std::int64_t except = open ? -1 : static_cast<std::int64_t>(FileState::Open);
    if (camera == 0)
        return File("SELECT * FROM files INDEXED BY files_in_time WHERE keep = 0 AND state <> ? "
                    "ORDER BY begin, number LIMIT 1",
                    except);
    return File("SELECT * FROM files INDEXED BY files_of_camera WHERE camera = ? AND keep = 0 AND state <> ? "
                "ORDER BY begin, number LIMIT 1",
                camera, except);
}

std::optional<UnixMs> Index::Begin() {
    // Kept ones are few, and the others have an index of their own.
    Statement statement(
        m_database.get(),
        "SELECT min(begin) FROM (SELECT min(begin) AS begin FROM files WHERE keep = 0 UNION ALL "
        "SELECT min(begin) FROM files WHERE keep = 1)");
    return statement.Step() && !statement.IsNull(0) ? std::optional(statement.Integer(0)) : std::nullopt;
}

void Index::PutEvent(const Event& event) {
    const std::int64_t time = event.time.time_since_epoch().count();
    if (event.kind == EventKind::MotionEnded) // of the movement that was told of last
        Do("UPDATE events SET until = max(time, ?) WHERE number = (SELECT number FROM events NOT INDEXED "
           "WHERE camera = ? AND kind = ? ORDER BY number DESC LIMIT 1)",
           time, event.camera, static_cast<std::int64_t>(EventKind::MotionBegan));
    else
        Do("INSERT OR REPLACE INTO events VALUES(?, ?, ?, ?, ?, ?)", static_cast<std::int64_t>(event.number),
           event.camera, time, time, static_cast<std::int64_t>(event.kind), event.text);
}

std::uint64_t Index::LastEvent() {
    Statement statement(m_database.get(), "SELECT coalesce(max(number), 0) FROM told");
    return statement.Step() ? static_cast<std::uint64_t>(statement.Integer(0)) : 0;
}

void Index::SetLastEvent(std::uint64_t number) {
    Do("INSERT INTO told VALUES(1, ?) ON CONFLICT DO UPDATE SET number = excluded.number",
       static_cast<std::int64_t>(number));
}

std::vector<TimeSpan> Index::MotionOf(std::string_view camera, TimeSpan span) {
    Statement statement(m_database.get(), "SELECT time, until FROM events WHERE camera = ? AND time <= ? AND "
                                          "until >= ? AND kind = ? ORDER BY time, number");
    statement.Bind(camera);
    statement.Bind(span.end);
    statement.Bind(span.begin);
    statement.Bind(static_cast<std::int64_t>(EventKind::MotionBegan));
    std::vector<TimeSpan> motion;
    while (statement.Step())
        motion.push_back({statement.Integer(0), statement.Integer(1)});
    return motion;
}

std::vector<Event> Index::EventsOf(std::string_view camera, TimeSpan span, bool ofAll, std::size_t most) {
    Statement statement(m_database.get(),
                        "SELECT number, camera, time, kind, text FROM events WHERE camera IN (?, ?) AND "
                        "time BETWEEN ? AND ? AND kind <> ? ORDER BY time DESC, number DESC LIMIT ?");
    statement.Bind(camera);
    statement.Bind(ofAll ? std::string_view() : camera);
    statement.Bind(span.begin);
    statement.Bind(span.end);
    statement.Bind(static_cast<std::int64_t>(EventKind::MotionBegan));
    statement.Bind(static_cast<std::int64_t>(most));
    std::vector<Event> events;
    while (statement.Step())
        events.push_back({.number = static_cast<std::uint64_t>(statement.Integer(0)),
                          .time = Event::Time(std::chrono::milliseconds(statement.Integer(2))),
                          .kind = static_cast<EventKind>(statement.Integer(3)),
                          .camera = statement.Text(1),
                          .text = statement.Text(4)});
    return events;
}

void Index::RemoveEventsBefore(UnixMs time) {
    Do("DELETE FROM events WHERE time < ?", time);
}

void Index::RemoveEvents() {
    Run("DELETE FROM events; DELETE FROM told");
}

} // namespace host
