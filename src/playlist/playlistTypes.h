// The rows of the playlist store as the rest of the daemon sees them.
#pragma once

#include <cstdint>
#include <string>

enum mediaType_e { MEDIA_AUDIO = 0, MEDIA_PHOTO = 1, MEDIA_VIDEO = 2, MEDIA_UNKNOWN = 4 };

enum contentType_e { CONTENT_FILE = 0, CONTENT_OBJECT = 1, CONTENT_DBID = 2, CONTENT_UNKNOWN = 3 };

// One element of a playlist.
struct playlistElm_s {
  int playlistID = 0;
  int orderNum = 0;
  mediaType_e mediaType = MEDIA_UNKNOWN;
  contentType_e contentType = CONTENT_UNKNOWN;
  uint64_t uuid = 0;
  std::string content;
  std::string upnpObjID;
};
typedef playlistElm_s playlistElm_t;

// One playlist of the library.
struct playlistLibElm_s {
  int playlistID = 0;
  int playlistType = 0;
  std::string title;
  std::string appType;
  std::string owner;
  std::string tag;
};
typedef playlistLibElm_s playlistLibElm_t;
