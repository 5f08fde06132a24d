// vessord: the daemon's whole life. It refuses to run twice, derives its
// log directory, opens the command socket, sets up its signals and then
// accepts connections for ever. There is no orderly stop: a signal ends it.
#include <sys/resource.h>

#include <cstdlib>
#include <string>

#include "command/acceptLoop.h"
#include "command/daemonLog.h"
#include "command/processCheck.h"
#include "command/signals.h"
#include "command/unixSocketIpc.h"
#include "foundation/log.h"
#include "foundation/realPath.h"
#include "foundation/rootPath.h"
#include "foundation/shellRunner.h"
#include "manager/playerManager.h"

namespace {

// Every connection holds a descriptor until it is answered or let go; the
// soft limit goes up to the hard one (at most 65536), so that a crowd of
// slow clients does not keep the others out.
void raise_descriptor_limit() {
  rlimit lim{};
  if (getrlimit(RLIMIT_NOFILE, &lim) != 0) return;
  const rlim_t want = lim.rlim_max == RLIM_INFINITY || lim.rlim_max > 65536 ? 65536 : lim.rlim_max;
  if (lim.rlim_cur >= want) return;
  lim.rlim_cur = want;
  if (setrlimit(RLIMIT_NOFILE, &lim) != 0) VLOG(LOG_COLOR_FAIL, "setrlimit(RLIMIT_NOFILE) ... fail\n");
}

}  // namespace

int main() {
  // A root that a shell would not read as plain text cannot be spliced
  // into the daemon's command lines.
  if (!vessord::test_root().empty() && !vessord::test_root_is_valid()) {
    VLOG(LOG_COLOR_FAIL, "VESSORD_ROOT is not usable as a path on a command line: %s\n",
         vessord::test_root().c_str());
    return 1;
  }
  if (is_process_already_exist("vessord")) {
    VLOG(LOG_COLOR_NOTICE, "process already exist!!\n");
    std::exit(0);
  }

  // Without the share the directory stays relative: ".log/".
  const std::string logDir = vessord::public_parent_dir() + ".log/";
  vessord::shell_system(vessord::ShellLine("mkdir -p %s > /dev/null", {logDir}));
  g_cmdLogPath = logDir + ".center_cmd.log";
  // The dump path is fixed now: the signal handler may not compute it.
  vessord::set_log_dir(logDir);

  raise_descriptor_limit();
  try {
    CUnixSocketIpc ipc(vessord::root_path("/tmp/.@vessord.xxx").c_str(), true);
    CPlayerManager manager;
    install_signals();
    // A thread that cannot be made leaves the players unscanned, no more.
    manager.start();
    if (ipc.Listen(1) < 0) {
      VLOG(LOG_COLOR_SOCKET, "ipc.Listen() ... fial\n");
      debug_write_log(g_cmdLogPath.c_str(), "Listen() [fail]");
      throw "ipc.Listen";
    }
    accept_loop(ipc, &manager);
  } catch (const char* what) {
    VLOG(LOG_COLOR_FAIL, "exception: %s\n", what);
  }
  return 0;
}
