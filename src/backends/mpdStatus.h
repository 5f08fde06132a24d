// The text of `mpc status` as the ALSA player reads it: the state word and
// the time word of the line that begins with "[".
#pragma once

namespace vessord {

enum MpdState { MPD_PLAYING = 0, MPD_STOPPED = 1, MPD_PAUSED = 2 };

struct MpdStatus {
  MpdState state = MPD_STOPPED;
  int elapsed = 0;  // seconds
  int total = 0;    // seconds; 0 when the time word holds anything odd
};

// `text` may be null or hold anything; it is read up to its terminating 0.
MpdStatus ParseMpdStatus(const char* text);

// Walkers of the status text: blanks and tabs separate words, CR and LF end
// lines. Each returns the position after what it passed; `Get_Next_Word`
// gives the word's start and length (0 at a line's end).
const char* Go_Next_Line(const char* p);
const char* Get_Next_Word(const char* p, const char*& word, int& length);

}  // namespace vessord
