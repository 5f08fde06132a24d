#include "foundation/shellRunner.h"

#include <fcntl.h>
#include <glob.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstdlib>
#include <cstring>

#include "foundation/rootPath.h"

extern char** environ;

namespace vessord {
namespace {

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

bool is_blank(char c) { return c == ' ' || c == '\t'; }

// Template characters that end a word of the line.
bool word_boundary(char c) { return is_blank(c) || c == '\n' || std::strchr(";|&<>()", c) != nullptr; }

// Characters that make glob(3) read the next one literally when escaped.
bool glob_meta(char c) { return c == '*' || c == '?' || c == '[' || c == ']' || c == '\\'; }

// One word of a bare value as sh builds it: the text after quote removal,
// and the pattern that pathname expansion matches when an unquoted `*`, `?`
// or `[` stands in it.
struct bareWord_s {
  std::string text;
  std::string pattern;
  bool glob = false;
};

// Appends a character that quoting or a backslash made literal.
void put_literal(bareWord_s& w, char c) {
  w.text += c;
  if (glob_meta(c)) w.pattern += '\\';
  w.pattern += c;
}

// Reads a bare value into words. `startsWord` tells whether the value's first
// character begins a word of the line. False when sh would act on the text:
// run or redirect something, expand a parameter, end the line, start a
// comment, expand a tilde or braces, or take quotes that the value opens
// and does not close.
bool read_bare(const std::string& t, bool startsWord, std::vector<bareWord_s>& words, bool& leadBlank,
               bool& trailBlank) {
  words.clear();
  bareWord_s cur;
  bool inWord = false;
  bool atStart = startsWord;
  // A `{` that a `,` or `..` and then a `}` follow is a brace expansion to bash.
  bool braceOpen = false, braceList = false;
  leadBlank = !t.empty() && is_blank(t[0]);
  trailBlank = false;
  for (size_t i = 0; i < t.size(); ++i) {
    const char c = t[i];
    if (is_blank(c)) {
      if (inWord) words.push_back(cur), cur = bareWord_s(), inWord = false;
      atStart = true;
      braceOpen = braceList = false;
      trailBlank = true;
      continue;
    }
    trailBlank = false;
    const bool first = atStart;
    atStart = false;
    inWord = true;
    switch (c) {
      case '\\':
        if (i + 1 >= t.size() || t[i + 1] == '\n' || t[i + 1] == '\0') return false;
        put_literal(cur, t[++i]);
        continue;
      case '\'': {
        const size_t close = t.find('\'', i + 1);
        if (close == std::string::npos) return false;
        for (size_t k = i + 1; k < close; ++k) put_literal(cur, t[k]);
        i = close;
        continue;
      }
      case '"': {
        size_t k = i + 1;
        for (; k < t.size() && t[k] != '"'; ++k) {
          if (t[k] == '$' || t[k] == '`') return false;
          if (t[k] == '\\' && k + 1 < t.size() && std::strchr("$`\"\\", t[k + 1])) ++k;
          else if (t[k] == '\\' && k + 1 < t.size() && t[k + 1] == '\n') return false;
          put_literal(cur, t[k]);
        }
        if (k >= t.size()) return false;
        i = k;
        continue;
      }
      // Another command, a redirection, an expansion, a subshell or the end
      // of the line.
      case ';': case '|': case '&': case '<': case '>': case '$': case '`': case '(': case ')': case '\n':
      case '\0':
        return false;
      case '#': case '~':
        if (first) return false;  // a comment, a home directory
        break;
      case '*': case '?': case '[':
        cur.glob = true;
        break;
      case '{':
        braceOpen = true;
        braceList = false;
        break;
      case ',':
        if (braceOpen) braceList = true;
        break;
      case '.':
        if (braceOpen && i + 1 < t.size() && t[i + 1] == '.') braceList = true;
        break;
      case '}':
        if (braceOpen && braceList) return false;
        braceOpen = false;
        break;
      default:
        break;
    }
    cur.text += c;
    cur.pattern += c;
  }
  if (inWord) words.push_back(cur);
  return true;
}

// Pathname expansion as sh performs it on a word with an unquoted pattern
// character: the sorted matches, or the word itself when nothing matches.
void expand_word(const bareWord_s& w, std::vector<std::string>& out) {
  if (!w.glob) {
    out.push_back(w.text);
    return;
  }
  glob_t g;
  std::memset(&g, 0, sizeof g);
  if (::glob(w.pattern.c_str(), 0, nullptr, &g) == 0) {
    for (size_t k = 0; k < g.gl_pathc; ++k) out.push_back(g.gl_pathv[k]);
  } else {
    out.push_back(w.text);
  }
  globfree(&g);
}

// A word that would reach the tool as an option it was not meant to get.
// Negative numbers pass: the daemon formats them itself.
bool option_like(const std::string& word) {
  if (word.size() < 2 || word[0] != '-') return false;
  for (size_t k = 1; k < word.size(); ++k)
    if (word[k] < '0' || word[k] > '9') return true;
  return false;
}

// The words that sh makes of a bare value, as the tool receives them. False
// when the value is refused: sh would act on it, a word of its own would
// begin with '-', a pattern word is glued to the template's text, or (with
// ONE_WORD) it would make more than one word.
bool bare_words(const std::string& value, bool joinsBefore, bool joinsAfter, BareWords mode,
                std::vector<std::string>& out, bool& leadBlank, bool& trailBlank) {
  out.clear();
  std::vector<bareWord_s> words;
  if (!read_bare(value, !joinsBefore, words, leadBlank, trailBlank)) return false;
  for (size_t k = 0; k < words.size(); ++k) {
    const bool gluedBefore = k == 0 && joinsBefore && !leadBlank;
    const bool gluedAfter = k + 1 == words.size() && joinsAfter && !trailBlank;
    // sh would match the whole word, template text included; no template does that.
    if (words[k].glob && (gluedBefore || gluedAfter)) return false;
    const size_t from = out.size();
    expand_word(words[k], out);
    for (size_t j = from; j < out.size(); ++j)
      if (!(gluedBefore && j == from) && option_like(out[j])) return false;
  }
  return mode == BareWords::SPLIT || out.size() <= 1;
}

const char kShell[] = "/bin/sh";

// A redirection at a word's start of the template: "N>/dev/null" (N 1, 2
// or none, blanks allowed after '>') or "2>&1". The length read, 0 for
// anything else. `target` follows sh: 0 /dev/null, 1 the line's output.
size_t read_redirect(const std::string& t, size_t i, int (&target)[3]) {
  size_t k = i;
  int fd = 1;
  if (t[k] == '1' || t[k] == '2') fd = t[k++] - '0';
  if (k >= t.size() || t[k] != '>') return 0;
  ++k;
  if (k < t.size() && t[k] == '&') {
    if (fd != 2 || k + 1 >= t.size() || t[k + 1] != '1') return 0;
    k += 2;
    if (k < t.size() && !is_blank(t[k])) return 0;
    target[2] = target[1];
    return k - i;
  }
  while (k < t.size() && is_blank(t[k])) ++k;
  static const std::string kNull = "/dev/null";
  if (t.compare(k, kNull.size(), kNull) != 0) return 0;
  k += kNull.size();
  if (k < t.size() && !is_blank(t[k])) return 0;
  target[fd] = 0;
  return k - i;
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
      return bare_words(text, false, false, BareWords::ONE_WORD, w, lead, trail);
  }
  return false;
}

ShellLine::ShellLine(const char* format, std::initializer_list<std::string> values) {
  compose(format, std::vector<std::string>(values));
}

ShellLine::ShellLine(const char* format, const std::vector<std::string>& values) { compose(format, values); }

ShellLine::ShellLine(const char* format, const std::vector<std::string>& values, BareWords bare) : m_bare(bare) {
  compose(format, values);
}

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
        const bool joinsBefore = !m_script.empty() && !word_boundary(m_script.back());
        const bool joinsAfter = i + 1 < templ.size() && !word_boundary(templ[i + 1]);
        if (value.find('\0') != std::string::npos ||
            !bare_words(value, joinsBefore, joinsAfter, m_bare, words, lead, trail))
          m_ok = false;
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
  if (m_ok) composeDirect(templ, values);
}

// The second reading of a line that passed the checks: the words sh would
// make, or none when the template asks sh for more than words.
void ShellLine::composeDirect(const std::string& templ, const std::vector<std::string>& values) {
  std::vector<std::string> argv;
  int target[3] = {0, 1, 2};
  std::string cur;
  bool inWord = false;
  ShellSlot state = ShellSlot::BARE;
  size_t next = 0;
  auto endWord = [&] {
    if (inWord) argv.push_back(cur);
    cur.clear();
    inWord = false;
  };
  for (size_t i = 0; i < templ.size(); ++i) {
    const char c = templ[i];
    if (c == '%' && i + 1 < templ.size() && (templ[i + 1] == '%' || templ[i + 1] == 's')) {
      ++i;
      if (templ[i] == '%') {
        cur += '%';
        inWord = true;
        continue;
      }
      const std::string& value = values[next++];
      std::vector<std::string> words;
      if (state != ShellSlot::BARE) {
        // Checked by compose: one word inside its quotes, as sh reads it.
        if (!shell_read_value(value, state, &words) || words.size() != 1) return;
        cur += words[0];
        inWord = true;
        continue;
      }
      bool lead = false, trail = false;
      const bool joinsAfter = i + 1 < templ.size() && !word_boundary(templ[i + 1]);
      if (!bare_words(value, inWord, joinsAfter, m_bare, words, lead, trail)) return;
      if (lead) endWord();
      for (size_t k = 0; k < words.size(); ++k) {
        if (k) endWord();
        cur += words[k];
        inWord = true;
      }
      if (trail && !words.empty()) endWord();
      continue;
    }
    if (state == ShellSlot::SINGLE_QUOTED) {
      if (c == '\'') state = ShellSlot::BARE;
      else cur += c;
      continue;
    }
    if (state == ShellSlot::DOUBLE_QUOTED) {
      if (c == '"') state = ShellSlot::BARE;
      else if (c == '$' || c == '`' || c == '\\') return;
      else cur += c;
      continue;
    }
    if (is_blank(c)) {
      endWord();
      continue;
    }
    if (!inWord) {
      const size_t n = read_redirect(templ, i, target);
      if (n) {
        i += n - 1;
        continue;
      }
    }
    if (c == '\'' || c == '"') {
      state = c == '\'' ? ShellSlot::SINGLE_QUOTED : ShellSlot::DOUBLE_QUOTED;
      inWord = true;
      continue;
    }
    // Anything else that sh reads specially, and an assignment before the
    // command, leave the line to sh.
    if (std::strchr("|&;<>()$`\\*?[]{}~#!\n", c) || (c == '=' && argv.empty())) return;
    cur += c;
    inWord = true;
  }
  if (state != ShellSlot::BARE) return;
  endWord();
  if (argv.empty() || argv[0].find('/') == std::string::npos) return;
  m_directArgv = std::move(argv);
  std::copy(target, target + 3, m_directTarget);
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

namespace {

std::atomic<int>& direct_exec_flag() {
  static std::atomic<int> flag{[] {
    const char* always = std::getenv("VESSORD_ALWAYS_SH");
    return always && std::strcmp(always, "1") == 0 ? 0 : 1;
  }()};
  return flag;
}

}  // namespace

void set_direct_exec(bool on) { direct_exec_flag() = on ? 1 : 0; }

bool direct_exec_enabled() { return direct_exec_flag() != 0; }

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

  pid_t pid = -1;
  int rc = ENOENT;
  if (!line.directArgv().empty() && direct_exec_enabled()) {
    // One exec where the line needs no shell: the tool gets the same words.
    posix_spawn_file_actions_t direct;
    posix_spawn_file_actions_init(&direct);
    if (captureOutput) posix_spawn_file_actions_adddup2(&direct, fds[1], STDOUT_FILENO);
    // Standard error first: "2>&1" names the output as it was before
    // standard output itself moved.
    if (line.directErr() == 1) posix_spawn_file_actions_adddup2(&direct, STDOUT_FILENO, STDERR_FILENO);
    if (line.directErr() == 0) posix_spawn_file_actions_addopen(&direct, STDERR_FILENO, "/dev/null", O_WRONLY, 0);
    if (line.directOut() == 0) posix_spawn_file_actions_addopen(&direct, STDOUT_FILENO, "/dev/null", O_WRONLY, 0);
    std::vector<char*> words;
    for (const std::string& w : line.directArgv()) words.push_back(const_cast<char*>(w.c_str()));
    words.push_back(nullptr);
    rc = posix_spawn(&pid, words[0], &direct, &attr, words.data(), environ);
    posix_spawn_file_actions_destroy(&direct);
  }
  // A tool that cannot be run directly (missing, not executable, a script
  // without its interpreter line) goes to sh, which answers it as it always
  // has: 127, 126, or the script run by sh.
  if (rc != 0) {
    std::vector<char*> argv;
    argv.push_back(const_cast<char*>("sh"));
    argv.push_back(const_cast<char*>("-c"));
    argv.push_back(const_cast<char*>(line.script().c_str()));
    argv.push_back(const_cast<char*>("sh"));
    for (const std::string& a : line.args()) argv.push_back(const_cast<char*>(a.c_str()));
    argv.push_back(nullptr);
    // The system's shell, as popen and system use it; never one found in PATH.
    rc = posix_spawn(&pid, kShell, &actions, &attr, argv.data(), environ);
  }
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

bool ShellChild::read_failed() const { return m_out && std::ferror(m_out); }

int ShellChild::output_fd() const { return m_out ? fileno(m_out) : -1; }

int ShellChild::stop(int graceMs) {
  if (m_out) {
    std::fclose(m_out);
    m_out = nullptr;
  }
  if (m_pid <= 0) return -1;
  // Looks without reaping: the group id stays the child's until it is reaped.
  for (int waited = 0; waited < graceMs; waited += 10) {
    siginfo_t info;
    info.si_pid = 0;
    if (::waitid(P_PID, static_cast<id_t>(m_pid), &info, WEXITED | WNOHANG | WNOWAIT) != 0 || info.si_pid != 0)
      break;
    ::usleep(10000);
  }
  // Whatever the group still runs goes with it.
  ::kill(-m_pid, SIGKILL);
  return wait();
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
  if (out.size() < cap && child.read_failed()) {
    out.clear();
    child.wait();
    return -1;
  }
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
