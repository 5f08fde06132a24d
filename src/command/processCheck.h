// The single-instance test on the process table.
#pragma once

// True when more than one live process (the caller included) has `name` in
// its command name. Zombies never count. Under a test root only processes
// started with that same root count, so that daemons of different
// simulated appliances run side by side; without one, every process counts.
bool is_process_already_exist(const char* name);
