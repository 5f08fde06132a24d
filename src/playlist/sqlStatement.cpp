#include "playlist/sqlStatement.h"

#include <cstdio>
#include <cstring>

#include "foundation/log.h"

namespace vessord {
namespace playlist {

CStatement CStatement::format(const char* fmt, ...) {
  CStatement s;
  va_list ap;
  va_start(ap, fmt);
  int n = std::vsnprintf(s.m_buf, kStatementBuf, fmt, ap);
  va_end(ap);
  s.m_bOk = n >= 0 && static_cast<size_t>(n) < kStatementBuf;
  if (!s.m_bOk) s.m_buf[0] = '\0';
  return s;
}

CStatement CStatement::formatQ(const char* fmt, ...) {
  CStatement s;
  va_list ap;
  va_start(ap, fmt);
  sqlite3_vsnprintf(static_cast<int>(sizeof s.m_buf), s.m_buf, fmt, ap);
  va_end(ap);
  s.m_bOk = std::strlen(s.m_buf) < kStatementBuf;
  return s;
}

bool can_stand_in_sql_quotes(const char* text) { return text && std::strchr(text, '\'') == nullptr; }

bool texts_can_stand(std::initializer_list<const char*> texts) {
  for (const char* t : texts) {
    if (!can_stand_in_sql_quotes(t)) {
      VLOG(LOG_COLOR_FAIL, "refused playlist text \"%s\"\n", t ? t : "(null)");
      return false;
    }
  }
  return true;
}

CWriteUnit::CWriteUnit(sqlite3* db) : m_db(db) {
  if (!m_db) return;
  if (!sqlite3_get_autocommit(m_db)) {
    m_bOk = true;  // inside a batch: its transaction covers us
    return;
  }
  char* err = nullptr;
  int rc = sqlite3_exec(m_db, "BEGIN IMMEDIATE", nullptr, nullptr, &err);
  if (rc != SQLITE_OK) {
    VLOG(LOG_COLOR_FAIL, "%s\n", err ? err : sqlite3_errstr(rc));
    sqlite3_free(err);
    return;
  }
  m_bOwn = m_bOk = true;
}

int CWriteUnit::commit() {
  if (!m_bOwn) return SQLITE_OK;
  char* err = nullptr;
  int rc = sqlite3_exec(m_db, "COMMIT", nullptr, nullptr, &err);
  if (rc != SQLITE_OK) {
    VLOG(LOG_COLOR_FAIL, "%s\n", err ? err : sqlite3_errstr(rc));
    sqlite3_free(err);
    return rc;  // the destructor rolls back
  }
  m_bOwn = false;
  return rc;
}

CWriteUnit::~CWriteUnit() {
  if (!m_bOwn || sqlite3_get_autocommit(m_db)) return;  // SQLite may have rolled back already
  sqlite3_exec(m_db, "ROLLBACK", nullptr, nullptr, nullptr);
}

}  // namespace playlist
}  // namespace vessord
