#pragma once

// Gives the timeplates of a database new names, as the settings of the rename say (see
// rename_settings.h), and leaves the old name on each as a comment. All names become new
// or none: a clash ends the operation, and nothing is saved.

#include <cstdio>
#include <optional>
#include <string>

// `source` and `destination` are the paths of databases; the work is done in the
// destination if there is one, which the source is copied over first. 0, or -2 after a
// push; no source is a push and 0.
int timeplateRename(const std::optional<std::string>& source,
                    const std::optional<std::string>& destination, FILE* report);
