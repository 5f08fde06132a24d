// Parameter reading shared by the playlist command files.
#pragma once

#include <cstdlib>
#include <string>

#include "devices/paramXmlWrap.h"
#include "foundation/xmlParser.h"
#include "playlist/SqlitePlaylist.h"

namespace vessord {
namespace playlistcmd {

// The text of a parameter that has one, else null.
inline const char* param_text(XMLNode& root, const char* name) {
  XMLNode node;
  return ParamXmlWrapper::get_param_node_with_check_text(root, node, name) == 0 ? node.getText() : nullptr;
}

inline int to_int(const char* text) { return static_cast<int>(std::strtol(text, nullptr, 10)); }

inline CSqlitePlaylist& store() { return *CGlobalsSingleton<CSqlitePlaylist>::get(); }

// The reply of a handler that adds nothing behind `status`.
inline int success(XMLNode& reply) {
  ParamXmlWrapper::create_status_xml_doc(reply, "0", nullptr);
  return 0;
}

}  // namespace playlistcmd
}  // namespace vessord
