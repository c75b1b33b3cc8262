#pragma once
// A thin RAII layer over SQLite's C API: one connection, its prepared statements and
// a transaction guard. Failures throw sqlite::Error carrying SQLite's own message;
// the history database turns them into its typed failure at its public boundary.
// Not thread-safe by itself: the owner serialises all use of a connection and its
// statements (HistoryDatabase does so under its one lock).

#include <sqlite3.h>

#include <cstdint>
#include <filesystem>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>

namespace omnira::sqlite {

struct Error : std::runtime_error {
  int code;
  Error(int code, const std::string& message) : std::runtime_error(message), code(code) {}
};

class Statement {
 public:
  Statement(sqlite3* connection, std::string_view sql);
  ~Statement();
  Statement(Statement&& other) noexcept;
  Statement& operator=(Statement&&) = delete;
  Statement(const Statement&) = delete;
  Statement& operator=(const Statement&) = delete;

  // Indexes start at 1, as in SQLite.
  Statement& bindInt(int index, int64_t value);
  Statement& bindReal(int index, double value);
  Statement& bindText(int index, std::string_view value);
  Statement& bindNull(int index);
  Statement& bindOptionalReal(int index, const std::optional<double>& value);
  Statement& bindOptionalText(int index, const std::optional<std::string>& value);

  // True while a row is available; false when done.
  bool step();
  // Steps a statement that returns no rows, then makes it ready for the next use.
  void run();
  // Ready for new bindings; called before each reuse of a cached statement.
  void reset();

  // Columns start at 0.
  int64_t integer(int column) const;
  double real(int column) const;
  std::string text(int column) const;
  bool isNull(int column) const;
  std::optional<double> optionalReal(int column) const;
  std::optional<std::string> optionalText(int column) const;

 private:
  [[noreturn]] void raise(int code) const;
  sqlite3* connection_;
  sqlite3_stmt* statement_ = nullptr;
};

class Connection {
 public:
  // Opens (or creates, 0600) the file. SQLite reads the header lazily, so a file that is not a
  // database only fails at the first statement; callers run one before trusting it.
  // A link, a file that is not plain or another user's file is refused (Error, SQLITE_CANTOPEN).
  static Connection open(const std::filesystem::path& file);
  ~Connection();
  Connection(Connection&& other) noexcept : handle_(other.handle_) { other.handle_ = nullptr; }
  Connection& operator=(Connection&&) = delete;
  Connection(const Connection&) = delete;
  Connection& operator=(const Connection&) = delete;

  // Runs statements that return nothing the caller needs.
  void execute(const std::string& sql);
  Statement prepare(std::string_view sql) { return Statement(handle_, sql); }
  // For single-value queries such as pragmas and counts.
  int64_t integer(const std::string& sql);
  std::string text(const std::string& sql);
  sqlite3* handle() const { return handle_; }

 private:
  explicit Connection(sqlite3* handle) : handle_(handle) {}
  sqlite3* handle_;
};

// "BEGIN IMMEDIATE" takes the write lock at once, so a write never fails half-way for
// want of it. Without commit() the destructor rolls back, unless SQLite already did (it
// does so by itself on some errors, a full disk among them).
class Transaction {
 public:
  explicit Transaction(Connection& connection);
  ~Transaction();
  Transaction(const Transaction&) = delete;
  Transaction& operator=(const Transaction&) = delete;
  void commit();

 private:
  Connection& connection_;
  bool open_ = true;
};

}  // namespace omnira::sqlite
