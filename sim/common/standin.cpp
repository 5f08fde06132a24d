#include "common/standin.h"

#include <fcntl.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <cstdint>
#include <fstream>
#include <sstream>

namespace sim {

std::string root(const char* argv0, const char* appliancePath) {
  const char* env = std::getenv("VESSORD_ROOT");
  if (env && *env) return env;
  std::string self = argv0 ? argv0 : "";
  std::string tail = appliancePath ? appliancePath : "";
  if (!tail.empty() && self.size() > tail.size() && self.compare(self.size() - tail.size(), tail.size(), tail) == 0)
    return self.substr(0, self.size() - tail.size());
  return "";
}

std::string path(const std::string& root, const char* appliancePath) { return root + appliancePath; }

static std::string shell_word(const std::string& a) {
  bool plain = !a.empty();
  for (unsigned char c : a)
    if (!(std::isalnum(c) || std::strchr("_./:=@%+,-", c))) plain = false;
  if (plain) return a;
  std::string out = "'";
  for (char c : a) {
    if (c == '\'') out += "'\\''";
    else out += c;
  }
  return out + "'";
}

void log_call(const std::string& root, int argc, char** argv) {
  std::string line;
  for (int i = 0; i < argc; ++i) {
    if (i) line += ' ';
    line += shell_word(argv[i]);
  }
  line += '\n';
  std::string dir = root + "/sim";
  int fd = ::open((dir + "/calls.log").c_str(), O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC, 0644);
  if (fd < 0) return;
  ssize_t w = ::write(fd, line.data(), line.size());
  (void)w;
  ::close(fd);
}

std::string read_file(const std::string& file) {
  std::ifstream in(file, std::ios::binary);
  if (!in) return "";
  std::ostringstream ss;
  ss << in.rdbuf();
  return ss.str();
}

void write_wav(const std::string& file, int seconds, int rate) {
  const uint32_t samples = static_cast<uint32_t>(seconds) * static_cast<uint32_t>(rate);
  const uint32_t bytes = samples * 2;
  std::ofstream out(file, std::ios::binary | std::ios::trunc);
  auto u32 = [&](uint32_t v) { for (int i = 0; i < 4; ++i) out.put(static_cast<char>((v >> (8 * i)) & 0xff)); };
  auto u16 = [&](uint16_t v) { out.put(static_cast<char>(v & 0xff)); out.put(static_cast<char>(v >> 8)); };
  out << "RIFF";
  u32(36 + bytes);
  out << "WAVEfmt ";
  u32(16); u16(1); u16(1); u32(static_cast<uint32_t>(rate)); u32(static_cast<uint32_t>(rate) * 2); u16(2); u16(16);
  out << "data";
  u32(bytes);
  for (uint32_t i = 0; i < samples; ++i) u16(static_cast<uint16_t>((i / 20) % 2 ? 3000 : -3000));
}

}  // namespace sim
