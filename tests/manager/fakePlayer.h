// A back-end for the manager's tests: records what it is asked, answers
// with settable results, and can hold a caller inside play() (with whatever
// locks the caller holds) until the test lets it go.
#pragma once

#include <condition_variable>
#include <mutex>
#include <stdexcept>
#include <string>
#include <vector>

#include "manager/playerManager.h"
#include "player/player.h"

namespace managertest {

using Strings = std::vector<std::string>;

class CFakePlayer : public CPlayer {
 public:
  CFakePlayer(const renderCacheInfo_s& info, const std::string& renderID, const std::string& title,
              const std::string& appType)
      : CPlayer(info.type, renderID.c_str(), info.deviceName.c_str(), title.c_str(), appType.c_str()) {}

  int play() override {
    record("play");
    std::unique_lock<std::mutex> lk(m_mutex);
    if (m_bGateClosed) {
      m_bInside = true;
      m_cond.notify_all();
      m_cond.wait(lk, [this] { return !m_bGateClosed; });
      m_bInside = false;
      m_events.push_back("play-end");
    }
    m_playerState = STATE_PLAY_E;
    return m_playResult;
  }
  int stop(bool release) override {
    record(release ? "stop(true)" : "stop(false)");
    m_playerState = STATE_STOP_E;
    return 0;
  }
  int pause() override { return record("pause"); }
  int next() override { return record("next") + m_nextResult; }
  int previous() override { return record("previous"); }
  int seek(const char* position) override { return record(std::string("seek ") + (position ? position : "null")); }
  int setAudioAndSubtitle(const char* position, int aid, int sid, const char* ext, const char*, const char*,
                          const char*, const char*, const char*, int autoSub) override {
    record("av pos=" + std::string(position ? position : "null") + " aid=" + std::to_string(aid) +
           " sid=" + std::to_string(sid) + " ext=" + (ext ? ext : "null") + " auto=" + std::to_string(autoSub));
    return m_avResult;
  }
  int setVolume(int volume) override {
    record("setVolume " + std::to_string(volume));
    m_volume = volume;
    return 0;
  }
  int getVolume() override { return m_volume; }
  bool isPlayerExist() override { return m_bExists; }
  int setAttributes(const char* attrs) override {
    record(std::string("attrs ") + attrs);
    return m_attrResult;
  }
  void monitor(bool on) override { record(on ? "monitor(true)" : "monitor(false)"); }
  void debugDump(std::string& out) override { out += "FlowStage:7"; }

  // The gate: while closed, play() waits inside.
  void closeGate() {
    std::lock_guard<std::mutex> lk(m_mutex);
    m_bGateClosed = true;
  }
  void openGate() {
    std::lock_guard<std::mutex> lk(m_mutex);
    m_bGateClosed = false;
    m_cond.notify_all();
  }
  void waitInside() {
    std::unique_lock<std::mutex> lk(m_mutex);
    m_cond.wait(lk, [this] { return m_bInside; });
  }
  Strings takeEvents() {
    std::lock_guard<std::mutex> lk(m_mutex);
    Strings out;
    out.swap(m_events);
    return out;
  }

  using CPlayer::getPlayQueue;
  using CPlayer::setCurrTrackIndex;
  using CPlayer::m_playerState;
  int m_volume = 30;
  int m_playResult = 0;
  int m_nextResult = 0;
  int m_avResult = 0;
  int m_attrResult = 0;
  bool m_bExists = true;

 private:
  int record(const std::string& event) {
    std::lock_guard<std::mutex> lk(m_mutex);
    m_events.push_back(event);
    return 0;
  }
  std::mutex m_mutex;
  std::condition_variable m_cond;
  bool m_bGateClosed = false;
  bool m_bInside = false;
  Strings m_events;
};

inline CPlayer* make_fake(const renderCacheInfo_s& info, const std::string& renderID, const std::string& title,
                          const std::string& appType, int&) {
  return new CFakePlayer(info, renderID, title, appType);
}

// A sound card in use.
inline CPlayer* make_busy(const renderCacheInfo_s&, const std::string&, const std::string&, const std::string&,
                          int& err) {
  err = -19;
  return nullptr;
}

inline CPlayer* make_throwing(const renderCacheInfo_s&, const std::string&, const std::string&, const std::string&,
                              int&) {
  throw std::runtime_error("no device");
}

// DLNA devices get fakes, ALSA ones are busy, Chromecasts fail to build;
// nothing else has a class. No settling time.
inline CPlayerManager* make_manager() {
  return new CPlayerManager({{PLAYER_TYPE_DLNA, "fake", make_fake},
                             {PLAYER_TYPE_ALSA, "busy", make_busy},
                             {PLAYER_TYPE_CHROMECAST, "throwing", make_throwing}},
                            0);
}

inline void list_device(CPlayerManager& m, const char* id, const char* name, unsigned type,
                        const char* ip = "10.0.0.9") {
  m.addRenderInCache(id, name, ip, type, nullptr, 7000, "", "");
}

inline CFakePlayer* fake(CPlayerManager& m, const std::string& id) {
  return static_cast<CFakePlayer*>(m.findCreatedPlayer_(id));
}

}  // namespace managertest
