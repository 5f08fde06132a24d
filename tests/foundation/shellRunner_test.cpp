// The shell runner against the shell itself: a harmless value must reach the
// program with exactly the arguments the plain line gives in sh, and a value
// that would make the shell do more must stop the line before anything runs.
#include <gtest/gtest.h>

#include <stdlib.h>

#include <cstdio>
#include <string>
#include <vector>

#include "foundation/nasUtil.h"
#include "foundation/shellRunner.h"
#include "support/testRoot.h"

namespace {

using vessord::BareWords;
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
      {kBare, "word"}, {kBare, ""}, {kBare, "  spaced\\ \t  "}, {kBare, "a\\ b\\;c"},
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
  // Several slots and literal percents (a bare value split as sh splits it); more values than slots is a caller's error.
  ShellLine line("printf '%%s=%s,' '%s' \"%s\" %s", {"a b", "c'\\''d", "e f", "g h"},
                 BareWords::SPLIT);
  std::string out;
  ASSERT_EQ(vessord::shell_read(line, out, 4096), 0);
  EXPECT_EQ(out, "c'd=a b,e f=a b,g=a b,h=a b,");
  EXPECT_EQ(out, run_plain(line.display()));
  EXPECT_FALSE(ShellLine("echo %s", {"a", "b"}).ok());
}

// A line that needs nothing of sh but words, quotes and the redirections
// to /dev/null runs its tool in one exec, with exactly the words sh gives
// it; anything more goes to sh as before.
TEST(ShellRunner, PlainLinesRunTheirToolDirectlyWithTheWordsShGives) {
  const char* const formats[] = {"/usr/bin/printf '<%%s>' '%s' end", "/usr/bin/printf '<%%s>' \"%s\" end",
                                 "/usr/bin/printf '<%%s>' %s end", "/usr/bin/printf '<%%s>' --id=%s 'x%sy' \"\" ''"};
  const std::vector<std::string> values = {"two words",  "",          "'\\''q'\\''",       "a\\ b\\;c",
                                           "it's \\$5", "caf\xc3\xa9", "  spaced\\ \t  ", quoted_name("my (1) [x].mkv")};
  int direct = 0;
  for (const char* f : formats) {
    for (const std::string& v : values) {
      const std::vector<std::string> vs(std::string(f).find("x%sy") != std::string::npos ? 2 : 1, v);
      ShellLine line(f, vs);
      if (!line.ok()) continue;  // a value that cannot stand in that slot
      if (!line.directArgv().empty()) ++direct;
      std::string out;
      ASSERT_EQ(vessord::shell_read(line, out, 4096), 0) << line.display();
      EXPECT_EQ(out, run_plain(line.display())) << line.display();
    }
  }
  EXPECT_GT(direct, 20);

  // Redirections: where each output goes, as sh sends it.
  const char* const redirected[] = {
      "/usr/bin/printf out >/dev/null",          "/bin/ls /no/such/file 2>/dev/null",
      "/bin/ls /no/such/file 2>&1",             "/bin/ls /no/such/file >/dev/null 2>&1",
      "/bin/ls /no/such/file 2>&1 >/dev/null",  "/usr/bin/printf out 1> /dev/null 2>/dev/null",
  };
  for (const char* f : redirected) {
    ShellLine line(f, {});
    EXPECT_FALSE(line.directArgv().empty()) << f;
    std::string out;
    ASSERT_EQ(vessord::shell_read(line, out, 4096), 0) << f;
    EXPECT_EQ(out, run_plain(f)) << f;
    EXPECT_EQ(vessord::shell_system(line), std::system(f)) << f;
  }

  // What only sh can do stays with sh.
  for (const char* f : {"printf x", "/bin/cat /proc/net/tcp | /bin/grep x", "/usr/bin/printf $HOME",
                        "/usr/bin/printf *", "A=b /usr/bin/printf x", "/usr/bin/printf x; /usr/bin/printf y",
                        "/usr/bin/printf x > /tmp/out", "/usr/bin/printf ~", "/usr/bin/printf x &",
                        "/usr/bin/printf \"$x\"", "/usr/bin/printf a\\ b", "/usr/bin/printf 2>&2"})
    EXPECT_TRUE(ShellLine(f, {}).directArgv().empty()) << f;

  // A tool that cannot run directly is left to sh, which answers as ever.
  testsupport::TestRoot scratch(false);
  EXPECT_EQ(127 << 8, vessord::shell_system(ShellLine((scratch.path("/none") + " x 2>/dev/null").c_str(), {})));
  scratch.write("/script", "/usr/bin/printf from-sh\n", 0755);
  std::string out;
  ASSERT_EQ(0, vessord::shell_read(ShellLine(scratch.path("/script").c_str(), {}), out, 64));
  EXPECT_EQ("from-sh", out);
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
      {kBare, "a<" + hit},                {kBare, "a\n" + touch},         {kBare, "#comment"},
      {kBare, "~root"},                   {kBare, "x'y"},                 {kBare, "x\"y"},
      {kBare, "(sub)"},                   {kBare, "a(b"},                 {kBare, "{a,b}"},
      {kBare, "x{1..3}"},                 {kBare, "trailing\\"},         {kBare, "\"$(" + touch + ")\""},
      {kBare, "a\\\n" + touch},          {kBare, std::string("nul\0byte", 8)},
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

// Names that users really give their files, escaped as the daemon escapes a
// path, reach the tool as the one word sh makes of them: `#` and `~` inside a
// word, and `?`/`*`/`[` patterns, which sh matches against the disk.
TEST(ShellRunner, EscapedPathsGiveTheWordShGives) {
  testsupport::TestRoot scratch(false);
  const std::string dir = scratch.path("/Music");
  for (const char* name : {"What's Going On?.mp3", "a1.mp3", "a2.mp3", "b1.mp3", ".hidden.mp3"})
    scratch.write(std::string("/Music/") + name, "x");
  std::vector<std::string> values;
  for (const char* name : {"What's Going On?.mp3", "Gone?.mp3", "AC/DC - Live [1991] {Remaster}.flac",
                           "Don't Stop!.mp3", "50% Off.mp4", "Song #1.mp3", "~Song.mp3", "#1 Hits ~ 2024.mp3",
                           "\xc3\x87" "a va.mkv", "two  blanks.mp3", "*.none", "b1*", "x[1.mp3", "*hidden.mp3"})
    values.push_back(quoted_name((dir + "/" + name).c_str()));
  // Patterns and quotes that no escaping made: sh's reading still holds.
  for (const char* raw : {"/b[1].mp3", "/b[!x]1.mp3", "/'a b'\"c d\"", "/x#y~z", "/a\\?.mp3", "/[ab]2.mp3"})
    values.push_back(dir + raw);
  for (const std::string& v : values) {
    ShellLine line(kBare, {v});
    ASSERT_TRUE(line.ok()) << "refused: [" << v << "]";
    ASSERT_EQ(line.args().size(), 1u) << v;
    std::string viaRunner;
    ASSERT_EQ(vessord::shell_read(line, viaRunner, 4096), 0) << line.display();
    EXPECT_EQ(viaRunner, run_plain(line.display())) << "value [" << v << "]";
  }
  // What the shell matched is what the tool gets.
  EXPECT_EQ(ShellLine(kBare, {dir + "/b?.mp3"}).args(), std::vector<std::string>{dir + "/b1.mp3"});
  std::vector<std::string> words;
  ASSERT_TRUE(vessord::shell_read_value(quoted_name((dir + "/What's Going On?.mp3").c_str()), vessord::ShellSlot::BARE,
                                        &words));
  EXPECT_EQ(words, std::vector<std::string>{dir + "/What's Going On?.mp3"});
}

// A value put bare on a line must stay one argument and never become an
// option: a tab, an unescaped blank, a stray UTF-8 lead byte that swallows a
// tab, or a pattern with several matches would split it; a leading '-'
// would make it an option.
TEST(ShellRunner, ABareValueNeverBecomesMoreArguments) {
  testsupport::TestRoot scratch(false);
  scratch.write("/d/a1.mp3", "x");
  scratch.write("/d/a2.mp3", "x");
  const std::vector<std::string> refused = {
      "x\t--dbID\t1001", "1 OR 1=1", "-e", "--filePath", "'-x'", "\\-x", "a\n",
      quoted_name("/share/\xc3\t--dbID\t1001"), scratch.path("/d/a?.mp3"), " -1x"};
  for (const std::string& v : refused) {
    EXPECT_FALSE(ShellLine("printf '<%%s>' -e %s", {v}).ok()) << "accepted: [" << v << "]";
    EXPECT_FALSE(vessord::can_stand_unquoted(v)) << v;
  }
  // Negative numbers, a dash inside a word, a dash the template wrote, a
  // value that makes no word at all.
  const std::vector<std::pair<std::string, std::string>> kept = {
      {"-1", "<-1>"}, {"x-y", "<x-y>"}, {"", "<>"}, {"  ", "<>"}, {"a\\ -b", "<a -b>"}};
  for (const auto& k : kept) {
    std::string out;
    ASSERT_EQ(vessord::shell_read(ShellLine("printf '<%%s>' %s", {k.first}), out, 4096), 0) << k.first;
    EXPECT_EQ(out, k.second);
  }
  std::string out;
  ASSERT_EQ(vessord::shell_read(ShellLine("printf '<%%s>' -%s", {"-x"}), out, 4096), 0);
  EXPECT_EQ(out, "<--x>");
  // A pattern glued to the template's text would be matched as a whole: no template does that.
  EXPECT_FALSE(ShellLine("printf '<%%s>' x%s", {"*"}).ok());

  // The one line that opts in gets the words sh makes, read the same way.
  const std::string pattern = scratch.path("/d/a?.mp3");
  for (const std::string& v : {std::string("/share/a b  c.mp3"), pattern + " " + pattern, std::string("\t x\\ y ")}) {
    ShellLine line("printf '<%%s>' %s end", {v}, BareWords::SPLIT);
    ASSERT_TRUE(line.ok()) << v;
    ASSERT_EQ(vessord::shell_read(line, out, 4096), 0);
    EXPECT_EQ(out, run_plain(line.display())) << v;
  }
  for (const char* v : {"/share/a -x", "/share/a #x", "/share/a ~x", "/share/a;b"})
    EXPECT_FALSE(ShellLine("printf '<%%s>' %s", {v}, BareWords::SPLIT).ok()) << v;
}

// The runner uses the system's shell as popen and system do, whatever PATH says.
TEST(ShellRunner, RunsTheSystemShellNotOneFromPath) {
  testsupport::TestRoot scratch(false);
  scratch.write("/bin/sh", "#!/bin/sh\ntouch " + scratch.path("/impostor") + "\nexec /bin/sh \"$@\"\n", 0755);
  const char* old = getenv("PATH");
  const std::string saved = old ? old : "";
  setenv("PATH", (scratch.path("/bin") + ":" + saved).c_str(), 1);
  std::string out;
  const int rc = vessord::shell_read(ShellLine("echo %s", {"hi"}), out, 64);
  setenv("PATH", saved.c_str(), 1);
  EXPECT_EQ(rc, 0);
  EXPECT_EQ(out, "hi\n");
  EXPECT_FALSE(scratch.exists("/impostor"));
}

}  // namespace
