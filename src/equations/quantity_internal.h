#pragma once

// What the sources of quantities and expressions share: exact fractions, and words for
// messages.

#include "equations/quantity.h"

// A name from a text as a message shows it. Messages are kept and copied, names may be
// as long as a file.
std::string shownName(std::string_view name);

// Holds the product of any two words of a fraction, and the sum of two such products.
using Wide = __int128;

// Makes `out` the fraction in lowest terms; its unit stays. False, with `out` as it was,
// when 64 bits don't hold it. Needs a denominator other than 0.
bool setFraction(Quantity& out, Wide numerator, Wide denominator);
// The largest whole number not above an exact value plus `halves` / 2.
std::int64_t floorOfFraction(const Quantity& value, int halves);
