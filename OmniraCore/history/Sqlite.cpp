#include "OmniraCore/history/Sqlite.h"

#include <unistd.h>

#include <fmt/format.h>
#include <spdlog/spdlog.h>

#include "OmniraCore/foundation/AtomicFile.h"
#include "OmniraCore/foundation/SystemText.h"

namespace omnira::sqlite {

Statement::Statement(sqlite3* connection, std::string_view sql) : connection_(connection) {
  const int code = sqlite3_prepare_v3(connection, sql.data(), static_cast<int>(sql.size()),
                                      SQLITE_PREPARE_PERSISTENT, &statement_, nullptr);
  if (code != SQLITE_OK) raise(code);
}

Statement::~Statement() { sqlite3_finalize(statement_); }

Statement::Statement(Statement&& other) noexcept
    : connection_(other.connection_), statement_(other.statement_) {
  other.statement_ = nullptr;
}

void Statement::raise(int code) const {
  throw Error(code, sqlite3_errmsg(connection_));
}

Statement& Statement::bindInt(int index, int64_t value) {
  if (int code = sqlite3_bind_int64(statement_, index, value); code != SQLITE_OK) raise(code);
  return *this;
}

Statement& Statement::bindReal(int index, double value) {
  if (int code = sqlite3_bind_double(statement_, index, value); code != SQLITE_OK) raise(code);
  return *this;
}

Statement& Statement::bindText(int index, std::string_view value) {
  // TEXT is UTF-8 to SQLite and to every other reader of the file; names from the system may not be.
  std::string shown;
  if (!isUTF8(value)) value = shown = shownText(value);
  const int code = sqlite3_bind_text(statement_, index, value.data(), static_cast<int>(value.size()),
                                     SQLITE_TRANSIENT);
  if (code != SQLITE_OK) raise(code);
  return *this;
}

Statement& Statement::bindNull(int index) {
  if (int code = sqlite3_bind_null(statement_, index); code != SQLITE_OK) raise(code);
  return *this;
}

Statement& Statement::bindOptionalReal(int index, const std::optional<double>& value) {
  return value ? bindReal(index, *value) : bindNull(index);
}

Statement& Statement::bindOptionalText(int index, const std::optional<std::string>& value) {
  return value ? bindText(index, *value) : bindNull(index);
}

bool Statement::step() {
  const int code = sqlite3_step(statement_);
  if (code == SQLITE_ROW) return true;
  if (code == SQLITE_DONE) return false;
  sqlite3_reset(statement_);
  raise(code);
}

void Statement::run() {
  step();
  reset();
}

void Statement::reset() {
  // The step's error, if any, was already raised; reset only repeats it.
  sqlite3_reset(statement_);
  sqlite3_clear_bindings(statement_);
}

int64_t Statement::integer(int column) const { return sqlite3_column_int64(statement_, column); }
double Statement::real(int column) const { return sqlite3_column_double(statement_, column); }

std::string Statement::text(int column) const {
  const auto* bytes = sqlite3_column_text(statement_, column);
  if (bytes == nullptr) return {};
  return std::string(reinterpret_cast<const char*>(bytes),
                     static_cast<size_t>(sqlite3_column_bytes(statement_, column)));
}

bool Statement::isNull(int column) const { return sqlite3_column_type(statement_, column) == SQLITE_NULL; }

std::optional<double> Statement::optionalReal(int column) const {
  if (isNull(column)) return std::nullopt;
  return real(column);
}

std::optional<std::string> Statement::optionalText(int column) const {
  if (isNull(column)) return std::nullopt;
  return text(column);
}

Connection Connection::open(const std::filesystem::path& file) {
  // SQLite gives its -wal, -shm and -journal files the main file's mode, so the main file is
  // made 0600 here first, exclusively and never through a link.
  auto own = AtomicFile::openOwn(file);
  if (!own) throw Error(SQLITE_CANTOPEN, own.error().message);
  ::close(*own);
  sqlite3* handle = nullptr;
  const int code = sqlite3_open_v2(file.c_str(), &handle,
                                   SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE | SQLITE_OPEN_NOMUTEX |
                                       SQLITE_OPEN_NOFOLLOW,
                                   nullptr);
  if (code != SQLITE_OK) {
    // SQLite hands back a handle even on failure, only to carry the message.
    std::string message = handle ? sqlite3_errmsg(handle) : sqlite3_errstr(code);
    sqlite3_close_v2(handle);
    throw Error(code, message);
  }
  sqlite3_extended_result_codes(handle, 1);
  return Connection(handle);
}

Connection::~Connection() { sqlite3_close_v2(handle_); }

void Connection::execute(const std::string& sql) {
  char* message = nullptr;
  const int code = sqlite3_exec(handle_, sql.c_str(), nullptr, nullptr, &message);
  if (code != SQLITE_OK) {
    std::string text = message ? message : sqlite3_errstr(code);
    sqlite3_free(message);
    throw Error(code, text);
  }
}

int64_t Connection::integer(const std::string& sql) {
  Statement statement = prepare(sql);
  return statement.step() ? statement.integer(0) : 0;
}

std::string Connection::text(const std::string& sql) {
  Statement statement = prepare(sql);
  return statement.step() ? statement.text(0) : std::string();
}

Transaction::Transaction(Connection& connection) : connection_(connection) { connection_.execute("BEGIN IMMEDIATE"); }

Transaction::~Transaction() {
  if (!open_) return;
  // On a full disk or an I/O error SQLite may have rolled back already; a second rollback
  // would only fail with "no transaction is active" and hide the real error.
  if (sqlite3_get_autocommit(connection_.handle()) != 0) return;
  // Already unwinding from the failure that stopped the write; a failed rollback can only
  // be reported, and SQLite rolls back by itself when the connection closes.
  char* message = nullptr;
  if (sqlite3_exec(connection_.handle(), "ROLLBACK", nullptr, nullptr, &message) != SQLITE_OK) {
    spdlog::error("history: rollback failed: {}", message ? message : "unknown error");
  }
  sqlite3_free(message);
}

void Transaction::commit() {
  connection_.execute("COMMIT");
  open_ = false;
}

}  // namespace omnira::sqlite
