#pragma once

// One pass over the rows of a pattern that rewrites them in place, in one walk and
// without a search for each row.

#include <functional>
#include <string_view>

#include "pvb/row.h"

enum class RowChange { none, changed, refused };
// What a pass does to a row, which is given back afterwards.
using RowRewrite = std::function<RowChange(PVBrow& row)>;

// Hands the rows of a pattern, those of loop bodies included, to `rewrite` in order and
// writes back the changed ones. False when a row is refused or can't be written, and,
// after a line on standard error that begins with `function`, when one can't be read; the
// rows before it stay rewritten.
bool PVBrewriteRows(int database, int pattern, std::string_view function,
                    const RowRewrite& rewrite);
// The same for the main pattern, then for each subroutine.
bool PVBrewriteAllRows(int database, std::string_view function, const RowRewrite& rewrite);
