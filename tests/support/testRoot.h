// A temporary simulated appliance for one test: a fresh directory laid out
// by sim/lay-root.sh, removed again when the object goes, together with
// any music daemon started in it.
#pragma once

#include <functional>
#include <string>
#include <vector>

namespace testsupport {

class TestRoot {
 public:
  // Lays out the stand-ins and samples. With `useForProcess`, the process's
  // own resolver (vessord::set_test_root) and VESSORD_ROOT point at it too,
  // for tests that run daemon code in-process.
  explicit TestRoot(bool useForProcess = true);
  ~TestRoot();
  TestRoot(const TestRoot&) = delete;
  TestRoot& operator=(const TestRoot&) = delete;

  const std::string& dir() const { return m_dir; }
  // dir() + appliance path.
  std::string path(const std::string& appliancePath) const { return m_dir + appliancePath; }

  // Writes a file under the root (directories made), with an optional mode.
  void write(const std::string& appliancePath, const std::string& content, int mode = 0644) const;
  std::string read(const std::string& appliancePath) const;
  bool exists(const std::string& appliancePath) const;

  // The stand-ins' call log, one call a line, with the root's own path
  // taken out, so that lines read exactly as on the appliance.
  std::vector<std::string> calls() const;
  void clearCalls() const;

 private:
  std::string m_dir;
  bool m_process;
};

// A short mono 16-bit PCM WAV file of a square tone, for the music daemon.
void write_wav(const std::string& file, int seconds, int rate = 8000);

// Entries of a folder ("." and ".." aside); -1 when it cannot be read.
// dir_entries("/proc/self/task") is this process's thread count.
int dir_entries(const std::string& dir);
inline int thread_count() { return dir_entries("/proc/self/task"); }

// Polls `cond` every `everyMs` until it holds or `seconds` pass; the
// result says which.
bool wait_for(const std::function<bool()>& cond, double seconds, int everyMs = 20);

// Where the build put things.
std::string binaryDir();
std::string sourceDir();

}  // namespace testsupport
