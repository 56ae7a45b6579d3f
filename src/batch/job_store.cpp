// orvante::JobStore on SQLite: WAL mode, a label's sending written through
// (synchronous FULL) before it goes, its confirmation left to the next
// write-through (synchronous NORMAL): one disk flush a label.

#include <orvante/job_store.hpp>

#include <sqlite3.h>

#include <mutex>

namespace orvante {
namespace {

constexpr int kSchemaVersion = 1;

constexpr const char* kSchema = R"(
CREATE TABLE IF NOT EXISTS jobs (
  id INTEGER PRIMARY KEY,
  kind TEXT NOT NULL,
  name TEXT NOT NULL,
  printer TEXT NOT NULL,
  source TEXT NOT NULL DEFAULT '',
  state TEXT NOT NULL
    CHECK (state IN ('queued', 'printing', 'waiting', 'done', 'failed', 'stopped')),
  reason TEXT NOT NULL DEFAULT '',
  printed INTEGER NOT NULL DEFAULT 0,
  total INTEGER NOT NULL,
  created TEXT NOT NULL DEFAULT (strftime('%Y-%m-%dT%H:%M:%fZ', 'now')),
  updated TEXT NOT NULL DEFAULT (strftime('%Y-%m-%dT%H:%M:%fZ', 'now'))
);
CREATE INDEX IF NOT EXISTS jobs_by_source ON jobs (kind, source);
CREATE TABLE IF NOT EXISTS labels (
  job INTEGER NOT NULL REFERENCES jobs (id) ON DELETE CASCADE,
  number INTEGER NOT NULL,
  line INTEGER NOT NULL DEFAULT 0,
  copies INTEGER NOT NULL DEFAULT 1,
  state TEXT NOT NULL CHECK (state IN ('pending', 'sent', 'confirmed', 'skipped')),
  sends INTEGER NOT NULL DEFAULT 0,
  maybe_twice INTEGER NOT NULL DEFAULT 0,
  reason TEXT NOT NULL DEFAULT '',
  sent TEXT,
  confirmed TEXT,
  status INTEGER,
  PRIMARY KEY (job, number)
) WITHOUT ROWID;
CREATE TABLE IF NOT EXISTS documents (
  job INTEGER PRIMARY KEY REFERENCES jobs (id) ON DELETE CASCADE,
  content BLOB NOT NULL
);
)";

constexpr const char* kNow = "strftime('%Y-%m-%dT%H:%M:%fZ', 'now')";

constexpr std::string_view kJobStates[] = {"queued", "printing", "waiting",
                                           "done",   "failed",   "stopped"};
constexpr std::string_view kLabelStates[] = {"pending", "sent", "confirmed", "skipped"};

template <typename State, std::size_t N>
State stateNamed(const std::string_view (&names)[N], std::string_view name) {
  for (std::size_t i = 0; i < N; ++i) {
    if (names[i] == name) return static_cast<State>(i);
  }
  throw Error("the job store holds an unknown state \"" + std::string(name) + "\"");
}

// A prepared statement.
class Statement {
 public:
  Statement(sqlite3* database, const std::string& sql) : database_(database) {
    if (sqlite3_prepare_v2(database, sql.c_str(), -1, &statement_, nullptr) != SQLITE_OK) {
      throw Error(std::string("the job store: ") + sqlite3_errmsg(database));
    }
  }
  ~Statement() { sqlite3_finalize(statement_); }
  Statement(const Statement&) = delete;
  Statement& operator=(const Statement&) = delete;

  Statement& bind(int at, std::int64_t value) {
    sqlite3_bind_int64(statement_, at, value);
    return *this;
  }
  Statement& bind(int at, ByteView blob) {
    sqlite3_bind_blob(statement_, at, blob.empty() ? "" : static_cast<const void*>(blob.data()),
                      static_cast<int>(blob.size()), SQLITE_TRANSIENT);
    return *this;
  }
  Statement& bind(int at, std::string_view text) {
    // An empty view may have no data, which SQLite would bind as NULL.
    sqlite3_bind_text(statement_, at, text.empty() ? "" : text.data(), static_cast<int>(text.size()),
                      SQLITE_TRANSIENT);
    return *this;
  }
  // True while there is a row.
  bool step() {
    const int result = sqlite3_step(statement_);
    if (result == SQLITE_ROW) return true;
    if (result == SQLITE_DONE) return false;
    throw Error(std::string("the job store: ") + sqlite3_errmsg(database_));
  }
  // Ready to run again, with new values.
  void reset() {
    sqlite3_reset(statement_);
    sqlite3_clear_bindings(statement_);
  }
  std::int64_t integer(int column) const { return sqlite3_column_int64(statement_, column); }
  Bytes blob(int column) const {
    const auto* bytes = static_cast<const std::uint8_t*>(sqlite3_column_blob(statement_, column));
    return bytes ? Bytes(bytes, bytes + sqlite3_column_bytes(statement_, column)) : Bytes();
  }
  std::string text(int column) const {
    const auto* bytes = sqlite3_column_text(statement_, column);
    return bytes ? std::string(reinterpret_cast<const char*>(bytes),
                               static_cast<std::size_t>(sqlite3_column_bytes(statement_, column)))
                 : std::string();
  }

 private:
  sqlite3* database_;
  sqlite3_stmt* statement_ = nullptr;
};

constexpr const char* kJobColumns =
    "id, kind, name, printer, source, state, reason, printed, total, created, updated";

Job jobFrom(const Statement& row) {
  Job job;
  job.id = row.integer(0);
  job.kind = row.text(1);
  job.name = row.text(2);
  job.printer = row.text(3);
  job.source = row.text(4);
  job.state = stateNamed<JobState>(kJobStates, row.text(5));
  job.reason = row.text(6);
  job.printed = static_cast<std::size_t>(row.integer(7));
  job.total = static_cast<std::size_t>(row.integer(8));
  job.created = row.text(9);
  job.updated = row.text(10);
  return job;
}

}  // namespace

std::string_view nameOf(JobState state) { return kJobStates[static_cast<int>(state)]; }
std::string_view nameOf(LabelState state) { return kLabelStates[static_cast<int>(state)]; }

struct JobStore::Database {
  std::mutex mutex;  // the connection, one statement at a time
  sqlite3* connection = nullptr;

  ~Database() { sqlite3_close_v2(connection); }

  void run(const std::string& sql) {
    char* message = nullptr;
    if (sqlite3_exec(connection, sql.c_str(), nullptr, nullptr, &message) != SQLITE_OK) {
      const std::string why = message ? message : sqlite3_errmsg(connection);
      sqlite3_free(message);
      throw Error("the job store: " + why);
    }
  }

  // Whether commits from here on wait for the disk.
  void writeThrough(bool through) {
    run(through ? "PRAGMA synchronous = FULL" : "PRAGMA synchronous = NORMAL");
  }

  // One transaction around `work`, taken back when it throws.
  template <typename Work>
  void transaction(Work work) {
    run("BEGIN IMMEDIATE");
    try {
      work();
      run("COMMIT");
    } catch (...) {
      sqlite3_exec(connection, "ROLLBACK", nullptr, nullptr, nullptr);
      throw;
    }
  }
};

JobStore::JobStore(const std::filesystem::path& file) : database_(std::make_unique<Database>()) {
  Database& db = *database_;
  if (sqlite3_open_v2(file.c_str(), &db.connection,
                      SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE | SQLITE_OPEN_FULLMUTEX,
                      nullptr) != SQLITE_OK) {
    throw Error("cannot open the job store " + file.string() + ": " +
                (db.connection ? sqlite3_errmsg(db.connection) : "out of memory"));
  }
  sqlite3_busy_timeout(db.connection, 5000);
  try {
    db.run("PRAGMA journal_mode = WAL");
    db.run("PRAGMA foreign_keys = ON");
    db.writeThrough(true);
    Statement version(db.connection, "PRAGMA user_version");
    version.step();
    const auto found = version.integer(0);
    if (found > kSchemaVersion) {
      throw Error("was written by a newer orvante (schema " + std::to_string(found) + ")");
    }
    db.transaction([&] {
      db.run(kSchema);
      db.run("PRAGMA user_version = " + std::to_string(kSchemaVersion));
    });
  } catch (const Error& error) {
    throw Error("cannot use the job store " + file.string() + ": " + error.what());
  }
}

JobStore::~JobStore() = default;
JobStore::JobStore(JobStore&&) noexcept = default;
JobStore& JobStore::operator=(JobStore&&) noexcept = default;

std::int64_t JobStore::add(const Job& job, const std::vector<JobLabel>& labels) {
  return add(job, labels, std::nullopt);
}

std::int64_t JobStore::add(const Job& job, const std::vector<JobLabel>& labels,
                           std::optional<ByteView> document) {
  Database& db = *database_;
  std::lock_guard lock(db.mutex);
  std::int64_t id = 0;
  db.writeThrough(true);
  db.transaction([&] {
    Statement insert(db.connection,
                     "INSERT INTO jobs (kind, name, printer, source, state, reason, total) "
                     "VALUES (?, ?, ?, ?, 'queued', ?, ?)");
    std::size_t total = 0;
    for (const JobLabel& label : labels) total += label.state != LabelState::Skipped;
    insert.bind(1, job.kind).bind(2, job.name).bind(3, job.printer).bind(4, job.source);
    insert.bind(5, job.reason).bind(6, static_cast<std::int64_t>(total)).step();
    id = sqlite3_last_insert_rowid(db.connection);
    Statement row(db.connection,
                  "INSERT INTO labels (job, number, line, copies, state, reason) "
                  "VALUES (?, ?, ?, ?, ?, ?)");
    for (const JobLabel& each : labels) {
      row.bind(1, id).bind(2, static_cast<std::int64_t>(each.number));
      row.bind(3, static_cast<std::int64_t>(each.line)).bind(4, each.copies);
      row.bind(5, nameOf(each.state)).bind(6, each.reason).step();
      row.reset();
    }
    if (document) {
      Statement keep(db.connection, "INSERT INTO documents (job, content) VALUES (?, ?)");
      keep.bind(1, id).bind(2, *document).step();
    }
  });
  return id;
}

std::optional<Job> JobStore::job(std::int64_t id) const {
  Database& db = *database_;
  std::lock_guard lock(db.mutex);
  Statement query(db.connection, std::string("SELECT ") + kJobColumns + " FROM jobs WHERE id = ?");
  query.bind(1, id);
  if (!query.step()) return std::nullopt;
  return jobFrom(query);
}

std::optional<Bytes> JobStore::document(std::int64_t job) const {
  Database& db = *database_;
  std::lock_guard lock(db.mutex);
  Statement query(db.connection, "SELECT content FROM documents WHERE job = ?");
  query.bind(1, job);
  if (!query.step()) return std::nullopt;
  return query.blob(0);
}

std::vector<Job> JobStore::jobs() const {
  Database& db = *database_;
  std::lock_guard lock(db.mutex);
  Statement query(db.connection, std::string("SELECT ") + kJobColumns + " FROM jobs ORDER BY id DESC");
  std::vector<Job> found;
  while (query.step()) found.push_back(jobFrom(query));
  return found;
}

std::optional<Job> JobStore::unfinished(std::string_view kind, std::string_view source) const {
  Database& db = *database_;
  std::lock_guard lock(db.mutex);
  Statement query(db.connection, std::string("SELECT ") + kJobColumns +
                                     " FROM jobs WHERE kind = ? AND source = ? AND state <> 'done' "
                                     "ORDER BY id DESC LIMIT 1");
  query.bind(1, kind).bind(2, source);
  if (!query.step()) return std::nullopt;
  return jobFrom(query);
}

std::vector<JobLabel> JobStore::labels(std::int64_t job) const {
  Database& db = *database_;
  std::lock_guard lock(db.mutex);
  Statement query(db.connection,
                  "SELECT number, line, copies, state, sends, maybe_twice, reason FROM labels "
                  "WHERE job = ? ORDER BY number");
  query.bind(1, job);
  std::vector<JobLabel> found;
  while (query.step()) {
    JobLabel& label = found.emplace_back();
    label.number = static_cast<std::size_t>(query.integer(0));
    label.line = static_cast<std::size_t>(query.integer(1));
    label.copies = static_cast<int>(query.integer(2));
    label.state = stateNamed<LabelState>(kLabelStates, query.text(3));
    label.sends = static_cast<int>(query.integer(4));
    label.maybeTwice = query.integer(5) != 0;
    label.reason = query.text(6);
  }
  return found;
}

void JobStore::setState(std::int64_t job, JobState state, std::string_view reason) {
  Database& db = *database_;
  std::lock_guard lock(db.mutex);
  db.writeThrough(true);
  Statement update(db.connection, std::string("UPDATE jobs SET state = ?, reason = ?, updated = ") +
                                      kNow + " WHERE id = ?");
  update.bind(1, nameOf(state)).bind(2, reason).bind(3, job).step();
}

void JobStore::sending(std::int64_t job, std::size_t number) {
  Database& db = *database_;
  std::lock_guard lock(db.mutex);
  db.writeThrough(true);
  Statement update(db.connection,
                   std::string("UPDATE labels SET maybe_twice = maybe_twice OR state = 'sent', "
                               "state = 'sent', sends = sends + 1, sent = ") +
                       kNow + " WHERE job = ? AND number = ? AND state IN ('pending', 'sent')");
  update.bind(1, job).bind(2, static_cast<std::int64_t>(number)).step();
  if (sqlite3_changes(db.connection) != 1) {
    throw Error("job " + std::to_string(job) + " has no label " + std::to_string(number) +
                " waiting to be sent");
  }
}

void JobStore::confirmed(std::int64_t job, std::size_t number, std::uint8_t status,
                         bool maybeTwice) {
  Database& db = *database_;
  std::lock_guard lock(db.mutex);
  db.writeThrough(false);
  db.transaction([&] {
    Statement label(db.connection, std::string("UPDATE labels SET state = 'confirmed', confirmed = ") +
                                       kNow +
                                       ", status = ?, maybe_twice = maybe_twice OR ? "
                                       "WHERE job = ? AND number = ? AND state = 'sent'");
    label.bind(1, status).bind(2, maybeTwice ? 1 : 0).bind(3, job);
    label.bind(4, static_cast<std::int64_t>(number)).step();
    if (sqlite3_changes(db.connection) != 1) {
      throw Error("job " + std::to_string(job) + " has no label " + std::to_string(number) +
                  " sent and waiting to be confirmed");
    }
    Statement count(db.connection, std::string("UPDATE jobs SET printed = printed + 1, updated = ") +
                                       kNow + " WHERE id = ?");
    count.bind(1, job).step();
  });
}

}  // namespace orvante
