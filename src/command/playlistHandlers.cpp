#include "command/playlistHandlers.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "command/playlistParams.h"
#include "foundation/log.h"
#include "manager/playerManager.h"

using namespace vessord::playlistcmd;

namespace {

void add_number(XMLNode& parent, const char* name, int value) {
  char buf[16];
  std::snprintf(buf, sizeof buf, "%d", value);
  ParamXmlWrapper::add_child_node(parent, name, buf);
}

// An empty owner or tag gives a node without text.
void add_text(XMLNode& parent, const char* name, const std::string& text) {
  ParamXmlWrapper::add_child_node(parent, name, text.empty() ? nullptr : text.c_str());
}

// The library listing knows three types and leaves the node out otherwise.
const char* listed_type_word(int type) {
  switch (type) {
    case 0: return "audio";
    case 1: return "photo";
    case 2: return "video";
    default: return nullptr;
  }
}

// A newly made playlist's reply knows more, and says "unknow" for the rest.
const char* created_type_word(int type) {
  switch (type) {
    case 0: return "audio";
    case 1: return "photo";
    case 2: return "video";
    case 3: return "mixed";
    default: return "unknow";
  }
}

const char* media_word(int type) {
  switch (type) {
    case MEDIA_AUDIO: return "audio";
    case MEDIA_PHOTO: return "photo";
    case MEDIA_VIDEO: return "video";
    default: return "UNKNOW";
  }
}

const char* content_word(int type) {
  switch (type) {
    case CONTENT_FILE: return "file";
    case CONTENT_OBJECT: return "object";
    case CONTENT_DBID: return "dbID";
    default: return "UNKNOW";
  }
}

}  // namespace

int media_type_from_word(const char* word) {
  if (!word) return MEDIA_UNKNOWN;
  if (std::strcmp(word, "audio") == 0) return MEDIA_AUDIO;
  if (std::strcmp(word, "photo") == 0) return MEDIA_PHOTO;
  if (std::strcmp(word, "video") == 0) return MEDIA_VIDEO;
  return MEDIA_UNKNOWN;
}

int content_type_from_word(const char* word) {
  if (!word) return CONTENT_UNKNOWN;
  if (std::strcmp(word, "file") == 0) return CONTENT_FILE;
  if (std::strcmp(word, "object") == 0) return CONTENT_OBJECT;
  if (std::strcmp(word, "dbID") == 0) return CONTENT_DBID;
  return CONTENT_UNKNOWN;
}

int size_of_playlist(CPlayerManager&, XMLNode& root, XMLNode& reply) {
  const char* appType = param_text(root, "appType");
  if (!appType) return -3;
  int size = store().getSizeOfPlaylistLib(appType);
  success(reply);
  add_number(reply, "size", size);
  return 0;
}

int list_playlist(CPlayerManager&, XMLNode& root, XMLNode& reply) {
  const char* appType = param_text(root, "appType");
  if (!appType) return -3;
  const char* startText = param_text(root, "start");
  const char* countText = param_text(root, "count");
  int start = 0, count = 0;
  if (startText && countText) {
    start = to_int(startText);
    count = to_int(countText);
  }
  std::vector<playlistLibElm_s> rows;
  if (store().getPlaylistLibElmsByPage(rows, appType, start, count) != 0) {
    VLOG(LOG_COLOR_FAIL, "g_playlistDB.getPlaylistLibElmsByPage() ... fail\n");
    return -11;
  }
  success(reply);
  for (const playlistLibElm_s& row : rows) {
    XMLNode node = ParamXmlWrapper::add_child_node(reply, "playlist", nullptr);
    add_number(node, "playlistID", row.playlistID);
    add_text(node, "title", row.title);
    if (const char* word = listed_type_word(row.playlistType)) ParamXmlWrapper::add_child_node(node, "type", word);
    add_text(node, "appType", row.appType);
    add_text(node, "owner", row.owner);
    add_text(node, "tag", row.tag);
  }
  return 0;
}

int size_of_list_contents(CPlayerManager&, XMLNode& root, XMLNode& reply) {
  const char* title = param_text(root, "playlist");
  const char* appType = param_text(root, "appType");
  if (!title || !appType) {
    VLOG(LOG_COLOR_FAIL, "g_playlistDB.getPlaylistID() ... fial\n");
    return -10;
  }
  int id = store().getPlaylistID(title, appType);
  if (id < 0) return -14;
  int size = store().getSizeOfPlaylist(id);
  success(reply);
  add_number(reply, "size", size);
  return 0;
}

int list_content_of_playlist(CPlayerManager&, XMLNode& root, XMLNode& reply) {
  const char* title = param_text(root, "playlist");
  const char* appType = param_text(root, "appType");
  if (!title || !appType) return -3;
  // Present without text reads as 0 here.
  XMLNode startNode, countNode;
  int start = 0, count = 0;
  if (ParamXmlWrapper::get_param_node(root, startNode, "start") == 0 &&
      ParamXmlWrapper::get_param_node(root, countNode, "count") == 0) {
    start = startNode.getText() ? to_int(startNode.getText()) : 0;
    count = countNode.getText() ? to_int(countNode.getText()) : 0;
  }
  int id = store().getPlaylistID(title, appType);
  if (id < 0) {
    VLOG(LOG_COLOR_FAIL, "g_playlistDB.getPlaylistID() ... fial\n");
    return -10;
  }
  std::vector<playlistElm_s> rows;
  if (store().getPlaylistElmsByPage(rows, id, start, count) != 0) {
    VLOG(LOG_COLOR_FAIL, "g_playlistDB.getPlaylistElmsByPage() ... fial\n");
    return -11;
  }
  success(reply);
  char uuid[24];
  for (const playlistElm_s& row : rows) {
    XMLNode node = ParamXmlWrapper::add_child_node(reply, "item", nullptr);
    add_number(node, "playlistID", row.playlistID);
    std::snprintf(uuid, sizeof uuid, "%llu", static_cast<unsigned long long>(row.uuid));
    ParamXmlWrapper::add_child_node(node, "uuid", uuid);
    ParamXmlWrapper::add_child_node(node, "mediaType", media_word(row.mediaType));
    ParamXmlWrapper::add_child_node(node, "contentType", content_word(row.contentType));
    add_text(node, "content", row.content);
    add_text(node, "upnpID", row.upnpObjID);
    add_number(node, "orderNum", row.orderNum);
  }
  return 0;
}

int create_play_list(CPlayerManager&, XMLNode& root, XMLNode& reply) {
  const char* title = param_text(root, "playlist");
  if (!title) return -3;
  const char* typeWord = param_text(root, "playlistType");
  if (!typeWord) return -3;
  const char* appType = param_text(root, "appType");
  if (!appType) return -3;
  const char* owner = param_text(root, "owner");
  const char* tag = param_text(root, "tag");
  auto type = static_cast<mediaType_e>(media_type_from_word(typeWord));
  if (store().addPlaylist(title, type, appType, owner, tag) != 0) {
    VLOG(LOG_COLOR_FAIL, "g_playlistDB.addPlaylist() ... fail\n");
    return -12;
  }
  // The store answers an insert it could not run like one that ran; a
  // playlist that is not there afterwards was not written.
  int id = store().getPlaylistID(title, appType);
  if (id < 1) {
    VLOG(LOG_COLOR_FAIL, "g_playlistDB.addPlaylist() ... fail\n");
    return -12;
  }
  success(reply);
  playlistLibElm_s row;
  store().getPlaylistLibElmByID(id, row);
  add_number(reply, "playlistID", row.playlistID);
  add_text(reply, "title", row.title);
  ParamXmlWrapper::add_child_node(reply, "type", created_type_word(row.playlistType));
  // The row read back by id carries no application type: it is the one
  // the playlist was found under.
  ParamXmlWrapper::add_child_node(reply, "appType", appType);
  add_text(reply, "owner", row.owner);
  add_text(reply, "tag", row.tag);
  return 0;
}

int add_content(CPlayerManager& manager, XMLNode& root, XMLNode& reply) {
  const char* title = param_text(root, "playlist");
  const char* contentWord = param_text(root, "contentType");
  const char* mediaWord = param_text(root, "mediaType");
  const char* content = param_text(root, "content");
  const char* appType = param_text(root, "appType");
  if (!title || !contentWord || !mediaWord || !content || !appType) return -3;
  const char* orderText = param_text(root, "orderNum");
  int order = orderText ? to_int(orderText) : -1;
  if (store().addElmInPlaylist(title, static_cast<mediaType_e>(media_type_from_word(mediaWord)),
                               static_cast<contentType_e>(content_type_from_word(contentWord)), appType, content,
                               order) != 0) {
    VLOG(LOG_COLOR_FAIL, "g_playlistDB.addElmInPlaylist() ... fail\n");
    return -12;
  }
  manager.addLastItemInPlayQueue(title, order);
  return success(reply);
}

int del_playlist(CPlayerManager& manager, XMLNode& root, XMLNode& reply) {
  const char* title = param_text(root, "playlist");
  const char* appType = param_text(root, "appType");
  if (!title || !appType) return -3;
  // Players of this playlist must not reload it while its rows go.
  manager.setDeleting(true, title, appType);
  int result = 0;
  if (store().delPlaylist(title, appType) != 0) {
    VLOG(LOG_COLOR_FAIL, "g_playlistDB.delPlaylist() ... fail\n");
    result = -12;
  } else {
    manager.delPlaylist(title, appType);
    success(reply);
  }
  manager.setDeleting(false, nullptr, nullptr);
  return result;
}

int del_content(CPlayerManager& manager, XMLNode& root, XMLNode& reply) {
  const char* title = param_text(root, "playlist");
  const char* uuidText = param_text(root, "uuid");
  const char* appType = param_text(root, "appType");
  if (!title || !uuidText || !appType) return -3;
  auto uuid = static_cast<uint64_t>(std::strtoll(uuidText, nullptr, 10));
  if (store().delElmInPlaylist(title, appType, uuid) != 0) {
    VLOG(LOG_COLOR_FAIL, "g_playlistDB.delElmtInPlaylist() ... fail\n");
    return -12;
  }
  manager.delItemFromPlayQueue(title, static_cast<unsigned long>(uuid));
  return success(reply);
}

int reorder_content(CPlayerManager& manager, XMLNode& root, XMLNode& reply) {
  const char* title = param_text(root, "playlist");
  const char* origText = param_text(root, "origOrder");
  const char* newText = param_text(root, "newOrder");
  const char* appType = param_text(root, "appType");
  if (!title || !origText || !newText || !appType) return -3;
  int id = store().getPlaylistID(title, appType);
  if (id < 1) {
    VLOG(LOG_COLOR_FAIL, "The %s is not exist\n", title);
    return -14;
  }
  int from = to_int(origText), to = to_int(newText);
  // A move the store refuses leaves the rows as they were; the queue's own
  // move checks its bounds the same way.
  store().reorderPlaylistElm(id, from, to);
  manager.reorderPlayQueue(title, static_cast<size_t>(from), static_cast<size_t>(to));
  return success(reply);
}
