#include "manager/playerClasses.h"

#include "manager/playerManager.h"

// One row per back-end, first match wins, in this order: DLNA, AirPlay,
// RAOP, Chromecast, ALSA. A device whose bits match no row gets no player
// ("Unkonw Type"). Rows come with their back-ends.
const std::vector<playerClass_s>& default_player_classes() {
  static const std::vector<playerClass_s> rows = {};
  return rows;
}

const outputAttributes_s& default_output_attributes() {
  static const outputAttributes_s hooks = {nullptr, nullptr};
  return hooks;
}
