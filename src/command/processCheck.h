// The single-instance test on the process table.
#pragma once

// True when more than one live process (the caller included) has `name` in
// its command name. Under a test root only processes of that same root
// count, and without one only root-less processes, so that daemons of
// different simulated appliances run side by side. Zombies never count.
bool is_process_already_exist(const char* name);
