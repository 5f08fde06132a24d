#include "foundation/realPath.h"

#include <sys/stat.h>

#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "foundation/rootPath.h"

namespace {
constexpr size_t kPathBuf = 1024;
}

int get_real_path(const char* path, char* out) {
  if (!path || !out) return -1;
  char resolved[PATH_MAX];
  std::string full;
  struct stat st;
  if (stat(path, &st) == 0 && S_ISREG(st.st_mode)) {
    std::string p(path);
    size_t slash = p.rfind('/');
    std::string dir = slash == std::string::npos ? "." : (slash == 0 ? "/" : p.substr(0, slash));
    std::string name = slash == std::string::npos ? p : p.substr(slash + 1);
    if (!realpath(dir.c_str(), resolved)) return -1;
    full = std::string(resolved) + "/" + name;
  } else {
    if (!realpath(path, resolved)) return -1;
    full = resolved;
  }
  std::string quoted;
  quoted.reserve(full.size());
  for (char c : full) {
    if (c == '\'') quoted += "'\\''";
    else quoted += c;
  }
  if (quoted.size() >= kPathBuf) return -1;
  std::memcpy(out, quoted.c_str(), quoted.size() + 1);
  return 0;
}

namespace vessord {

std::string public_parent_dir() {
  char buf[kPathBuf] = {0};
  get_real_path(root_path("/share/Public").c_str(), buf);
  std::string s(buf);
  size_t at = s.find("Public");
  if (at != std::string::npos) s.resize(at);
  return s;
}

}  // namespace vessord
