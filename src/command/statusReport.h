// The status poll: one player's snapshot as a flat reply, and for a video
// the lists of its audio tracks, subtitle tracks and external subtitles.
// Those lists cost the agent three or four runs, so they are kept in 50
// slots keyed by what is being played.
#pragma once

#include <pthread.h>

#include <cstddef>
#include <ctime>
#include <string>

#include "foundation/xmlParser.h"
#include "player/player.h"

class CPlayerManager;

struct cachedStatusInfo_s {
  std::string trackContentType;  // first key: "file", "dbID" or "object"
  std::string trackContent;      // second key: the track's content text
  XMLNode total_aid;             // TotalAudioTrack, or empty
  XMLNode total_sid;             // TotalSubtitleTrack, or empty
  XMLNode total_externalSubtitle;  // TotalExternalSubtitle, or empty
  time_t lastUsed = 0;           // last fill or hit; 0 in a slot never filled
};
typedef cachedStatusInfo_s cachedStatusInfo_t;

constexpr size_t kCachedStatusSlots = 50;
// A slot older than this (seconds since its last fill or hit) is refilled.
constexpr time_t kCachedStatusMaxAge = 119;

// The slots and their one lock. The nodes never leave the slots: a reply
// gets copies, made under the lock, so no document is shared between
// threads.
extern cachedStatusInfo_s g_cachedStatusInfo[kCachedStatusSlots];
extern pthread_mutex_t g_cachedStatusInfoLock;

// Handler of GetPlayerStatus (parameter `dev`): 0, or the manager's code.
int get_player_status(CPlayerManager& manager, XMLNode& root, XMLNode& reply);

// Refills slot `index` from the agent for the track of `status`. 0, or -1
// when no object id was found (the slot then has the new keys and its old
// lists) or a read failed. The caller holds g_cachedStatusInfoLock.
int update_g_cachedStatusInfo(const playerStatus_t& status, int index);

// The status nodes of the reply, behind `status`, in their order.
void add_player_status_nodes(XMLNode& reply, const playerStatus_t& status);
