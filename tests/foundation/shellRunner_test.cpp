// The shell runner against the shell itself: a harmless value must reach the
// program with exactly the arguments the plain line gives in sh, and a value
// that would make the shell do more must stop the line before anything runs.
#include <gtest/gtest.h>

#include <sys/stat.h>

#include <cstdio>
#include <string>
#include <vector>

#include "foundation/nasUtil.h"
#include "foundation/shellRunner.h"
#include "foundation/sysUtil.h"
#include "support/testRoot.h"

namespace {

using vessord::ShellLine;

// What sh itself prints for the line as it reads.
std::string run_plain(const std::string& line) {
  std::string out;
  FILE* p = popen(line.c_str(), "re");
  if (!p) return "<popen failed>";
  char buf[512];
  size_t n;
  while ((n = fread(buf, 1, sizeof buf, p)) > 0) out.append(buf, n);
  pclose(p);
  return out;
}

std::string quoted_name(const char* name) {
  char out[256];
  EXPECT_EQ(convert_utf8_linux_filepath(name, out, sizeof out), 0);
  return out;
}

struct slotCase_s {
  const char* format;
  std::string value;
};

const char* const kSingle = "printf '<%%s>' '%s' end";
const char* const kDouble = "printf '<%%s>' \"%s\" end";
const char* const kBare = "printf '<%%s>' %s end";

TEST(ShellRunner, HarmlessValuesGiveTheArgumentsOfThePlainLine) {
  const std::vector<slotCase_s> cases = {
      {kSingle, "two words"},
      {kSingle, ""},
      {kSingle, "it'\\''s"},                 // the idiom for a quote
      {kSingle, "'\\''lead and trail'\\''"},
      {kSingle, "$HOME `x` $(y) \"q\" * ? ; | & > < # ~"},  // all plain text here
      {kSingle, "back\\slash"},
      {kSingle, "\xe9\x9b\xbb\xe5\xbd\xb1 1.mkv"},
      {kSingle, "line\nbreak"},
      {kDouble, "two words"},
      {kDouble, ""},
      {kDouble, "it's"},
      {kDouble, "say \\\"hi\\\""},
      {kDouble, "cost \\$5 and \\`x\\`"},
      {kDouble, "back\\\\slash and \\n kept"},
      {kDouble, "* ? ; | & > < # ~"},
      {kDouble, "\xe9\x9b\xbb\xe5\xbd\xb1"},
      {kBare, "word"},
      {kBare, "two words"},
      {kBare, ""},
      {kBare, "  spaced \t out  "},
      {kBare, "a\\ b\\;c"},
      {kBare, quoted_name("my (1) file's [x] {y} = z!.mkv")},
      {kBare, quoted_name("caf\xc3\xa9 \xe9\x9b\xbb\xe5\xbd\xb1,1^2`x`$y\"q\".mp3")},
      {kBare, "a#b"},  // refused or not, never a comment in the middle of a word
  };
  for (const slotCase_s& c : cases) {
    ShellLine line(c.format, {c.value});
    if (!line.ok()) {
      // Refusing is allowed only where a character could matter to sh.
      EXPECT_NE(c.value.find_first_of("#~"), std::string::npos) << "refused: [" << c.value << "]";
      continue;
    }
    std::string viaRunner;
    ASSERT_EQ(vessord::shell_read(line, viaRunner, 4096), 0) << line.display();
    EXPECT_EQ(viaRunner, run_plain(line.display())) << "value [" << c.value << "] line " << line.display();
  }
}

TEST(ShellRunner, SeveralSlotsAndLiteralPercents) {
  ShellLine line("printf '%%s=%s,' '%s' \"%s\" %s", {"a b", "c'\\''d", "e f", "g h"});
  ASSERT_TRUE(line.ok());
  std::string out;
  ASSERT_EQ(vessord::shell_read(line, out, 4096), 0);
  EXPECT_EQ(out, run_plain(line.display()));
  EXPECT_EQ(out, "c'd=a b,e f=a b,g=a b,h=a b,");
  // More values than slots, or fewer, is a caller's error.
  EXPECT_FALSE(ShellLine("echo %s", {"a", "b"}).ok());
}

TEST(ShellRunner, HostileValuesRunNothing) {
  testsupport::TestRoot scratch(false);
  const std::string marker = scratch.dir() + "/ran";
  const std::string hit = scratch.dir() + "/hit";
  const std::string touch = "touch " + hit;
  const std::vector<slotCase_s> cases = {
      {kSingle, "x'; " + touch + "; '"},
      {kSingle, "unbalanced'"},
      {kSingle, "'$(" + touch + ")'"},
      {kDouble, "$(" + touch + ")"},
      {kDouble, "`" + touch + "`"},
      {kDouble, "${HOME}"},
      {kDouble, "x\"; " + touch + "; \""},
      {kDouble, "ends in a backslash\\"},
      {kBare, "$(" + touch + ")"},
      {kBare, "`" + touch + "`"},
      {kBare, "a;" + touch},
      {kBare, "a|" + touch},
      {kBare, "a&" + touch},
      {kBare, "a&&" + touch},
      {kBare, "a>" + hit},
      {kBare, "a<" + hit},
      {kBare, "a\n" + touch},
      {kBare, "*"},
      {kBare, "file?.mkv"},
      {kBare, "[ab]"},
      {kBare, "#comment"},
      {kBare, "~root"},
      {kBare, "x'y"},
      {kBare, "x\"y"},
      {kBare, "$HOME"},
      {kBare, "(sub)"},
      {kBare, "{a,b}"},
      {kBare, "trailing\\"},
      {kBare, std::string("nul\0byte", 8)},
  };
  for (const slotCase_s& c : cases) {
    const std::string format = "touch " + marker + "; " + c.format;
    ShellLine line(format.c_str(), {c.value});
    EXPECT_FALSE(line.ok()) << "accepted: [" << c.value << "]";
    std::string out = "stale";
    EXPECT_EQ(vessord::shell_read(line, out, 4096), -1);
    EXPECT_EQ(out, "");
    EXPECT_EQ(vessord::shell_read_line(line, out, 4096), -1);
    EXPECT_EQ(vessord::shell_system(line), -1);
    vessord::ShellChild child;
    EXPECT_FALSE(child.start(line));
  }
  struct stat st;
  EXPECT_NE(::stat(marker.c_str(), &st), 0) << "a refused line ran";
  EXPECT_NE(::stat(hit.c_str(), &st), 0) << "a value ran a command";
}

}  // namespace
