// ListRender and ListUnknowRender: the device listings, and the text cache
// that keeps the slow discovery sources from running on every listing.
#pragma once

#include <ctime>
#include <mutex>
#include <string>

#include "foundation/xmlParser.h"

class CPlayerManager;

// The bits of the renderType filter; 0 selects everything.
enum renderMask_e : unsigned {
  RENDER_MASK_DLNA = 0x1,
  RENDER_MASK_AIRPLAY = 0x2,
  RENDER_MASK_CHROMECAST = 0x4,
  RENDER_MASK_ALSA = 0x8,
  RENDER_MASK_KINOVUER = 0x10,
};

// The filter of a renderType text: a text holding "0x" is read whole as a
// hexadecimal number; otherwise words joined by '+' (any case), unknown
// words adding nothing. A null text gives 0.
unsigned parse_render_mask(const char* text);

// The raw output of the agent's list and of the mDNS browse, kept for ten
// seconds, shared by all connection threads.
class CRenderListCache {
 public:
  // Whether a listing at `now` must run the sources again (more than ten
  // seconds since the last time that counted as stale); a stale verdict
  // restarts the clock, whatever the listing then selects.
  bool checkStale(time_t now);

  std::string dlnaOutput();
  void setDlnaOutput(const std::string& text);
  std::string chromecastOutput();
  void setChromecastOutput(const std::string& text);

 private:
  std::mutex m_lock;
  time_t m_lastRefresh = 0;
  bool m_bStale = false;
  std::string m_dlnaOutput;
  std::string m_chromecastOutput;
};

// The one cache of the daemon.
CRenderListCache& render_list_cache();

// The handler of ListRender. Its result is not used: the reply always has
// status 0.
int list_render(CPlayerManager* manager, XMLNode& root, XMLNode& reply);

// The handler of ListUnknowRender: the Chromecast devices, while the media
// package is absent. Always 0.
int list_unknow_render(XMLNode& reply);

// The handler of ListAirplayRender, an extension beside ListRender: the
// AirPlay devices that mDNS finds (ten seconds at most), added to the render
// cache with the AirPlay bit after the AirPlay entries alone were marked
// unseen. Always 0.
int list_airplay_render(CPlayerManager* manager, XMLNode& reply);
