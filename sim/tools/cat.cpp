// Stand-in for /bin/cat, so that the reads of /proc/asound under the root
// show in the call log. Copies each file named (standard input without
// one) to standard output; a file that cannot be read is reported and
// makes the status 1, as cat does.
#include <cstdio>
#include <string>

#include "common/standin.h"

namespace {

bool copy(std::FILE* in) {
  char buf[4096];
  size_t n;
  while ((n = std::fread(buf, 1, sizeof buf, in)) > 0)
    if (std::fwrite(buf, 1, n, stdout) != n) return false;
  return !std::ferror(in);
}

}  // namespace

int main(int argc, char** argv) {
  const std::string root = sim::root(argv[0], "/bin/cat");
  sim::log_call(root, argc, argv);
  if (argc < 2) return copy(stdin) ? 0 : 1;
  int status = 0;
  for (int i = 1; i < argc; ++i) {
    std::FILE* f = std::fopen(argv[i], "r");
    if (!f) {
      std::fprintf(stderr, "cat: %s: No such file or directory\n", argv[i]);
      status = 1;
      continue;
    }
    if (!copy(f)) status = 1;
    std::fclose(f);
  }
  return status;
}
