// The version text that heads every reply: the package's version, or the
// firmware's when the package has none. Each returns 0, or 1 on failure;
// `verbose` switches the error lines on.
#pragma once

// "<name> <version>" from the package configuration.
int getTARPOVersion(char* version, int size, const char* name, int verbose);
// "FW <version>.<build number>" from the system configuration.
int getFirmwareVersion(char* version, int size, int verbose);
// The package version, else (with `useFirmware`) the firmware version.
int getVersion(char* version, int size, const char* name, int useFirmware, int verbose);
