// Stand-in for the media library's /usr/local/medialibrary/bin/tovuhist:
// "savePlayHistory UID TARGET... -p SECONDS -m 1 [options]" appends one
// record to ROOT/sim/history.tsv: the arguments behind the command word,
// separated by tabs, so that a test reads back what the library received.
#include <fcntl.h>
#include <unistd.h>

#include <cstring>
#include <string>

#include "common/standin.h"

int main(int argc, char** argv) {
  const std::string root = sim::root(argv[0], "/usr/local/medialibrary/bin/tovuhist");
  sim::log_call(root, argc, argv);
  if (argc < 2 || std::strcmp(argv[1], "savePlayHistory") != 0) return 2;
  std::string record;
  for (int i = 2; i < argc; ++i) {
    if (i > 2) record += '\t';
    record += argv[i];
  }
  record += '\n';
  int fd = ::open((root + "/sim/history.tsv").c_str(), O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC, 0644);
  if (fd < 0) return 1;
  ssize_t w = ::write(fd, record.data(), record.size());
  ::close(fd);
  return w == static_cast<ssize_t>(record.size()) ? 0 : 1;
}
