#pragma once

// A database in tables for people and scripts.

#include <span>
#include <string>

// The verb: `pvb show DB [SECTION] [--rows FROM..TO] [--format FORM]`. The exit code.
int runShow(std::span<const std::string> arguments);
