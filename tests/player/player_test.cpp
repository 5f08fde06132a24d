// The player base: construction, time texts, mute and ids.
#include <gtest/gtest.h>

#include <cstring>
#include <string>

#include "playerTestSupport.h"

using playertest::CRecordingPlayer;

TEST(PlayerTime, HoursMinutesSecondsAndTheOneColonReading) {
  EXPECT_EQ(3723, CPlayer::hhmmssToSecond("01:02:03"));
  EXPECT_EQ(59, CPlayer::hhmmssToSecond("00:00:59.750"));  // a fraction is ignored
  // One colon keeps the hours only: the minutes are lost.
  EXPECT_EQ(43200, CPlayer::hhmmssToSecond("12:34"));
  EXPECT_EQ(0, CPlayer::hhmmssToSecond("45"));
  EXPECT_EQ(0, CPlayer::hhmmssToSecond(""));
  EXPECT_EQ(0, CPlayer::hhmmssToSecond(nullptr));
  // Only the first 30 characters are read: the last digit lies beyond them.
  EXPECT_EQ(3600 + 120 + 5, CPlayer::hhmmssToSecond((std::string(23, '0') + "1:02:05").c_str()));
  EXPECT_EQ(3600 + 120 + 0, CPlayer::hhmmssToSecond((std::string(24, '0') + "1:02:05").c_str()));

  std::string text;
  CPlayer::secondToHHMMSS(3723, text);
  EXPECT_EQ("01:02:03", text);
  CPlayer::secondToHHMMSS(0, text);
  EXPECT_EQ("00:00:00", text);
  CPlayer::secondToHHMMSS(100 * 3600 + 59, text);
  EXPECT_EQ("100:00:59", text);
}

TEST(PlayerTime, CurrentTimeAddsTheSeekBase) {
  CRecordingPlayer p;
  EXPECT_EQ("00:00:00", p.getCurrTime());
  p.setCurrTime("00:01:00");
  p.m_seekTime = "00:00:30";
  EXPECT_EQ(90, p.getCurrTimeSecond());
  EXPECT_EQ(60, p.getCurrTimeSecondWithOutSeek());
  EXPECT_EQ("00:01:30", p.getCurrTime());

  p.setCurrTime(3725);
  EXPECT_EQ("01:02:05", p.m_currTime);
  p.setTotalTime(std::string("00:03:41"));
  EXPECT_EQ("00:03:41", p.getTotalTime());
  EXPECT_EQ(221, p.getTotalTimeSecond());
}

TEST(PlayerBase, ConstructorWithoutPlaylistAndItsGetters) {
  CRecordingPlayer p(PLAYER_TYPE_AIRPLAY | PLAYER_TYPE_VIDEO);
  EXPECT_EQ("render-1", p.getRenderID());
  EXPECT_EQ("Living room", p.getDeviceName());
  EXPECT_EQ(nullptr, p.getPlaylistTitle());
  EXPECT_EQ(-1, p.getPlaylistID());
  EXPECT_EQ(PLAYER_TYPE_AIRPLAY | PLAYER_TYPE_VIDEO, p.getPlayerType());
  EXPECT_EQ(NORMAL, p.getPlayMode());
  EXPECT_EQ(STATE_STOP_E, p.getPlayerState());
  EXPECT_EQ(5, p.getSlideShowDelay());
  EXPECT_EQ(0u, p.getPlaylistSize());
  EXPECT_EQ(0, p.getAudioTrack());
  EXPECT_EQ(-1, p.getSubtitleTrack());
  EXPECT_STREQ("", p.getIP());
  p.setIP("192.0.2.7");
  EXPECT_STREQ("192.0.2.7", p.getIP());

  char sub[] = "/share/Public/a.srt";
  p.setExternalSubtitle(sub);
  p.setExternalSubtitle(sub);  // replaces, does not append
  std::string got;
  p.getExternalSubtitle(got);
  EXPECT_EQ("/share/Public/a.srt", got);
  p.setAudioTrack(2);
  p.setSubtitleTrack(1);
  EXPECT_EQ(-1, p.resetAudioAndSubtitle());
  p.getExternalSubtitle(got);
  EXPECT_EQ("", got);
  EXPECT_EQ(0, p.getAudioTrack());
  EXPECT_EQ(-1, p.getSubtitleTrack());
}

TEST(PlayerBase, WordsOfStatesModesAndTracks) {
  EXPECT_STREQ("PAUSE", player_state_word(STATE_PAUSE_E));
  EXPECT_STREQ("UNKNOW", player_state_word(7));
  EXPECT_STREQ("SHUFFLE_REPEAT_ONE", play_mode_word(SHUFFLE_REPEAT_ONE));
  EXPECT_STREQ("UNKNOW", play_mode_word(-1));
  playMode_e m = NORMAL;
  EXPECT_TRUE(play_mode_from_word("REPEAT_ONE", m));
  EXPECT_EQ(REPEAT_ONE, m);
  EXPECT_FALSE(play_mode_from_word("repeat", m));
  EXPECT_EQ(REPEAT_ONE, m);
  EXPECT_STREQ("video", track_type_word(MEDIA_VIDEO));
  EXPECT_STREQ("unknow", track_type_word(3));
  EXPECT_STREQ("dbID", track_content_type_word(CONTENT_DBID));
  EXPECT_STREQ("unknow", track_content_type_word(CONTENT_UNKNOWN));
}

// s_lastVolume is shared by all players of the process, so the cases run
// in one test, in order.
TEST(PlayerMute, LastVolumeIsProcessWide) {
  CRecordingPlayer a, b, deaf;
  deaf.m_bHasVolume = false;

  // Nothing above 0 read yet: unmuting sets volume 0.
  a.m_volume = 0;
  EXPECT_EQ(0, a.setMute(false));
  EXPECT_EQ(0, a.m_volume);
  EXPECT_TRUE(a.isMute());

  a.m_volume = 35;
  EXPECT_FALSE(a.isMute());
  EXPECT_EQ(0, a.setMute(true));
  EXPECT_EQ(0, a.m_volume);
  EXPECT_TRUE(a.isMute());

  // Another player unmutes to the volume that the first one kept.
  b.m_volume = 0;
  EXPECT_EQ(0, b.setMute(false));
  EXPECT_EQ(35, b.m_volume);

  // Without volume control: always muted, and the call gives -1.
  EXPECT_TRUE(deaf.isMute());
  EXPECT_EQ(-1, deaf.setMute(false));
  a.m_volume = 0;
  EXPECT_EQ(0, a.setMute(false));
  EXPECT_EQ(35, a.m_volume);
}

TEST(PlayerIds, RandomStaysBelowTwoBillionAndTidIsKept) {
  for (int i = 0; i < 20; ++i) EXPECT_LT(CPlayer::get_random(), 2000000000u);
  CRecordingPlayer p;
  unsigned tid = p.gen_tid();
  EXPECT_EQ(tid, p.m_tid);
  std::string s;
  p.intToString(-42, s);
  EXPECT_EQ("-42", s);
}
