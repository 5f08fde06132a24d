// Static helpers around XMLNode that every command handler uses: reading a
// request's parameters and starting a reply document.
#pragma once

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
};
