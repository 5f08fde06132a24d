// The two free functions of the sound-card back-end that the player manager
// also uses for a listed card without a player.
#pragma once

namespace vessord {

// Runs a finished music-daemon client line and waits for it to end:
// system() semantics (-1 when nothing ran, else the wait status, so the
// command's exit status is readable). A line that ends in " &> /dev/null"
// discards both outputs and still runs in the foreground; the tools see the
// same arguments. The child is reaped here, never by a SIGCHLD disposition.
int send_mpd_cmd(const char* command);

// Reads "key=value,key=value" output attributes: SAMPLERATE ("Auto" -> -1, a
// number, -2 under 1) and DSDPASS ("Enable" 1, "Disable" 0, "Auto" -1,
// other -2), keys and words in any case. Both start at -2. -1 for null
// pointers or an empty text, else 0.
int ParseMpdAttr(const char* text, int* sampleRate, int* dsdPass);

}  // namespace vessord
