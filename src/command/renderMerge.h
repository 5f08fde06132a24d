// From a finished device document to the manager's render cache: which
// devices may be played, under which type bits, port and card.
#pragma once

#include <string>
#include <vector>

#include "foundation/xmlParser.h"

class CPlayerManager;

// One device as the render cache takes it.
struct renderEntry_s {
  std::string renderID;
  std::string deviceName;
  std::string ip;
  unsigned type = 0;
  bool hasEncryption = false;  // only a RAOP device gives its word
  std::string encryption;
  int port = 7000;
  std::string card;
  std::string device;
};
typedef renderEntry_s renderEntry_t;

// The type bits of one `device` node (its `Type`, `Subtype`, the `protocol`
// of its `type` and the words of that text); 0 when it is of no known kind.
unsigned render_type_of(const XMLNode& device);

// The devices of `reply` that may enter the render cache, in order.
std::vector<renderEntry_s> render_entries_of(const XMLNode& reply);

// Under the manager's write lock: every entry is marked unseen, the
// devices of `reply` are added, then the front-end's attributes are laid
// over `reply`. Without a manager only the attributes are added.
void merge_render_list(CPlayerManager* manager, XMLNode& reply);
