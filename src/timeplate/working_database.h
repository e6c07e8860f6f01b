#pragma once

// The database that a pass over a whole database works on: the source itself, or a
// destination that the source is copied over first.

#include <cstdio>
#include <optional>
#include <string>
#include <string_view>

// Copies the source over the destination, if there is one, telling `report`, and opens what
// is to be changed: its slot, or -1 after a push under the function's name (the source
// doesn't exist, the copy or the opening fails).
int openWorkingDatabase(std::string_view function, const std::string& source,
                        const std::optional<std::string>& destination, FILE* report);
// Opens a database for change: its slot, or -1.
int openInPlace(const std::string& path);
// Pushes that a working database can't be opened. -1.
int refuseWorkingDatabase(std::string_view function, const std::string& path);
