// The box's own sound outputs: the pieces of an `mpc outputs` line of the
// private music daemon, and the card queries under /proc/asound.
#pragma once

#include <string>

// The kind of output of a "devType:N" word at the start of `text` (after
// blanks): 0 unknown, 1 USB, 2 HDMI, 3 analog. A digit above 3, another
// character or no such word gives 0. `advance` is how far it read; 0 when
// there was no such word, so that the next field is still found.
int Get_Output_DeviceType(const char* text, int* advance);

// The first line of the card's playback status into `buffer`. 0 when a line
// came; 1 for a negative number, a null buffer or no line.
int checkCardStatus(int card, int device, char* buffer, int size);

// One parsed output line.
struct alsaOutput_s {
  int number = 0;
  std::string name;
  std::string uid;
  int devType = 0;
  long sampleRate = 0;
  long sampleRateMode = 0;
  long dsd = 0;
  long dsdMode = 0;
  int card = 0;
  int device = 0;
};
typedef alsaOutput_s alsaOutput_t;

// Reads one output line ("Output N (name) is ... uid:... devType:N
// sampleRate:... sampleRateMode:... dsd:... dsdMode:... hwParam:hw:CARD=c,DEV=d").
// False when a field is missing.
bool parse_output_line(const std::string& line, alsaOutput_s& out);

// The name of the monitor behind an HDMI output, from its uid. False when
// there is none (no query for this uid, or the query failed).
bool hdmi_monitor_name(const std::string& uid, std::string& name);
