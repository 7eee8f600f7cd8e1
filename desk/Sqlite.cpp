#include "desk/Sqlite.h"

#include <fcntl.h>
#include <sqlite3.h>
#include <unistd.h>

namespace {

[[noreturn]] void Throw(sqlite3* database) {
  throw SqliteError(sqlite3_errcode(database), sqlite3_errmsg(database));
}

void Require(int code, sqlite3_stmt* statement) {
  if (code != SQLITE_OK) Throw(sqlite3_db_handle(statement));
}

// SQLite makes its files as readable as the database.
void MakePrivate(const std::string& file) {
  int made = open(file.c_str(), O_RDWR | O_CREAT | O_CLOEXEC | O_NOFOLLOW, 0600);
  if (made >= 0) close(made);
}

}  // namespace

bool SqliteError::IsDamage() const {
  return m_code == SQLITE_CORRUPT || m_code == SQLITE_NOTADB;
}

void SqliteStatement::Finalize::operator()(sqlite3_stmt* statement) const {
  sqlite3_finalize(statement);
}

bool SqliteStatement::Step() {
  int code = sqlite3_step(m_statement.get());
  if (code == SQLITE_ROW) return true;
  if (code != SQLITE_DONE) Throw(sqlite3_db_handle(m_statement.get()));
  return false;
}

SqliteStatement& SqliteStatement::Bind(int parameter, std::string_view text) {
  Require(sqlite3_bind_text64(m_statement.get(), parameter, text.data() ? text.data() : "", text.size(),
                              SQLITE_TRANSIENT, SQLITE_UTF8),
          m_statement.get());
  return *this;
}

SqliteStatement& SqliteStatement::Bind(int parameter, int64_t number) {
  Require(sqlite3_bind_int64(m_statement.get(), parameter, number), m_statement.get());
  return *this;
}

SqliteStatement& SqliteStatement::Bind(int parameter, double number) {
  Require(sqlite3_bind_double(m_statement.get(), parameter, number), m_statement.get());
  return *this;
}

SqliteStatement& SqliteStatement::Bind(int parameter, std::optional<int64_t> number) {
  if (number) return Bind(parameter, *number);
  Require(sqlite3_bind_null(m_statement.get(), parameter), m_statement.get());
  return *this;
}

std::string SqliteStatement::Text(int column) const {
  const unsigned char* text = sqlite3_column_text(m_statement.get(), column);
  auto size = static_cast<size_t>(sqlite3_column_bytes(m_statement.get(), column));
  return text ? std::string(reinterpret_cast<const char*>(text), size) : std::string();
}

std::optional<int64_t> SqliteStatement::Number(int column) const {
  if (sqlite3_column_type(m_statement.get(), column) == SQLITE_NULL) return std::nullopt;
  return sqlite3_column_int64(m_statement.get(), column);
}

double SqliteStatement::Real(int column) const {
  return sqlite3_column_double(m_statement.get(), column);
}

void SqliteConnection::Close::operator()(sqlite3* database) const {
  sqlite3_close_v2(database);
}

SqliteConnection::SqliteConnection(const std::string& file, std::chrono::milliseconds patience) {
  MakePrivate(file);
  sqlite3* opened = nullptr;
  int code = sqlite3_open_v2(file.c_str(), &opened, SQLITE_OPEN_READWRITE | SQLITE_OPEN_FULLMUTEX, nullptr);
  m_database.reset(opened);
  if (code != SQLITE_OK) throw SqliteError(code, opened ? sqlite3_errmsg(opened) : sqlite3_errstr(code));
  sqlite3_busy_timeout(opened, static_cast<int>(patience.count()));
}

SqliteStatement SqliteConnection::Prepare(std::string_view sql) {
  sqlite3_stmt* statement = nullptr;
  int code = sqlite3_prepare_v2(m_database.get(), sql.data(), static_cast<int>(sql.size()), &statement, nullptr);
  if (code != SQLITE_OK) Throw(m_database.get());
  return SqliteStatement(statement);
}

void SqliteConnection::Execute(const std::string& sql) {
  if (sqlite3_exec(m_database.get(), sql.c_str(), nullptr, nullptr, nullptr) != SQLITE_OK) Throw(m_database.get());
}

int64_t SqliteConnection::LastRow() const {
  return sqlite3_last_insert_rowid(m_database.get());
}

SqliteTransaction::SqliteTransaction(SqliteConnection& connection) : m_connection(connection) {
  m_connection.Execute("BEGIN IMMEDIATE");
}

// SQLite has taken it back already after some failures.
SqliteTransaction::~SqliteTransaction() {
  if (!m_open) return;
  try {
    m_connection.Execute("ROLLBACK");
  } catch (const SqliteError&) {
  }
}

void SqliteTransaction::Commit() {
  m_connection.Execute("COMMIT");
  m_open = false;
}
