// The speakers step of ListAirplayRender: AirPlay audio (RAOP) services
// browsed by mDNS, listed as devices of Type "Raop" and, when a player can
// stream to them, put into the render cache with the RAOP bit.
#pragma once

#include <cstddef>
#include <string>

#include "foundation/xmlParser.h"

class CPlayerManager;

// Adds one `device` to `reply` for each resolved line of `text`, the
// output of `avahi-browse -rkpt _raop._tcp`; a service seen twice with the
// same address counts once. Returns the number of devices added.
int gen_raop_devices(const std::string& text, XMLNode& reply);

// A speaker the streamer can play: `cn` "pcm" and an `et` other than
// "notSupport" on its `type`.
bool raop_device_playable(const XMLNode& device);

// Browses the speakers, adds them to `reply` and, with a manager, marks the
// RAOP entries of the cache unseen and caches the playable ones.
void list_raop_render(CPlayerManager* manager, XMLNode& reply);
