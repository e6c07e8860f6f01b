#pragma once

// The equation data of two regions on its way into a destination: what concatenate,
// insert and merge share. `function` names the operation in messages. The regions'
// databases are open.

#include <string_view>

#include "conditioner/region.h"

// Loads the sheets of both regions, each once, and compares them. 0, or -2 after a post.
int categorizeSheets(PVBregion& region1, PVBregion& region2, eqSheetCategories& categories);
// 0, or -2 after a push for sheets that are neither identical nor disjoint.
int refuseMixedSheets(std::string_view function, const eqSheetCategories& categories,
                      const PVBregion& region1, const PVBregion& region2);
// Fills the destination by `state` as eqInspect gives it, `categories` being needed when
// both have equations. 0, or -2 after a push.
int mergeEquations(std::string_view function, const PVBregion& dest, const PVBregion& region1,
                   const PVBregion& region2, int state, const eqSheetCategories& categories);
// The message that tells that equations couldn't be merged: always -2.
int failEquations(std::string_view function, const PVBregion& region1, const PVBregion& region2);
