// A thin RAII layer over libsqlite3.
//
// Every failure is thrown as DirectoryError with an errno as its status: EBUSY (locked by another
// process past the busy timeout), EIO (damaged, or no database), ENOSPC, EROFS, ENOMEM, and the
// system's errno where there is one. Its text names the file.
//
// A connection and its statements belong to one thread at a time; sharing requires a lock.
#pragma once

#include <array>
#include <chrono>
#include <cstdint>
#include <string>
#include <string_view>
#include <unordered_map>
#include <utility>

struct sqlite3;
struct sqlite3_stmt;

namespace paddock {

class SqliteStatement;

class SqliteConnection {
 public:
  // Opens an existing file for reading and writing. Errors call it a `kind`.
  explicit SqliteConnection(std::string path, std::string kind = "directory database");
  SqliteConnection(const SqliteConnection&) = delete;
  SqliteConnection& operator=(const SqliteConnection&) = delete;
  ~SqliteConnection();

  const std::string& path() const { return path_; }
  // Its kind and path.
  std::string name() const { return kind_ + " " + path_; }

  // How long later calls wait for a lock of another connection.
  void setBusyTimeout(std::chrono::milliseconds timeout);
  // Runs statements without parameters, ignoring rows.
  void execute(const std::string& sql);
  // The first column of the first row of a query that has one.
  std::int64_t queryInteger(const std::string& sql);
  // A statement, prepared once per text and kept. `sql` is a string literal.
  SqliteStatement statement(const char* sql);
  std::int64_t lastInsertedRow() const;
  // Whether the file at the path is no longer the one that was opened.
  bool fileHasMoved();
  bool inTransaction() const;
  // The part of the file's header that changes with each commit of any connection. Takes no lock:
  // inside a transaction it is that of what the transaction reads, outside it may be that of a
  // commit in progress.
  using ChangeMark = std::array<unsigned char, 14>;
  ChangeMark changeMark();
  // Whether the file is shorter than its header says, which SQLite does not notice when its last
  // page alone was cut. Inside a transaction.
  bool isCutShort();

  // Throws the error of the last call.
  [[noreturn]] void fail(int code) const;

 private:
  // Bytes of the file, without a lock; zero past its end.
  template <std::size_t Count>
  std::array<unsigned char, Count> bytes(std::int64_t offset);

  std::string path_;
  std::string kind_;
  sqlite3* database_ = nullptr;
  // By the text's address; the flag says whether a SqliteStatement is using it.
  std::unordered_map<const char*, std::pair<sqlite3_stmt*, bool>> statements_;
  friend class SqliteStatement;
};

// A prepared statement in use. Its destructor resets it and forgets the bound values.
class SqliteStatement {
 public:
  SqliteStatement(SqliteConnection& connection, sqlite3_stmt* handle, bool& inUse);
  SqliteStatement(const SqliteStatement&) = delete;
  SqliteStatement& operator=(const SqliteStatement&) = delete;
  ~SqliteStatement();

  // Parameters count from 1. Text is not copied: it must outlive the last `step`.
  SqliteStatement& bind(int parameter, std::int64_t value);
  SqliteStatement& bind(int parameter, std::string_view text);
  SqliteStatement& bind(int parameter, const std::string& text) {
    return bind(parameter, std::string_view(text));
  }
  SqliteStatement& bind(int parameter, const char* text) {
    return bind(parameter, std::string_view(text));
  }

  // True when there is a row.
  bool step();
  // Runs a statement that has no rows, so that it can be bound and run again.
  void run();

  // Columns of the row count from 0. The text is valid until the next step.
  std::int64_t integer(int column) const;
  std::string_view text(int column) const;

 private:
  SqliteConnection& connection_;
  sqlite3_stmt* handle_;
  bool& inUse_;
};

// Rolls back unless committed.
class SqliteTransaction {
 public:
  enum class Kind {
    read,  // one state of the database for several queries
    write  // holds the write lock from its start
  };
  SqliteTransaction(SqliteConnection& connection, Kind kind);
  SqliteTransaction(const SqliteTransaction&) = delete;
  SqliteTransaction& operator=(const SqliteTransaction&) = delete;
  ~SqliteTransaction();

  void commit();

 private:
  SqliteConnection& connection_;
};

}  // namespace paddock
