#pragma once

// From the command line to the queue. Parameters come as one parameter file or
// as `name=value` arguments; they describe one operation themselves or name an
// operation file that describes any number.

#include <span>

inline constexpr const char* kProgramTitle = "PVBConditioner Conditioner";
inline constexpr const char* kProgramVersion = "Version 2019.1.0";

// Reads the parameters (`arguments` without the program's name), opens the
// report, and fills the queue, the regions and the lists of `run`. 0, or -2
// after pushing the reason; no database has been touched either way.
int initParams(std::span<const char* const> arguments);
