#pragma once

// What every tool of the suite does first: look at the environment it was
// installed into and say who it is.

#include <string>
#include <string_view>

// Takes the installation directory (MVKDIR) and the temporary directory
// (MVK_TMPDIR, locked) from the environment, puts the former in front of PATH and
// writes the identity line on standard error. The environment is looked at once
// a process. 0, or -2 after a text on standard error when MVKDIR is not set.
int PBstartProgram(std::string_view name, std::string_view version);

// Empty until PBstartProgram; at most 255 characters.
const std::string& PBinstallDirectory();
// Whether MVK_ENABLE_LOCKS was set at the start.
bool PBlocksEnabled();
