#pragma once

// What is imported and exported: the readers and writers of the tables, each with the
// options of the verb that are its own. A verb begins the description of such an option with
// the format's name, "STIL: ", and may end it with its default, "; else DEFAULT".

#include <span>
#include <string>

// The verb: `pvb formats [--format FORM]`. The exit code.
int runFormats(std::span<const std::string> arguments);
