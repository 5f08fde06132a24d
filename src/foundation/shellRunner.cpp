#include "foundation/shellRunner.h"

#include <fcntl.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "foundation/rootPath.h"

extern char** environ;

namespace vessord {
namespace {

// Characters that mean more than themselves to sh when they stand bare.
bool bare_special(char c) {
  return std::strchr("|&;<>()$`\"'*?[]#~{}!\n\r", c) != nullptr || c == '\0';
}

bool read_single(const std::string& t, std::string& out) {
  for (size_t i = 0; i < t.size(); ++i) {
    if (t[i] != '\'') {
      out += t[i];
      continue;
    }
    // Only the '\'' idiom may close the quotes: it stands for one quote.
    if (t.compare(i, 4, "'\\''") != 0) return false;
    out += '\'';
    i += 3;
  }
  return true;
}

bool read_double(const std::string& t, std::string& out) {
  for (size_t i = 0; i < t.size(); ++i) {
    char c = t[i];
    if (c == '$' || c == '`' || c == '"') return false;
    if (c == '\\') {
      if (i + 1 >= t.size()) return false;  // would escape the closing quote
      char n = t[i + 1];
      if (n == '\n') return false;
      if (n == '$' || n == '`' || n == '"' || n == '\\') {
        out += n;
        ++i;
        continue;
      }
    }
    out += c;
  }
  return true;
}

bool read_bare(const std::string& t, std::vector<std::string>& words, bool& leadBlank, bool& trailBlank) {
  std::string cur;
  bool inWord = false;
  leadBlank = !t.empty() && (t[0] == ' ' || t[0] == '\t');
  trailBlank = false;
  for (size_t i = 0; i < t.size(); ++i) {
    char c = t[i];
    if (c == ' ' || c == '\t') {
      if (inWord) words.push_back(cur), cur.clear(), inWord = false;
      trailBlank = true;
      continue;
    }
    trailBlank = false;
    if (c == '\\') {
      if (i + 1 >= t.size() || t[i + 1] == '\n' || t[i + 1] == '\0') return false;
      cur += t[++i];
      inWord = true;
      continue;
    }
    if (bare_special(c)) return false;
    cur += c;
    inWord = true;
  }
  if (inWord) words.push_back(cur);
  return true;
}

std::string param(size_t n) { return "${" + std::to_string(n) + "}"; }

}  // namespace

bool shell_read_value(const std::string& text, ShellSlot slot, std::vector<std::string>* words) {
  if (text.find('\0') != std::string::npos) return false;
  std::vector<std::string> local;
  std::vector<std::string>& w = words ? *words : local;
  w.clear();
  std::string one;
  bool lead = false, trail = false;
  switch (slot) {
    case ShellSlot::SINGLE_QUOTED:
      if (!read_single(text, one)) return false;
      w.push_back(one);
      return true;
    case ShellSlot::DOUBLE_QUOTED:
      if (!read_double(text, one)) return false;
      w.push_back(one);
      return true;
    case ShellSlot::BARE:
      return read_bare(text, w, lead, trail);
  }
  return false;
}

ShellLine::ShellLine(const char* format, std::initializer_list<std::string> values) {
  compose(format, std::vector<std::string>(values));
}

ShellLine::ShellLine(const char* format, const std::vector<std::string>& values) { compose(format, values); }

void ShellLine::compose(const char* format, const std::vector<std::string>& values) {
  // Fixed paths of the template move under the test root before anything
  // is spliced in; values are never rewritten.
  const std::string templ = root_command(format ? format : "");
  ShellSlot state = ShellSlot::BARE;
  size_t next = 0;
  for (size_t i = 0; i < templ.size(); ++i) {
    char c = templ[i];
    if (c == '%' && i + 1 < templ.size() && templ[i + 1] == '%') {
      m_display += '%';
      m_script += '%';
      ++i;
      continue;
    }
    if (c == '%' && i + 1 < templ.size() && templ[i + 1] == 's') {
      ++i;
      const std::string value = next < values.size() ? values[next] : std::string();
      ++next;
      m_display += value;
      std::vector<std::string> words;
      bool lead = false, trail = false;
      if (state == ShellSlot::BARE) {
        if (value.find('\0') != std::string::npos || !read_bare(value, words, lead, trail)) m_ok = false;
        if (lead) m_script += ' ';
        for (size_t k = 0; k < words.size(); ++k) {
          if (k) m_script += ' ';
          m_args.push_back(words[k]);
          m_script += "\"" + param(m_args.size()) + "\"";
        }
        if (trail && !words.empty()) m_script += ' ';
      } else {
        if (!shell_read_value(value, state, &words)) {
          m_ok = false;
          words.assign(1, std::string());
        }
        m_args.push_back(words[0]);
        m_script += state == ShellSlot::SINGLE_QUOTED ? "'\"" + param(m_args.size()) + "\"'"
                                                      : param(m_args.size());
      }
      continue;
    }
    m_display += c;
    m_script += c;
    if (state == ShellSlot::BARE) {
      if (c == '\'') state = ShellSlot::SINGLE_QUOTED;
      else if (c == '"') state = ShellSlot::DOUBLE_QUOTED;
      else if (c == '\\' && i + 1 < templ.size()) m_display += templ[i + 1], m_script += templ[++i];
    } else if (state == ShellSlot::SINGLE_QUOTED) {
      if (c == '\'') state = ShellSlot::BARE;
    } else {
      if (c == '"') state = ShellSlot::BARE;
      else if (c == '\\' && i + 1 < templ.size()) m_display += templ[i + 1], m_script += templ[++i];
    }
  }
  if (next != values.size()) m_ok = false;  // a value without its slot is a caller's error
}

ShellChild::~ShellChild() { wait(); }

ShellChild::ShellChild(ShellChild&& other) noexcept : m_pid(other.m_pid), m_out(other.m_out) {
  other.m_pid = -1;
  other.m_out = nullptr;
}

ShellChild& ShellChild::operator=(ShellChild&& other) noexcept {
  if (this != &other) {
    wait();
    m_pid = other.m_pid;
    m_out = other.m_out;
    other.m_pid = -1;
    other.m_out = nullptr;
  }
  return *this;
}

bool ShellChild::start(const ShellLine& line, bool captureOutput) {
  wait();
  if (!line.ok()) {
    errno = EINVAL;
    return false;
  }
  int fds[2] = {-1, -1};
  if (captureOutput && pipe2(fds, O_CLOEXEC) != 0) return false;

  posix_spawn_file_actions_t actions;
  posix_spawnattr_t attr;
  posix_spawn_file_actions_init(&actions);
  posix_spawnattr_init(&attr);
  if (captureOutput) posix_spawn_file_actions_adddup2(&actions, fds[1], STDOUT_FILENO);
  // The daemon ignores SIGPIPE and SIGHUP; its tools get the defaults back.
  sigset_t def, mask;
  sigemptyset(&def);
  sigaddset(&def, SIGPIPE);
  sigaddset(&def, SIGHUP);
  sigemptyset(&mask);
  posix_spawnattr_setsigdefault(&attr, &def);
  posix_spawnattr_setsigmask(&attr, &mask);
  posix_spawnattr_setpgroup(&attr, 0);
  posix_spawnattr_setflags(&attr, POSIX_SPAWN_SETSIGDEF | POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETPGROUP);

  std::vector<char*> argv;
  argv.push_back(const_cast<char*>("sh"));
  argv.push_back(const_cast<char*>("-c"));
  argv.push_back(const_cast<char*>(line.script().c_str()));
  argv.push_back(const_cast<char*>("sh"));
  for (const std::string& a : line.args()) argv.push_back(const_cast<char*>(a.c_str()));
  argv.push_back(nullptr);

  pid_t pid = -1;
  int rc = posix_spawnp(&pid, "sh", &actions, &attr, argv.data(), environ);
  posix_spawn_file_actions_destroy(&actions);
  posix_spawnattr_destroy(&attr);
  if (captureOutput) ::close(fds[1]);
  if (rc != 0) {
    if (captureOutput) ::close(fds[0]);
    errno = rc;
    return false;
  }
  m_pid = pid;
  if (captureOutput) {
    m_out = fdopen(fds[0], "r");
    if (!m_out) {
      ::close(fds[0]);
      int saved = errno;
      wait();
      errno = saved;
      return false;
    }
  }
  return true;
}

size_t ShellChild::read(char* buf, size_t cap) {
  if (!m_out || cap == 0) return 0;
  return std::fread(buf, 1, cap, m_out);
}

bool ShellChild::read_line(std::string& line, size_t max) {
  line.clear();
  if (!m_out || max < 2) return false;
  std::vector<char> buf(max);
  if (!std::fgets(buf.data(), static_cast<int>(max), m_out)) return false;
  line.assign(buf.data());
  return true;
}

int ShellChild::wait() {
  if (m_out) {
    std::fclose(m_out);
    m_out = nullptr;
  }
  if (m_pid <= 0) return -1;
  int status = 0;
  pid_t r;
  do {
    r = ::waitpid(m_pid, &status, 0);
  } while (r < 0 && errno == EINTR);
  m_pid = -1;
  return r < 0 ? -1 : status;
}

int ShellChild::kill_group(int sig) { return m_pid > 0 ? ::kill(-m_pid, sig) : -1; }

int shell_system(const ShellLine& line) {
  ShellChild child;
  if (!child.start(line, false)) return -1;
  return child.wait();
}

int shell_read(const ShellLine& line, std::string& out, size_t cap) {
  out.clear();
  ShellChild child;
  if (!child.start(line)) return -1;
  out.resize(cap);
  out.resize(child.read(&out[0], cap));
  child.wait();
  return 0;
}

int shell_read_line(const ShellLine& line, std::string& out, size_t max) {
  out.clear();
  ShellChild child;
  if (!child.start(line)) return -1;
  bool got = child.read_line(out, max);
  child.wait();
  return got ? 0 : 1;
}

}  // namespace vessord
