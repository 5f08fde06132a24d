#include "devices/paramXmlWrap.h"

int ParamXmlWrapper::get_param_node(XMLNode& packet, XMLNode& node, const char* name) {
  // A lookup on the empty node gives the empty node: a missing paramList
  // and a missing parameter end alike.
  node = packet.getChildNode("paramList").getChildNode(name);
  return node.isEmpty() ? -1 : 0;
}

int ParamXmlWrapper::get_param_node_with_check_text(XMLNode& packet, XMLNode& node, const char* name) {
  if (get_param_node(packet, node, name) != 0) return -1;
  return node.getText() ? 0 : -1;
}

XMLNode ParamXmlWrapper::add_child_node(XMLNode& parent, const char* name, const char* text) {
  XMLNode child = parent.addChild(name);
  if (text) child.addText(text);
  return child;
}

void ParamXmlWrapper::create_status_xml_doc(XMLNode& doc, const char* status, const char* cause) {
  doc = XMLNode::createXMLTopNode("root");
  if (status) add_child_node(doc, "status", status);
  if (cause) add_child_node(doc, "cause", cause);
}
