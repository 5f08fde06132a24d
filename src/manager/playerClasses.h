// Which class drives a device: the manager builds a player with the first
// row whose bit the device's type word carries. Each back-end adds its row
// to the table in playerClasses.cpp, in the order of precedence.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

class CPlayer;
struct renderCacheInfo_s;

// Builds the player of one device from its cache record. `title` and
// `appType` are the playlist to load. Null when no player can be made now;
// `err` may then carry the reason (-19 for a device in use). A constructor
// that throws a std::exception is caught by the manager.
typedef CPlayer* (*playerFactory_t)(const renderCacheInfo_s& info, const std::string& renderID,
                                    const std::string& title, const std::string& appType, int& err);

struct playerClass_s {
  uint32_t bit;      // the type bit that selects this row
  const char* name;  // for the log
  playerFactory_t make;
};
typedef playerClass_s playerClass_t;

// The classes the daemon knows, in the order of precedence.
const std::vector<playerClass_s>& default_player_classes();

// The sound outputs' attribute setting for a device that has no player yet:
// `parse` reads the two numbers of an attribute text (both start at -2;
// nonzero on a bad text) and `send` runs the music daemon's client line.
// Both come from the sound-card back-end; a table without them fails such a
// request as a text that cannot be read.
struct outputAttributes_s {
  int (*parse)(const char* attrs, int* a, int* b);
  int (*send)(const char* command);
};
const outputAttributes_s& default_output_attributes();
