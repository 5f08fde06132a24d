// Time conversions, text scanning, path quoting and the subtitle search.
#include <gtest/gtest.h>

#include <unistd.h>

#include <cstring>
#include <string>
#include <vector>

#include "foundation/nasUtil.h"
#include "support/testRoot.h"

namespace {

TEST(TimeConversion, TheTwoReadingsDiffer) {
  struct row_s {
    const char* text;
    int seconds;  // time_convert_to_second
    int hhmmss;   // hhmmss_convert_to_sec
  };
  const row_s rows[] = {
      {"01:02:03", 3723, 3723},
      {"02:03", 7200, 123},       // one colon: hours alone / minutes and seconds
      {"45", 0, 45},              // no colon
      {"00:01:02.750", 62, 4470},  // a fraction is dropped / is one more group
      {"10:00:00", 36000, 36000},
      {"", 0, 0},
      {"1h2m3s", 0, 3723},        // any non-digit separates groups
      {"::5", 5, 5},
  };
  for (const row_s& r : rows) {
    EXPECT_EQ(time_convert_to_second(r.text), r.seconds) << r.text;
    EXPECT_EQ(hhmmss_convert_to_sec(r.text), r.hhmmss) << r.text;
  }
  EXPECT_EQ(time_convert_to_second(nullptr), 0);
  EXPECT_EQ(hhmmss_convert_to_sec(nullptr), 0);
  // Only the first 31 characters are read.
  EXPECT_EQ(time_convert_to_second("                             1:2:3"), 3600);
  EXPECT_EQ(time_convert_to_second("                         1:2:3"), 3723);
}

TEST(TimeConversion, SecondsToClockText) {
  char out[16];
  EXPECT_EQ(sec_convert_to_hhmmss(3723, out, sizeof out), 8);
  EXPECT_STREQ(out, "01:02:03");
  sec_convert_to_hhmmss(0, out, sizeof out);
  EXPECT_STREQ(out, "00:00:00");
  sec_convert_to_hhmmss(360059, out, sizeof out);
  EXPECT_STREQ(out, "100:00:59");
  // Cut to the buffer, with snprintf's result.
  char small[6];
  EXPECT_EQ(sec_convert_to_hhmmss(3723, small, sizeof small), 8);
  EXPECT_STREQ(small, "01:02");
}

TEST(TextScan, ItoaAddsDigitsByPlace) {
  EXPECT_EQ(itoa("123"), 123);
  EXPECT_EQ(itoa("007"), 7);
  EXPECT_EQ(itoa(""), 0);
  EXPECT_EQ(itoa(nullptr), 0);
  // No test for digits: 'a' counts as 49.
  EXPECT_EQ(itoa("1a"), 10 + 49);
}

TEST(TextScan, GoNextLineSkipsARunOfLineEnds) {
  int adv = -5;
  EXPECT_EQ(Go_Next_Line("abc\r\n\r\ndef", 0, &adv), 0);
  EXPECT_EQ(adv, 7);
  EXPECT_EQ(Go_Next_Line("abc\n", 0, &adv), 0);
  EXPECT_EQ(adv, 4);
  EXPECT_EQ(Go_Next_Line("abc", 0, &adv), -1);
  EXPECT_EQ(adv, 3);
  EXPECT_EQ(Go_Next_Line("", 0, &adv), -1);
  EXPECT_EQ(adv, 0);
  EXPECT_EQ(Go_Next_Line("\n\nx", 0, &adv), 0);
  EXPECT_EQ(adv, 2);
}

TEST(TextScan, GetNextWordWalksALine) {
  const char* text = " \tfirst  second\tthird\nnext line";
  std::vector<std::string> words;
  char word[16];
  int pos = 0, adv = 0;
  while (Get_Next_Word(text + pos, 0, word, sizeof word, &adv) == 0) {
    words.push_back(word);
    pos += adv;
  }
  EXPECT_EQ(words, (std::vector<std::string>{"first", "second", "third"}));
  EXPECT_EQ(text[pos + adv], '\n');
  EXPECT_STREQ(word, "");

  EXPECT_EQ(Get_Next_Word("", 0, word, sizeof word, &adv), -1);
  EXPECT_EQ(adv, 0);
  EXPECT_EQ(Get_Next_Word("   \r\n", 0, word, sizeof word, &adv), -1);
  EXPECT_EQ(adv, 3);
  // The word and its terminating zero must fit.
  char four[4];
  EXPECT_EQ(Get_Next_Word("abc d", 0, four, sizeof four, &adv), 0);
  EXPECT_STREQ(four, "abc");
  EXPECT_EQ(Get_Next_Word("abcd e", 0, four, sizeof four, &adv), -1);
  EXPECT_STREQ(four, "");
}

struct quoteCase_s {
  const char* in;
  const char* first;   // convert_utf8_linux_filepath
  const char* second;  // convert_utf8_linux_filepath_2
};

TEST(PathQuoting, EscapesTheShellSetAndPassesMultibyteText) {
  const quoteCase_s cases[] = {
      {"my movie.mkv", "my\\ movie.mkv", "my\\ movie.mkv"},
      {"a!b\"c$d&e'f(g)h,i;j=k[l]m^n`o{p}q", "a\\!b\\\"c\\$d\\&e\\'f\\(g\\)h\\,i\\;j\\=k\\[l\\]m\\^n\\`o\\{p\\}q",
       "a\\!b\\\"c\\$d\\&e\\'f\\(g\\)h\\,i\\;j\\=k\\[l\\]m\\^n\\`o\\{p\\}q"},
      {"back\\slash", "back\\slash", "back\\\\slash"},
      // Characters outside the set stay as they are.
      {"a*b?c|d<e>f#g~h%i", "a*b?c|d<e>f#g~h%i", "a*b?c|d<e>f#g~h%i"},
      {"\xe9\x9b\xbb\xe5\xbd\xb1 1.mkv", "\xe9\x9b\xbb\xe5\xbd\xb1\\ 1.mkv", "\xe9\x9b\xbb\xe5\xbd\xb1\\ 1.mkv"},
      {"caf\xc3\xa9 (2).mp3", "caf\xc3\xa9\\ \\(2\\).mp3", "caf\xc3\xa9\\ \\(2\\).mp3"},
      {"\xf0\x9f\x8e\xb5;", "\xf0\x9f\x8e\xb5\\;", "\xf0\x9f\x8e\xb5\\;"},
      // A stray lead byte swallows what follows it, unescaped.
      {"\xc3( x", "\xc3(\\ x", "\xc3(\\ x"},
      {"\xf8 ;;; x", "\xf8 ;;\\;\\ x", "\xf8 ;;\\;\\ x"},  // four bytes in all
      {"", "", ""},
  };
  for (const quoteCase_s& c : cases) {
    char out[128];
    ASSERT_EQ(convert_utf8_linux_filepath(c.in, out, sizeof out), 0) << c.in;
    EXPECT_STREQ(out, c.first) << c.in;
    ASSERT_EQ(convert_utf8_linux_filepath_2(c.in, out, sizeof out), 0) << c.in;
    EXPECT_STREQ(out, c.second) << c.in;
  }
}

TEST(PathQuoting, NeverReadsOrWritesPastItsBuffers) {
  // A lead byte at the very end: the copy stops at the input's end. The
  // input sits at the end of a heap block so that a sanitizer sees any
  // read past it.
  const char tail[] = "ab\xf0";
  std::vector<char> in(tail, tail + sizeof tail);
  char out[16];
  ASSERT_EQ(convert_utf8_linux_filepath(in.data(), out, sizeof out), 0);
  EXPECT_STREQ(out, "ab\xf0");

  // Input as long as the buffer: refused, output untouched.
  char guard[8];
  std::memset(guard, 'Z', sizeof guard);
  EXPECT_EQ(convert_utf8_linux_filepath("12345678", guard, sizeof guard), -1);
  EXPECT_EQ(std::string(guard, sizeof guard), "ZZZZZZZZ");

  // Short enough as input, too long once quoted: refused, nothing past the
  // buffer written, no half-quoted text left behind.
  std::vector<char> out2(12);
  const int size2 = static_cast<int>(out2.size());
  EXPECT_EQ(convert_utf8_linux_filepath("a b c d e f", out2.data(), size2), -1);
  EXPECT_STREQ(out2.data(), "");
  EXPECT_EQ(convert_utf8_linux_filepath_2(std::string(5, '\\').c_str(), out2.data(), size2), 0);
  EXPECT_EQ(std::string(out2.data()), std::string(10, '\\'));
  EXPECT_EQ(convert_utf8_linux_filepath_2(std::string(6, '\\').c_str(), out2.data(), size2), -1);
  // Exactly fitting: "a\ b" and its zero in five bytes.
  char five[5];
  EXPECT_EQ(convert_utf8_linux_filepath("a b", five, sizeof five), 0);
  EXPECT_STREQ(five, "a\\ b");
  EXPECT_EQ(convert_utf8_linux_filepath("a b", five, 4), -1);
}

// The subtitle search in a simulated appliance, with a small rakcfg script
// that answers the feature switch and records how it was called.
class SubtitleSearch : public ::testing::Test {
 protected:
  void setSwitch(const std::string& value) {
    // Replace whatever lies there (a stand-in may be linked in): writing
    // through a link would change the stand-in itself.
    ::unlink(root.path("/sbin/rakcfg").c_str());
    root.write("/sbin/rakcfg",
               "#!/bin/sh\nprintf '<%s>' \"$@\" > " + root.path("/tmp/rakcfg.args") + "\nprintf '" + value + "'\n",
               0755);
  }
  // A directory of the share with these files in it; returns its path.
  std::string dirWith(const std::string& name, const std::vector<std::string>& files) {
    const std::string dir = "/share/Public/" + name + "/";
    root.write(dir + "movie.mkv", "");
    for (const std::string& f : files) root.write(dir + f, "");
    return root.path(dir);
  }
  int find(const std::string& video, std::string& found) {
    char out[512] = "unchanged";
    int rc = is_default_subtitle_found(video.c_str(), out, sizeof out);
    found = out;
    return rc;
  }
  testsupport::TestRoot root;
};

TEST_F(SubtitleSearch, SwitchedOffOrUnreadable) {
  std::string found;
  setSwitch("0\n");
  // Off: not even the directory is looked at (it does not exist).
  EXPECT_EQ(find(root.path("/share/Public/nowhere/movie.mkv"), found), 0);
  EXPECT_EQ(root.read("/tmp/rakcfg.args"),
            "<-f><" + root.path("/mnt/ext/opt/KIVO/etc/config/Tovud.conf") + "><-d><0><><default_subtitle>");
  setSwitch("");
  EXPECT_EQ(find(root.path("/share/Public/nowhere/movie.mkv"), found), -1);
  ::unlink(root.path("/sbin/rakcfg").c_str());
  EXPECT_EQ(find(root.path("/share/Public/nowhere/movie.mkv"), found), -1);
}

TEST_F(SubtitleSearch, NameRulesAndCase) {
  setSwitch("1\n");
  std::string found;
  struct case_s {
    const char* dir;
    std::vector<std::string> files;
    int result;
    const char* entry;  // the name found, when found
  };
  const case_s cases[] = {
      {"exact", {"movie.srt"}, 1, "movie.srt"},
      {"upper-ext", {"movie.SRT"}, 1, "movie.SRT"},
      {"upper-name", {"MOVIE.srt"}, -1, nullptr},  // the name compares with case
      {"tagged", {"movie.eng.srt"}, 1, "movie.eng.srt"},
      {"ass", {"movie.ass"}, 1, "movie.ass"},
      {"tagged-ass", {"movie.zh-TW.ASS"}, 1, "movie.zh-TW.ASS"},
      {"longer-name", {"movie2.srt"}, -1, nullptr},  // no tag before the extension
      {"other-ext", {"movie.txt", "movie.srt.bak", "other.srt", "movie.srtx"}, -1, nullptr},
  };
  for (const case_s& c : cases) {
    const std::string dir = dirWith(c.dir, c.files);
    EXPECT_EQ(find(dir + "movie.mkv", found), c.result) << c.dir;
    if (c.entry) {
      EXPECT_EQ(found, dir + c.entry) << c.dir;
    }
  }
}

TEST_F(SubtitleSearch, BadVideoPaths) {
  setSwitch("1\n");
  std::string found;
  EXPECT_EQ(find("movie.mkv", found), -1);  // no slash
  const std::string dir = dirWith("nodot", {"movie.srt"});
  EXPECT_EQ(find(dir + "movie", found), -1);  // no point in the file name
  EXPECT_EQ(find(root.path("/share/Public/missing/movie.mkv"), found), -1);
  EXPECT_EQ(find(dir + std::string(300, 'x') + ".mkv", found), -1);  // name too long to split
}

}  // namespace
