// What the sound-card back-end needs before it makes a player: whether the
// card's playback device is free, and a port for the player's own music
// daemon.
#pragma once

#include <string>

namespace vessord {

// Reads up to 256 bytes of /proc/asound/card<card>/pcm<device>p/sub0/status:
// free when the text holds "closed". A file that cannot be read, or a card or
// device that would leave that directory, counts as busy.
bool alsa_snd_dev_busy(const std::string& card, const std::string& device);

// The next port nobody listens on, from the counter that all players share
// (12351..12650, then round again from 12350): each candidate is looked up in
// the TCP table by its line through send_mpd_cmd. After 300 busy candidates
// the answer is 12350 anyway. Safe to call from several threads.
int next_mpd_port();

}  // namespace vessord
