#include "foundation/rootPath.h"

#include <cctype>
#include <cstdlib>
#include <cstring>

namespace vessord {
namespace {

std::string& root_storage() {
  static std::string root = [] {
    const char* env = std::getenv("VESSORD_ROOT");
    std::string r = env ? env : "";
    while (r.size() > 1 && r.back() == '/') r.pop_back();
    return r;
  }();
  return root;
}

bool shell_plain(const std::string& s) {
  for (unsigned char c : s) {
    if (!(std::isalnum(c) || c == '/' || c == '.' || c == '_' || c == '-' || c == '+' || c == ',' ||
          c == ':' || c == '@' || c == '%'))
      return false;
  }
  return true;
}

bool starts_word(char prev) {
  return prev == ' ' || prev == '\t' || prev == '\'' || prev == '"' || prev == '=' || prev == '>' ||
         prev == '<' || prev == '(' || prev == '|' || prev == ';' || prev == '`' || prev == '\n';
}

bool ends_path(char c) {
  return c == '\0' || c == ' ' || c == '\t' || c == '\'' || c == '"' || c == ';' || c == '|' ||
         c == ')' || c == '>' || c == '<' || c == '`' || c == '\n' || c == '&';
}

}  // namespace

bool test_root_is_valid() { return shell_plain(test_root()); }

std::string root_command(const std::string& templ) {
  const std::string& prefix = test_root();
  if (prefix.empty()) return templ;
  std::string out;
  out.reserve(templ.size() + 4 * prefix.size());
  for (size_t i = 0; i < templ.size(); ++i) {
    if (templ[i] == '/' && (i == 0 || starts_word(templ[i - 1]))) {
      size_t end = i;
      while (end < templ.size() && !ends_path(templ[end])) ++end;
      std::string path = templ.substr(i, end - i);
      if (is_rooted_path(path.c_str())) out += prefix;
      out += path;
      i = end - 1;
      continue;
    }
    out += templ[i];
  }
  return out;
}

const std::string& test_root() { return root_storage(); }

void set_test_root(const std::string& root) {
  std::string r = root;
  while (r.size() > 1 && r.back() == '/') r.pop_back();
  root_storage() = r;
}

bool is_rooted_path(const char* path) {
  if (!path || path[0] != '/') return false;
  auto under = [path](const char* dir) {
    size_t n = std::strlen(dir);
    return std::strncmp(path, dir, n) == 0 && (path[n] == '\0' || path[n] == '/');
  };
  if (under("/dev")) return false;
  if (under("/proc")) return under("/proc/asound") || under("/proc/net");
  return true;
}

std::string root_path(const char* path) {
  if (!path) return std::string();
  const std::string& root = test_root();
  if (root.empty() || !is_rooted_path(path)) return path;
  return root + path;
}

}  // namespace vessord
