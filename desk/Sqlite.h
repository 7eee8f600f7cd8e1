// The little of SQLite that the desk needs: one connection, statements with values in and out, and transactions that
// are taken back unless they are committed. A connection belongs to one thread at a time.
#ifndef QUARVEL_DESK_SQLITE_H
#define QUARVEL_DESK_SQLITE_H

#include <chrono>
#include <cstdint>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>

struct sqlite3;
struct sqlite3_stmt;

class SqliteError : public std::runtime_error {
 public:
  SqliteError(int code, const std::string& words) : std::runtime_error(words), m_code(code) {}
  // The file is no database, or its pages contradict each other.
  bool IsDamage() const;

 private:
  int m_code;
};

class SqliteStatement {
 public:
  // Whether there is another row.
  bool Step();
  // Parameters and columns count from 1 and 0, as SQLite has it.
  SqliteStatement& Bind(int parameter, std::string_view text);
  SqliteStatement& Bind(int parameter, int64_t number);
  SqliteStatement& Bind(int parameter, double number);
  SqliteStatement& Bind(int parameter, std::optional<int64_t> number);
  std::string Text(int column) const;  // empty for NULL
  std::optional<int64_t> Number(int column) const;
  double Real(int column) const;

 private:
  friend class SqliteConnection;
  struct Finalize {
    void operator()(sqlite3_stmt* statement) const;
  };
  explicit SqliteStatement(sqlite3_stmt* statement) : m_statement(statement) {}
  std::unique_ptr<sqlite3_stmt, Finalize> m_statement;
};

class SqliteConnection {
 public:
  // Opens the file, readable by its owner alone when it has to be made. Waits at most so long for other programs.
  SqliteConnection(const std::string& file, std::chrono::milliseconds patience);

  SqliteStatement Prepare(std::string_view sql);
  void Execute(const std::string& sql);
  int64_t LastRow() const;

 private:
  struct Close {
    void operator()(sqlite3* database) const;
  };
  std::unique_ptr<sqlite3, Close> m_database;
};

// Begun with the right to write, so that it cannot be refused half-way.
class SqliteTransaction {
 public:
  explicit SqliteTransaction(SqliteConnection& connection);
  ~SqliteTransaction();
  SqliteTransaction(const SqliteTransaction&) = delete;
  SqliteTransaction& operator=(const SqliteTransaction&) = delete;
  void Commit();

 private:
  SqliteConnection& m_connection;
  bool m_open = true;
};

#endif
