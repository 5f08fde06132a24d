// The simulated DLNA renderers behind the agent stand-in: one state file per
// renderer id under ROOT/sim/renderers/, read and written under an exclusive
// lock so that the daemon's loop and its monitors may ask at the same time.
//
// A renderer loads a track (STOPPED at the given position), plays it with
// the position following the wall clock (times `rate`), freezes it on Pause,
// rewinds it on Stop, and stops at the end of the track with the position at
// the end. For a moment after Play it reads TRANSITIONING.
//
// Keys of the state (all optional): state, uri, duration (seconds), posMs,
// sinceMs, transitionMs, transUntilMs, rate, volume, xbmc, busy (the next N
// loads answer Busy), transcode (content URLs go through the transcoder),
// offline (every command answers nothing), positionFail (position replies
// say fail), stopKeepsPosition (Stop leaves the position where it was),
// loadDelayMs (a load answers after that long).
#pragma once

#include <map>
#include <string>

namespace sim {

// What the renderer commands need from the agent stand-in.
struct RendererCall {
  std::string root;
  std::string command;
  std::map<std::string, std::string> opts;
  // Seconds of the named item, or -1 when the library does not know it.
  int duration = -1;
};

// Answers one renderer command on standard output. False when `command` is
// not one of them.
bool renderer_command(const RendererCall& call, int& status);

// True when the renderer is set to have its content transcoded.
bool renderer_transcodes(const std::string& root, const std::string& uuid);

// `brelctl --sim press|set|get UUID ...`, for tests: press pause/stop/play at
// the device, set a key, print a key (the position as computed now).
int renderer_sim(const std::string& root, int argc, char** argv);

}  // namespace sim
