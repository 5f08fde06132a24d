// The playlist store as the rest of the daemon uses it.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "playlist/playlistTypes.h"

// A playlist is addressed by its title within an application type, or by
// its numeric id. Results: 0 for success, -12 for a failed store operation;
// each operation's own results are given at its implementation.
class ISqlPlaylist {
 public:
  virtual ~ISqlPlaylist() {}

  virtual int addPlaylist(const char* title, mediaType_e type, const char* appType, const char* owner,
                          const char* tag) = 0;
  virtual int delPlaylist(const std::string& title, const std::string& appType) = 0;
  virtual int getSizeOfPlaylistLib(const char* appType) = 0;
  virtual int getPlaylistID(const std::string& title, const std::string& appType) = 0;
  virtual int getPlaylistTitle(int playlistID, std::string& title, const char* appType) = 0;
  virtual int getPlaylistLibElmByIndex(playlistLibElm_s& out, const char* appType, int index) = 0;
  virtual int getPlaylistLibElmByID(int playlistID, playlistLibElm_s& out) = 0;
  virtual int getPlaylistLibElmsByPage(std::vector<playlistLibElm_s>& out, const char* appType, int start,
                                       int count) = 0;
  virtual int getSizeOfPlaylist(int playlistID) = 0;
  virtual int getPlaylistElmByIndex(playlistElm_s& out, int playlistID, int index) = 0;
  virtual int getPlaylistElmByOrder(playlistElm_s& out, int playlistID, int order) = 0;
  virtual int getPlaylistElmsByPage(std::vector<playlistElm_s>& out, int playlistID, int start, int count) = 0;
  virtual int addElmInPlaylist(const char* title, mediaType_e mediaType, contentType_e contentType,
                               const char* appType, const char* content, int position) = 0;
  virtual int delElmInPlaylist(const char* title, const char* appType, uint64_t uuid) = 0;
  virtual int delAllElmInPlaylist(const char* title, const char* appType) = 0;
  virtual int reorderPlaylistElm(int playlistID, int from, int to) = 0;
  virtual int getPlaylistElmByIndex_NOLOCK(playlistElm_s& out, int playlistID, int index) = 0;
  virtual int adjustPlayOrder(int playlistID, int start, int delta) = 0;
};
