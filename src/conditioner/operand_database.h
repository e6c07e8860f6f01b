#pragma once

// Opening and closing the databases of an operation's operands. `function` names the
// operation in messages. Results are 0, or -2 after a push unless said otherwise.

#include <initializer_list>
#include <string_view>

#include "conditioner/region.h"
#include "timeplate/working_database.h"

// Room for the rows that an operation holds at once.
inline constexpr int kOperandBuffers = 8;

// Opens the database of a region that an operation reads.
int openSource(std::string_view function, PVBregion& source);
// Refuses a destination that is one of the sources, else deletes what stands there.
int clearDestination(std::string_view function, const PVBregion& dest,
                     std::initializer_list<const PVBregion*> sources);
// Opens the destination for change; `upgrade` makes a classic one extended.
int openDestination(std::string_view function, PVBregion& dest, bool upgrade);
// Opens what a pass over a whole database works on: the source, or the destination (may be
// null) after it has become a copy of the source. The slot, or -1 after a push.
int openWorking(std::string_view function, const PVBregion& source, const PVBregion* dest,
                WorkingDatabase& target);
// Saves and closes the destination and closes the sources. A failure ends the run.
void closeOperands(std::string_view function, PVBregion& dest,
                   std::initializer_list<PVBregion*> sources);
