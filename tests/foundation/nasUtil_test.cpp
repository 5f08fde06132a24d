// Time conversions, text scanning, path quoting and the subtitle search.
#include <gtest/gtest.h>

#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "foundation/nasUtil.h"
#include "support/testRoot.h"

namespace {

TEST(TimeConversion, TheTwoReadingsDifferAndSecondsBecomeClockText) {
  const struct {
    const char* text;
    int seconds;  // time_convert_to_second
    int hhmmss;   // hhmmss_convert_to_sec
  } rows[] = {
      {"01:02:03", 3723, 3723},
      {"02:03", 7200, 123},                      // one colon: the hours alone
      {"45", 0, 45},                             // no colon
      {"00:01:02.750", 62, 4470},                // a fraction is dropped / one more group
      {"1h2m3s", 0, 3723},                       // any non-digit separates groups
      {"", 0, 0},
      {"                            1:2:3", 3600, 3723},   // only 31 characters are read
  };
  for (const auto& r : rows) {
    EXPECT_EQ(time_convert_to_second(r.text), r.seconds) << r.text;
    EXPECT_EQ(hhmmss_convert_to_sec(r.text), r.hhmmss) << r.text;
  }
  EXPECT_EQ(time_convert_to_second(nullptr), 0);
  EXPECT_EQ(hhmmss_convert_to_sec(nullptr), 0);
  // A huge field from a device: whatever comes out, the arithmetic must not
  // overflow (the sanitizer run checks that).
  (void)time_convert_to_second("99999999999999999999:0:0");

  char out[16];
  EXPECT_EQ(sec_convert_to_hhmmss(3723, out, sizeof out), 8);
  EXPECT_STREQ(out, "01:02:03");
  sec_convert_to_hhmmss(360059, out, sizeof out);
  EXPECT_STREQ(out, "100:00:59");
  EXPECT_EQ(sec_convert_to_hhmmss(3723, out, 6), 8);  // cut, with snprintf's result
  EXPECT_STREQ(out, "01:02");
}

TEST(TextScan, NumbersLinesAndWords) {
  EXPECT_EQ(itoa("007"), 7);
  EXPECT_EQ(itoa("1a"), 10 + 49);  // no test for digits: 'a' counts as 49

  const struct {
    const char* text;
    int result, advance;
  } lines[] = {{"abc\r\n\r\ndef", 0, 7}, {"\n\nx", 0, 2}, {"abc", -1, 3}, {"", -1, 0}};
  for (const auto& l : lines) {
    int adv = -5;
    EXPECT_EQ(Go_Next_Line(l.text, 0, &adv), l.result) << l.text;
    EXPECT_EQ(adv, l.advance) << l.text;
  }

  const char* text = " \tfirst  second\tthird\nnext line";
  std::vector<std::string> words;
  char word[16];
  int pos = 0, adv = 0;
  for (; Get_Next_Word(text + pos, 0, word, sizeof word, &adv) == 0; pos += adv) words.push_back(word);
  EXPECT_EQ(words, (std::vector<std::string>{"first", "second", "third"}));
  EXPECT_EQ(text[pos + adv], '\n');
  EXPECT_STREQ(word, "");
  EXPECT_EQ(Get_Next_Word("   \r\n", 0, word, sizeof word, &adv), -1);
  EXPECT_EQ(adv, 3);
  // The word and its terminating zero must fit.
  EXPECT_EQ(Get_Next_Word("abc d", 0, word, 4, &adv), 0);
  EXPECT_STREQ(word, "abc");
  EXPECT_EQ(Get_Next_Word("abcd e", 0, word, 4, &adv), -1);
  EXPECT_STREQ(word, "");
}

TEST(PathQuoting, EscapesTheShellSetPassesMultibyteTextAndKeepsToItsBuffer) {
  const struct {
    const char* in;
    const char* first;   // convert_utf8_linux_filepath
    const char* second;  // convert_utf8_linux_filepath_2, where it differs
  } cases[] = {
      {"my movie.mkv", "my\\ movie.mkv", nullptr},
      {"a!b\"c$d&e'f(g)h,i;j=k[l]m^n`o{p}q",
       "a\\!b\\\"c\\$d\\&e\\'f\\(g\\)h\\,i\\;j\\=k\\[l\\]m\\^n\\`o\\{p\\}q", nullptr},
      {"back\\slash", "back\\slash", "back\\\\slash"},
      {"a*b?c|d<e>f#g~h%i", "a*b?c|d<e>f#g~h%i", nullptr},  // outside the set
      {"\xe9\x9b\xbb\xe5\xbd\xb1 1.mkv", "\xe9\x9b\xbb\xe5\xbd\xb1\\ 1.mkv", nullptr},
      {"caf\xc3\xa9 (2).mp3", "caf\xc3\xa9\\ \\(2\\).mp3", nullptr},
      {"\xf0\x9f\x8e\xb5;", "\xf0\x9f\x8e\xb5\\;", nullptr},
      {"\xc3( x", "\xc3(\\ x", nullptr},               // a stray lead byte swallows what follows
      {"\xf8 ;;; x", "\xf8 ;;\\;\\ x", nullptr},       // four bytes in all
      {"ab\xf0", "ab\xf0", nullptr},                   // stops at the input's end
  };
  for (const auto& c : cases) {
    char out[128];
    ASSERT_EQ(convert_utf8_linux_filepath(c.in, out, sizeof out), 0) << c.in;
    EXPECT_STREQ(out, c.first) << c.in;
    ASSERT_EQ(convert_utf8_linux_filepath_2(c.in, out, sizeof out), 0) << c.in;
    EXPECT_STREQ(out, c.second ? c.second : c.first) << c.in;
  }

  char out[8];
  std::memset(out, 'Z', sizeof out);
  EXPECT_EQ(convert_utf8_linux_filepath("12345678", out, sizeof out), -1);  // input as long as the buffer
  EXPECT_EQ(std::string(out, sizeof out), "ZZZZZZZZ");
  // Short enough as input, too long once quoted: refused, no half-quoted text left.
  EXPECT_EQ(convert_utf8_linux_filepath("a b c d", out, sizeof out), -1);
  EXPECT_STREQ(out, "");
  EXPECT_EQ(convert_utf8_linux_filepath("a b", out, 5), 0);  // "a\ b" and its zero just fit
  EXPECT_STREQ(out, "a\\ b");
  EXPECT_EQ(convert_utf8_linux_filepath("a b", out, 4), -1);
}

// In a simulated appliance, whose ini reader answers the feature switch from
// Tovud.conf.
TEST(SubtitleSearch, FeatureSwitchNameRulesCaseAndBadPaths) {
  testsupport::TestRoot root;
  char found[512];
  const auto find = [&](const std::string& video) {
    std::snprintf(found, sizeof found, "unchanged");
    return is_default_subtitle_found(video.c_str(), found, sizeof found);
  };
  root.write("/mnt/ext/opt/KIVO/etc/config/Tovud.conf", "default_subtitle = 0\n");
  root.clearCalls();
  EXPECT_EQ(find(root.path("/share/Public/nowhere/movie.mkv")), 0);  // off: no directory looked at
  EXPECT_EQ(root.calls(), std::vector<std::string>{
                              "/sbin/rakcfg -f /mnt/ext/opt/KIVO/etc/config/Tovud.conf -d 0 '' default_subtitle"});

  root.write("/mnt/ext/opt/KIVO/etc/config/Tovud.conf", "default_subtitle = 1\n");
  const struct {
    const char* dir;
    std::vector<std::string> files;
    const char* entry;  // the name found, or null
  } cases[] = {
      {"exact", {"movie.srt"}, "movie.srt"},
      {"upper-ext", {"movie.SRT"}, "movie.SRT"},
      {"upper-name", {"MOVIE.srt"}, nullptr},  // the name compares with case
      {"tagged", {"movie.eng.srt"}, "movie.eng.srt"},
      {"tagged-ass", {"movie.zh-TW.ASS"}, "movie.zh-TW.ASS"},
      {"longer-name", {"movie2.srt"}, nullptr},  // no tag before the extension
      {"other-ext", {"movie.txt", "movie.srt.bak", "other.srt", "movie.srtx"}, nullptr},
  };
  for (const auto& c : cases) {
    const std::string dir = "/share/Public/" + std::string(c.dir) + "/";
    for (const std::string& f : c.files) root.write(dir + f, "");
    EXPECT_EQ(find(root.path(dir) + "movie.mkv"), c.entry ? 1 : -1) << c.dir;
    EXPECT_EQ(found, c.entry ? root.path(dir) + c.entry : "unchanged") << c.dir;
  }
  EXPECT_EQ(find("movie.mkv"), -1);                             // no slash
  EXPECT_EQ(find(root.path("/share/Public/exact/movie")), -1);  // no point in the file name
  EXPECT_EQ(find(root.path("/share/Public/missing/movie.mkv")), -1);
}

}  // namespace
