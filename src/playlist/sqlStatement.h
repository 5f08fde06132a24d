// Helpers of the playlist store for building its statements: fixed-size
// buffers that refuse a statement that would not fit, the test for text that
// goes into a statement unescaped, and a unit of several writes.
#pragma once

#include <initializer_list>

#include <sqlite3.h>

#include <cstdarg>
#include <cstddef>

namespace vessord {
namespace playlist {

// The size of every statement buffer.
constexpr size_t kStatementBuf = 1024;

// A formatted statement. ok() is false when the text would not fit in
// kStatementBuf bytes with its terminator: such a statement never runs,
// since a cut one could mean something else.
class CStatement {
 public:
  // snprintf formatting.
  static CStatement format(const char* fmt, ...) __attribute__((format(printf, 1, 2)));
  // sqlite3_snprintf formatting, for %q.
  static CStatement formatQ(const char* fmt, ...);

  bool ok() const { return m_bOk; }
  const char* c_str() const { return m_buf; }

 private:
  CStatement() = default;
  // One spare byte tells a statement that fills the buffer from a cut one.
  char m_buf[kStatementBuf + 1] = {0};
  bool m_bOk = false;
};

// Text that is put into a statement between single quotes without any
// escaping may hold no single quote: one would end the literal. NULL is
// refused as well.
bool can_stand_in_sql_quotes(const char* text);

// The same for every text of one operation; a refused text is logged.
bool texts_can_stand(std::initializer_list<const char*> texts);

// Several writes as one: begins a transaction unless one is open already,
// commits on commit(), rolls back otherwise. Keeps a failure between a
// shift of order numbers and its insert or delete from leaving a gap or a
// duplicate behind.
class CWriteUnit {
 public:
  explicit CWriteUnit(sqlite3* db);
  ~CWriteUnit();
  CWriteUnit(const CWriteUnit&) = delete;
  CWriteUnit& operator=(const CWriteUnit&) = delete;

  // False when the transaction could not be begun.
  bool ok() const { return m_bOk; }
  // SQLite's result of the commit (SQLITE_OK when the unit did not begin
  // a transaction of its own). A failed commit is rolled back.
  int commit();

 private:
  sqlite3* m_db;
  bool m_bOwn = false;
  bool m_bOk = false;
};

}  // namespace playlist
}  // namespace vessord
