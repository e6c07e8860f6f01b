#pragma once

// The verb that runs the checker and prints what it found.

#include <span>
#include <string>

// `pvb check DB [--full] [--limit N] [--errors-only] [--store] [--format FORM]`. The exit
// code: 0 nothing found, 1 errors or warnings, 2 could not check.
int runCheck(std::span<const std::string> arguments);
