// The playback commands: one parameter list turned into one call on the
// player manager, and one reply. They hold no state and no lock: the manager
// finds the player of `dev` and keeps two commands on it apart.
#pragma once

#include "foundation/xmlParser.h"

class CPlayerManager;

int list_player(CPlayerManager& manager, XMLNode& root, XMLNode& reply);
int play(CPlayerManager& manager, XMLNode& root, XMLNode& reply);
int pause(CPlayerManager& manager, XMLNode& root, XMLNode& reply);
int stop(CPlayerManager& manager, XMLNode& root, XMLNode& reply);
int seek(CPlayerManager& manager, XMLNode& root, XMLNode& reply);
int next(CPlayerManager& manager, XMLNode& root, XMLNode& reply);
int previous(CPlayerManager& manager, XMLNode& root, XMLNode& reply);
int set_track(CPlayerManager& manager, XMLNode& root, XMLNode& reply);
int set_track_by_content(CPlayerManager& manager, XMLNode& root, XMLNode& reply);
int set_slide_show_delay(CPlayerManager& manager, XMLNode& root, XMLNode& reply);
int get_volume(CPlayerManager& manager, XMLNode& root, XMLNode& reply);
int set_volume(CPlayerManager& manager, XMLNode& root, XMLNode& reply);
int get_mute(CPlayerManager& manager, XMLNode& root, XMLNode& reply);
int set_mute(CPlayerManager& manager, XMLNode& root, XMLNode& reply);
int set_playlist(CPlayerManager& manager, XMLNode& root, XMLNode& reply);
int set_play_mode(CPlayerManager& manager, XMLNode& root, XMLNode& reply);
int setAudioSubtitleTrack(CPlayerManager& manager, XMLNode& root, XMLNode& reply);
int set_player_attrs(CPlayerManager& manager, XMLNode& root, XMLNode& reply);
// A root whose status is the player's debug text; an empty reply (which
// ends the daemon) without `dev` or without such a player.
int debug_dump(CPlayerManager& manager, XMLNode& root, XMLNode& reply);
