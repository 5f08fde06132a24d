#include "manager/playerClasses.h"

#include "backends/airplayPlayer.h"
#include "backends/alsaCommands.h"
#include "backends/alsaPlayer.h"
#include "backends/chromecastPlayer.h"
#include "backends/dlnaPlayer.h"
#include "backends/raopPlayer.h"
#include "foundation/log.h"
#include "foundation/shellRunner.h"
#include "manager/playerManager.h"

namespace {

// A renderer id stands in single quotes on every agent line: an id that
// would leave them gets no player, so nothing it holds reaches a shell.
CPlayer* make_dlna(const renderCacheInfo_s& info, const std::string& renderID, const std::string& title,
                   const std::string& appType, int&) {
  if (!vessord::can_stand_in_single_quotes(renderID)) {
    VLOG(LOG_COLOR_FAIL, "refused render id %s\n", renderID.c_str());
    return nullptr;
  }
  return new CDlnaPlayer(info.type, renderID.c_str(), info.deviceName.c_str(), title.empty() ? nullptr : title.c_str(),
                         appType.empty() ? nullptr : appType.c_str());
}

// The AirPlay player talks to its device over HTTP; no text of the device
// reaches a shell but its own checked URLs.
CPlayer* make_airplay(const renderCacheInfo_s& info, const std::string& renderID, const std::string& title,
                      const std::string& appType, int&) {
  return new CAirplayPlayer(info.type, renderID.c_str(), info.deviceName.c_str(),
                            title.empty() ? nullptr : title.c_str(), appType.empty() ? nullptr : appType.c_str(),
                            info.ip.c_str(), info.port);
}

// A card whose playback device is open elsewhere cannot take a second
// player: -19, as for a player that is busy.
CPlayer* make_alsa(const renderCacheInfo_s& info, const std::string& renderID, const std::string& title,
                   const std::string& appType, int& err) {
  if (CAlsaPlayer::isSndDevBusy(info.card, info.device)) {
    err = -19;
    return nullptr;
  }
  return new CAlsaPlayer(info.type, renderID.c_str(), info.deviceName.c_str(), title.empty() ? nullptr : title.c_str(),
                         appType.empty() ? nullptr : appType.c_str(), info.ip.c_str());
}

// The device script finds a Chromecast by its render id, which stands in
// single quotes on each of its lines.
CPlayer* make_chromecast(const renderCacheInfo_s& info, const std::string& renderID, const std::string& title,
                         const std::string& appType, int&) {
  if (!vessord::can_stand_in_single_quotes(renderID)) {
    VLOG(LOG_COLOR_FAIL, "refused render id %s\n", renderID.c_str());
    return nullptr;
  }
  return new CChromecast(info.type, renderID.c_str(), info.deviceName.c_str(), title.empty() ? nullptr : title.c_str(),
                         appType.empty() ? nullptr : appType.c_str(), info.ip.c_str(), 8009);
}

CPlayer* make_raop(const renderCacheInfo_s& info, const std::string& renderID, const std::string& title,
                  const std::string& appType, int&) {
  return new CRaopPlayer(info.type, renderID.c_str(), info.deviceName.c_str(), title.empty() ? nullptr : title.c_str(),
                         appType.empty() ? nullptr : appType.c_str(), info.encrypted, info.ip.c_str(), info.port);
}

}  // namespace

// One row per back-end, first match wins, in this order: DLNA, AirPlay,
// RAOP, Chromecast, ALSA. A device whose bits match no row gets no player
// ("Unkonw Type"). Rows come with their back-ends.
const std::vector<playerClass_s>& default_player_classes() {
  static const std::vector<playerClass_s> rows = {
      {PLAYER_TYPE_DLNA, "DLNA", &make_dlna},
      {PLAYER_TYPE_AIRPLAY, "AirPlay", &make_airplay},
      {PLAYER_TYPE_RAOP, "RAOP", &make_raop},
      {PLAYER_TYPE_CHROMECAST, "Chromecast", &make_chromecast},
      {PLAYER_TYPE_ALSA, "ALSA", &make_alsa},
  };
  return rows;
}

const outputAttributes_s& default_output_attributes() {
  static const outputAttributes_s hooks = {&vessord::ParseMpdAttr, &vessord::send_mpd_cmd};
  return hooks;
}
