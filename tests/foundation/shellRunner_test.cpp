// The shell runner against the shell itself: a harmless value must reach the
// program with exactly the arguments the plain line gives in sh, and a value
// that would make the shell do more must stop the line before anything runs.
#include <gtest/gtest.h>

#include <cstdio>
#include <string>
#include <vector>

#include "foundation/nasUtil.h"
#include "foundation/shellRunner.h"
#include "support/testRoot.h"

namespace {

using vessord::ShellLine;

// What sh itself prints for the line as it reads.
std::string run_plain(const std::string& line) {
  std::string out;
  FILE* p = popen(line.c_str(), "re");
  if (!p) return "<popen failed>";
  char buf[512];
  for (size_t n; (n = fread(buf, 1, sizeof buf, p)) > 0;) out.append(buf, n);
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
      {kSingle, "two words"}, {kSingle, ""}, {kSingle, "'\\''lead and trail'\\''"},  // the idiom for a quote
      {kSingle, "$HOME `x` $(y) \"q\" * ? ; | & > < # ~ back\\slash"},           // all plain text here
      {kSingle, "\xe9\x9b\xbb\xe5\xbd\xb1 1.mkv\nline"},
      {kDouble, "two words it's"}, {kDouble, ""}, {kDouble, "say \\\"hi\\\" for \\$5 and \\`x\\`"},
      {kDouble, "back\\\\slash and \\n kept * ? ; | & > < # ~ \xe9\x9b\xbb\xe5\xbd\xb1"},
      {kBare, "word"}, {kBare, ""}, {kBare, "  spaced \t out  "}, {kBare, "a\\ b\\;c"},
      {kBare, quoted_name("my (1) file's [x] {y} = z!.mkv")},
      {kBare, quoted_name("caf\xc3\xa9 \xe9\x9b\xbb\xe5\xbd\xb1,1^2`x`$y\"q\".mp3")},
  };
  for (const slotCase_s& c : cases) {
    ShellLine line(c.format, {c.value});
    ASSERT_TRUE(line.ok()) << "refused: [" << c.value << "]";
    std::string viaRunner;
    ASSERT_EQ(vessord::shell_read(line, viaRunner, 4096), 0) << line.display();
    EXPECT_EQ(viaRunner, run_plain(line.display())) << "value [" << c.value << "] line " << line.display();
  }
  // Several slots and literal percents; more values than slots is a caller's error.
  ShellLine line("printf '%%s=%s,' '%s' \"%s\" %s", {"a b", "c'\\''d", "e f", "g h"});
  std::string out;
  ASSERT_EQ(vessord::shell_read(line, out, 4096), 0);
  EXPECT_EQ(out, "c'd=a b,e f=a b,g=a b,h=a b,");
  EXPECT_EQ(out, run_plain(line.display()));
  EXPECT_FALSE(ShellLine("echo %s", {"a", "b"}).ok());
}

TEST(ShellRunner, HostileValuesRunNothing) {
  testsupport::TestRoot scratch(false);
  const std::string marker = scratch.path("/ran");
  const std::string hit = scratch.path("/hit");
  const std::string touch = "touch " + hit;
  const std::vector<slotCase_s> cases = {
      {kSingle, "x'; " + touch + "; '"},  {kSingle, "unbalanced'"},       {kSingle, "'$(" + touch + ")'"},
      {kDouble, "$(" + touch + ")"},      {kDouble, "`" + touch + "`"},   {kDouble, "${HOME}"},
      {kDouble, "x\"; " + touch + "; \""}, {kDouble, "ends in a backslash\\"},
      {kBare, "$(" + touch + ")"},        {kBare, "`" + touch + "`"},     {kBare, "a;" + touch},
      {kBare, "a|" + touch},              {kBare, "a&&" + touch},         {kBare, "a>" + hit},
      {kBare, "a<" + hit},                {kBare, "a\n" + touch},         {kBare, "*"},
      {kBare, "file?.mkv"},               {kBare, "[ab]"},                {kBare, "#comment"},
      {kBare, "~root"},                   {kBare, "x'y"},                 {kBare, "x\"y"},
      {kBare, "(sub)"},                   {kBare, "{a,b}"},               {kBare, "trailing\\"},
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
  EXPECT_FALSE(scratch.exists("/ran")) << "a refused line ran";
  EXPECT_FALSE(scratch.exists("/hit")) << "a value ran a command";
}

}  // namespace
