// Static helpers around XMLNode that every command handler uses: reading a
// request's parameters and starting a reply document; and the generators
// that turn the discovery sources' output into the device document (a
// `root` with one `device` child for each device).
#pragma once

#include <string>

#include "foundation/xmlParser.h"

class ParamXmlWrapper {
 public:
  // `node` takes the first child `name` of the first `paramList` of
  // `packet`. 0, or -1 when either is missing.
  static int get_param_node(XMLNode& packet, XMLNode& node, const char* name);
  // As get_param_node, and -1 also when the parameter has no text.
  static int get_param_node_with_check_text(XMLNode& packet, XMLNode& node, const char* name);
  // A new last child `name` of `parent`, with `text` unless it is null.
  static XMLNode add_child_node(XMLNode& parent, const char* name, const char* text);
  // `doc` becomes a new top node `root`, with a child `status` unless
  // `status` is null, then a child `cause` unless `cause` is null.
  static void create_status_xml_doc(XMLNode& doc, const char* status, const char* cause);

  // The agent's list: each `device` that has a `type` is copied one level
  // deep, marked DLNA. -1 when the text is not a `root` document or the
  // media server says it is down, else 0.
  static int dlna_device_doc_gen(const std::string& text, XMLNode& reply);
  // A `root`/`devices` list of AirPlay, RAOP and Chromecast entries. No
  // listing calls it yet; always 0.
  static int air_play_device_doc_gen(const std::string& text, XMLNode& reply);
  // The music daemon's outputs (one "Output N (name) is ..." line each) as
  // ALSA devices. 1 when the music package was restarted and the caller
  // should list again with `attempt` 1 (the analog output alone), else 0.
  static int alsa_device_doc_gen(const std::string& text, XMLNode& reply, int attempt);
  // Adds the allowed and used applications of the front-end's file to the
  // devices of `reply`. A missing file leaves `reply` as it is.
  static void add_media_dash_attr(XMLNode& reply);
};
