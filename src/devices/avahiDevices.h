// Resolved mDNS services, as `avahi-browse -rkpt` prints them (one line a
// service, fields separated by ';'), turned into device nodes.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

#include "foundation/xmlParser.h"

// Kinds of service, the last argument of the parsers.
enum avahiKind_e : uint32_t { AVAHI_AIRPLAY_E = 1, AVAHI_RAOP_E = 2, AVAHI_CHROMECAST_E = 4 };

// `source` 0 reads AirPlay services, 1 Chromecast ones; any other value does
// nothing. The text's last character (the final line feed) is cut before
// parsing. 0, or -1 when no memory could be had.
int gen_avahi_device(uint32_t source, const std::string& text, XMLNode& reply);

// Adds one `device` to `reply` for each usable resolved line of `text`; a
// service seen twice with the same address counts once. -1 for a null or
// empty text, else 0. `text` is cut up in place.
int parseDevices(char* text, XMLNode& reply, uint32_t kind);

// Adds the nodes of one TXT record (`"key=value" "key=value"`) to `device`.
// 1 for a null or empty text, -1 when an id repeats within the record, else
// 0. `txt` is cut up in place.
int parseAvahiTxt(char* txt, XMLNode& device, uint32_t kind);

// Appends the service name `source` with its escapes undone ("\032" a
// blank, "\." a point) to `target`, which holds `targetSize` bytes and is
// zeroed by the caller; what does not fit is dropped. 1 for a null or empty
// source, else 0.
int decodeAvahi(const char* source, char* target, size_t targetSize);
