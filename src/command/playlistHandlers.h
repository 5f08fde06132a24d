// The playlist commands: the clients' way into the playlist store, with the
// running players kept in step through the manager. They keep no state; the
// one shared thing is the duplicate's scratch file, alive for one command.
#pragma once

#include "foundation/xmlParser.h"

class CPlayerManager;

int size_of_playlist(CPlayerManager& manager, XMLNode& root, XMLNode& reply);
int list_playlist(CPlayerManager& manager, XMLNode& root, XMLNode& reply);
int size_of_list_contents(CPlayerManager& manager, XMLNode& root, XMLNode& reply);
int list_content_of_playlist(CPlayerManager& manager, XMLNode& root, XMLNode& reply);
int create_play_list(CPlayerManager& manager, XMLNode& root, XMLNode& reply);
int add_content(CPlayerManager& manager, XMLNode& root, XMLNode& reply);
int del_playlist(CPlayerManager& manager, XMLNode& root, XMLNode& reply);
int del_content(CPlayerManager& manager, XMLNode& root, XMLNode& reply);
int reorder_content(CPlayerManager& manager, XMLNode& root, XMLNode& reply);

// Bulk work through a parameter file named in `filePath`. A batch add
// removes its file once it reached its loop; a batch delete never does.
int batch_add_playlist(CPlayerManager& manager, XMLNode& root, XMLNode& reply);
int batch_del_playlist(CPlayerManager& manager, XMLNode& root, XMLNode& reply);
// Writes the source's rows as an add file and replays delete + batch add.
int duplicate_playlist(CPlayerManager& manager, XMLNode& root, XMLNode& reply);
// Asks the media agent for a file's object id. Without `filePath` it leaves
// no reply, which ends the daemon.
int get_upnp_object_id(XMLNode& root, XMLNode& reply);

// The name the duplicate writes its add file under.
constexpr const char* kDupPlaylistFile = "/tmp/.dupPlaylist.list";

// The words of the parameters and file attributes; any other word is 4 / 3.
int media_type_from_word(const char* word);
int content_type_from_word(const char* word);
