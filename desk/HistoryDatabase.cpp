#include "desk/HistoryDatabase.h"

#include <fmt/format.h>

#include <array>
#include <nlohmann/json.hpp>

namespace {

// Each step brings the schema from the version that is its place to the next. A step that was released stays.
constexpr std::array kSteps = {
    R"(CREATE TABLE runs(
         number INTEGER PRIMARY KEY AUTOINCREMENT,
         folder TEXT NOT NULL UNIQUE,
         settled INTEGER NOT NULL,  -- 0 while the journal may still grow
         program TEXT, command TEXT, started TEXT, ended TEXT,
         status INTEGER,            -- exit status; NULL while there is no result
         sentence TEXT, bundle TEXT, bundleBytes INTEGER, bundleDigest TEXT, groupName TEXT,
         log TEXT, logFrom INTEGER, trace TEXT, lines TEXT);
       CREATE INDEX runsByTime ON runs(started);
       CREATE TABLE pens(
         row INTEGER PRIMARY KEY,
         run INTEGER NOT NULL REFERENCES runs(number) ON DELETE CASCADE,
         id TEXT, name TEXT, type INTEGER, firmwareBefore TEXT, firmwareAfter TEXT,
         ordered TEXT,              -- what it was to get, as JSON
         began TEXT, ended TEXT,    -- ended is empty while there is no result
         code INTEGER, status INTEGER, detail TEXT, leftWords TEXT, leftState TEXT, remedy TEXT, seconds REAL);
       CREATE INDEX pensOfRun ON pens(run);
       CREATE INDEX pensById ON pens(id);
       CREATE TABLE packages(
         pen INTEGER NOT NULL REFERENCES pens(row) ON DELETE CASCADE,
         file TEXT, name TEXT, guid TEXT, version TEXT, groupName TEXT, fileType TEXT, outcome TEXT, reason TEXT);
       CREATE INDEX packagesOfPen ON packages(pen);)"};

int64_t VersionOf(SqliteConnection& connection) {
  SqliteStatement statement = connection.Prepare("PRAGMA user_version");
  return statement.Step() ? statement.Number(0).value_or(0) : 0;
}

std::string Conditions(const HistoryFilter& filter) {
  std::string text;
  if (filter.number) text += " AND number = ?1";
  if (!filter.since.empty()) text += " AND started >= ?2";
  if (filter.failed) text += " AND ((status IS NULL AND settled) OR status NOT IN (0, 10))";
  if (!filter.readers) text += " AND command NOT IN ('verify', 'plan')";
  std::string pens;
  for (size_t i = 0; i < filter.pens.size(); ++i) pens += fmt::format("{}?{}", i == 0 ? "" : ", ", i + 4);
  if (!pens.empty()) text += fmt::format(" AND number IN (SELECT run FROM pens WHERE id IN ({}))", pens);
  return text;
}

RunRecord RunOf(const SqliteStatement& row) {
  RunRecord run;
  run.number = row.Number(0).value_or(0);
  run.folder = row.Text(1);
  run.program = row.Text(2);
  run.command = row.Text(3);
  run.started = row.Text(4);
  run.ended = row.Text(5);
  run.status = row.Number(6);
  run.sentence = row.Text(7);
  run.bundle = row.Text(8);
  run.bundleBytes = row.Number(9);
  run.bundleDigest = row.Text(10);
  run.group = row.Text(11);
  run.log = row.Text(12);
  run.logFrom = row.Number(13).value_or(0);
  run.trace = row.Text(14);
  run.lines = row.Text(15);
  return run;
}

PenRecord PenOf(const SqliteStatement& row) {
  PenRecord pen;
  pen.id = row.Text(1);
  pen.name = row.Text(2);
  pen.type = row.Number(3);
  pen.firmwareBefore = row.Text(4);
  pen.firmwareAfter = row.Text(5);
  Json order = Json::parse(row.Text(6), nullptr, false);
  if (order.is_object()) pen.order = InstallOrderFrom(order);
  pen.began = row.Text(7);
  pen.ended = row.Text(8);
  pen.code = static_cast<InsResCode>(row.Number(9).value_or(0));
  pen.status = static_cast<ExitStatus>(row.Number(10).value_or(0));
  pen.detail = row.Text(11);
  pen.left = row.Text(12);
  pen.leftState = row.Text(13);
  pen.remedy = row.Text(14);
  pen.seconds = row.Real(15);
  return pen;
}

}  // namespace

const int HistoryDatabase::kVersion = static_cast<int>(kSteps.size());

HistoryDatabase::HistoryDatabase(const std::string& file, std::chrono::milliseconds patience)
    : m_connection(file, patience) {
  m_connection.Execute("PRAGMA foreign_keys = ON");
  if (VersionOf(m_connection) < kVersion) Migrate();
  if (VersionOf(m_connection) > kVersion) {
    throw NewerHistory("the history was written by a newer quarvel, which alone can read it");
  }
}

// Another program may have done it by the time that this one may write.
void HistoryDatabase::Migrate() {
  m_connection.Execute("PRAGMA auto_vacuum = INCREMENTAL");  // of use before there is any table
  SqliteTransaction transaction(m_connection);
  for (int64_t version = VersionOf(m_connection); version < kVersion; ++version) {
    m_connection.Execute(kSteps.at(static_cast<size_t>(version)));
    m_connection.Execute(fmt::format("PRAGMA user_version = {}", version + 1));
  }
  transaction.Commit();
}

std::vector<std::string> HistoryDatabase::Names(const std::string& query) {
  std::vector<std::string> names;
  SqliteStatement statement = m_connection.Prepare(query);
  while (statement.Step()) names.push_back(statement.Text(0));
  return names;
}

// A refused insertion would use up a number.
int64_t HistoryDatabase::NumberOf(const std::string& folder) {
  SqliteStatement find = m_connection.Prepare("SELECT number FROM runs WHERE folder = ?1");
  if (find.Bind(1, folder).Step()) return find.Number(0).value_or(0);
  SqliteStatement enter = m_connection.Prepare("INSERT INTO runs(folder, settled, lines) VALUES(?1, 0, '')");
  enter.Bind(1, folder).Step();
  return m_connection.LastRow();
}

// A log that was trimmed since holds fewer of the run's lines than were taken before.
void HistoryDatabase::Store(const RunRecord& run, bool settled) {
  int64_t number = NumberOf(run.folder);
  SqliteStatement store = m_connection.Prepare(
      "UPDATE runs SET settled = ?2, program = ?3, command = ?4, started = ?5, ended = ?6, status = ?7, sentence = ?8, "
      "bundle = ?9, bundleBytes = ?10, bundleDigest = ?11, groupName = ?12, log = ?13, logFrom = ?14, trace = ?15, "
      "lines = CASE WHEN length(?16) > length(lines) THEN ?16 ELSE lines END WHERE number = ?1");
  store.Bind(1, number).Bind(2, int64_t{settled}).Bind(3, run.program).Bind(4, run.command).Bind(5, run.started);
  store.Bind(6, run.ended).Bind(7, run.status).Bind(8, run.sentence).Bind(9, run.bundle).Bind(10, run.bundleBytes);
  store.Bind(11, run.bundleDigest).Bind(12, run.group).Bind(13, run.log).Bind(14, run.logFrom).Bind(15, run.trace);
  store.Bind(16, run.lines).Step();
  StorePens(number, run.pens);
}

void HistoryDatabase::StorePens(int64_t number, const std::vector<PenRecord>& pens) {
  m_connection.Prepare("DELETE FROM pens WHERE run = ?1").Bind(1, number).Step();
  for (const PenRecord& pen : pens) {
    SqliteStatement store = m_connection.Prepare(
        "INSERT INTO pens(run, id, name, type, firmwareBefore, firmwareAfter, ordered, began, ended, code, status, "
        "detail, leftWords, leftState, remedy, seconds) "
        "VALUES(?1, ?2, ?3, ?4, ?5, ?6, ?7, ?8, ?9, ?10, ?11, ?12, ?13, ?14, ?15, ?16)");
    store.Bind(1, number).Bind(2, pen.id).Bind(3, pen.name).Bind(4, pen.type).Bind(5, pen.firmwareBefore);
    store.Bind(6, pen.firmwareAfter).Bind(7, ToLine(ToJson(pen.order))).Bind(8, pen.began).Bind(9, pen.ended);
    store.Bind(10, int64_t{pen.code}).Bind(11, static_cast<int64_t>(pen.status)).Bind(12, pen.detail);
    store.Bind(13, pen.left).Bind(14, pen.leftState).Bind(15, pen.remedy).Bind(16, pen.seconds).Step();
    int64_t row = m_connection.LastRow();
    for (const PackageRow& package : pen.packages) {
      SqliteStatement add = m_connection.Prepare("INSERT INTO packages VALUES(?1, ?2, ?3, ?4, ?5, ?6, ?7, ?8, ?9)");
      add.Bind(1, row).Bind(2, package.file).Bind(3, package.name).Bind(4, package.guid).Bind(5, package.version);
      add.Bind(6, package.group).Bind(7, package.fileType).Bind(8, package.outcome).Bind(9, package.reason).Step();
    }
  }
}

void HistoryDatabase::Settle(const std::string& folder) {
  m_connection.Prepare("UPDATE runs SET settled = 1 WHERE folder = ?1").Bind(1, folder).Step();
}

void HistoryDatabase::Remove(const std::vector<std::string>& folders) {
  SqliteTransaction transaction(m_connection);
  for (const std::string& folder : folders) {
    m_connection.Prepare("DELETE FROM runs WHERE folder = ?1").Bind(1, folder).Step();
  }
  transaction.Commit();
  m_connection.Execute("PRAGMA incremental_vacuum");
}

std::vector<RunRecord> HistoryDatabase::Find(const HistoryFilter& filter) {
  SqliteStatement query = m_connection.Prepare(
      "SELECT number, folder, program, command, started, ended, status, sentence, bundle, bundleBytes, bundleDigest, "
      "groupName, log, logFrom, trace, " +
      std::string(filter.lines ? "lines" : "''") + " FROM runs WHERE ?3" + Conditions(filter) +
      " ORDER BY number DESC" + (filter.limit > 0 ? fmt::format(" LIMIT {}", filter.limit) : ""));
  query.Bind(3, int64_t{1});
  if (filter.number) query.Bind(1, *filter.number);
  if (!filter.since.empty()) query.Bind(2, filter.since);
  for (size_t i = 0; i < filter.pens.size(); ++i) query.Bind(static_cast<int>(i) + 4, filter.pens[i]);
  std::vector<RunRecord> runs;
  while (query.Step()) runs.push_back(RunOf(query));
  for (RunRecord& run : runs) run.pens = PensOf(run.number);
  return runs;
}

std::vector<PenRecord> HistoryDatabase::PensOf(int64_t number) {
  SqliteStatement query = m_connection.Prepare(
      "SELECT row, id, name, type, firmwareBefore, firmwareAfter, ordered, began, ended, code, status, detail, "
      "leftWords, leftState, remedy, seconds FROM pens WHERE run = ?1 ORDER BY row");
  query.Bind(1, number);
  std::vector<PenRecord> pens;
  while (query.Step()) {
    pens.push_back(PenOf(query));
    pens.back().packages = PackagesOf(query.Number(0).value_or(0));
  }
  return pens;
}

std::vector<PackageRow> HistoryDatabase::PackagesOf(int64_t pen) {
  SqliteStatement query = m_connection.Prepare(
      "SELECT file, name, guid, version, groupName, fileType, outcome, reason FROM packages WHERE pen = ?1 "
      "ORDER BY rowid");
  query.Bind(1, pen);
  std::vector<PackageRow> rows;
  while (query.Step()) {
    PackageRow row;
    row.file = query.Text(0);
    row.name = query.Text(1);
    row.guid = query.Text(2);
    row.version = query.Text(3);
    row.group = query.Text(4);
    row.fileType = query.Text(5);
    row.outcome = query.Text(6);
    row.reason = query.Text(7);
    rows.push_back(std::move(row));
  }
  return rows;
}

bool HistoryDatabase::IsSound() {
  SqliteStatement check = m_connection.Prepare("PRAGMA integrity_check(1)");
  return check.Step() && check.Text(0) == "ok";
}
