// The player base: time texts, a player without playlist, mute.
#include <gtest/gtest.h>

#include <string>

#include "playerTestSupport.h"

using playertest::CRecordingPlayer;

TEST(PlayerTime, TextsAndTheSeekBase) {
  EXPECT_EQ(3723, CPlayer::hhmmssToSecond("01:02:03"));
  EXPECT_EQ(43200, CPlayer::hhmmssToSecond("12:34"));  // one colon: the minutes are lost
  EXPECT_EQ(0, CPlayer::hhmmssToSecond("45"));
  EXPECT_EQ(0, CPlayer::hhmmssToSecond(nullptr));
  // Only the first 30 characters are read.
  EXPECT_EQ(3725, CPlayer::hhmmssToSecond((std::string(23, '0') + "1:02:05").c_str()));
  EXPECT_EQ(3720, CPlayer::hhmmssToSecond((std::string(24, '0') + "1:02:05").c_str()));
  std::string text;
  CPlayer::secondToHHMMSS(100 * 3600 + 59, text);
  EXPECT_EQ("100:00:59", text);

  CRecordingPlayer p;
  p.setCurrTime("00:01:00");
  p.m_seekTime = "00:00:30";
  EXPECT_EQ(90, p.getCurrTimeSecond());
  EXPECT_EQ(60, p.getCurrTimeSecondWithOutSeek());
  EXPECT_EQ("00:01:30", p.getCurrTime());
  p.setCurrTime(3725);
  EXPECT_EQ("01:02:05", p.m_currTime);
}

TEST(PlayerBase, WithoutPlaylist) {
  CRecordingPlayer p(PLAYER_TYPE_AIRPLAY);
  EXPECT_EQ(nullptr, p.getPlaylistTitle());
  EXPECT_EQ(-1, p.getPlaylistID());
  EXPECT_EQ(0u, p.getPlaylistSize());
  EXPECT_EQ(-1, p.getSubtitleTrack());
  char sub[] = "/share/Public/a.srt";
  p.setExternalSubtitle(sub);
  p.setExternalSubtitle(sub);  // replaces, does not append
  std::string got;
  p.getExternalSubtitle(got);
  EXPECT_EQ("/share/Public/a.srt", got);
  p.setAudioTrack(2);
  EXPECT_EQ(-1, p.resetAudioAndSubtitle());
  p.getExternalSubtitle(got);
  EXPECT_EQ("", got);
  EXPECT_EQ(0, p.getAudioTrack());
  playMode_e m = NORMAL;
  EXPECT_FALSE(play_mode_from_word("repeat", m));
  EXPECT_TRUE(play_mode_from_word("SHUFFLE_REPEAT_ONE", m));
  EXPECT_EQ(SHUFFLE_REPEAT_ONE, m);
}

// The volume kept before muting is shared by all players of the process.
TEST(PlayerMute, LastVolumeIsProcessWide) {
  CRecordingPlayer a, b, deaf;
  deaf.m_bHasVolume = false;
  a.m_volume = 0;
  EXPECT_EQ(0, a.setMute(false));  // nothing above 0 read yet: volume 0
  EXPECT_EQ(0, a.m_volume);
  EXPECT_TRUE(a.isMute());

  a.m_volume = 35;
  EXPECT_FALSE(a.isMute());
  EXPECT_EQ(0, a.setMute(true));
  EXPECT_EQ(0, a.m_volume);
  b.m_volume = 0;
  EXPECT_EQ(0, b.setMute(false));
  EXPECT_EQ(35, b.m_volume);

  EXPECT_TRUE(deaf.isMute());  // no volume control reads as muted
  EXPECT_EQ(-1, deaf.setMute(false));
}
