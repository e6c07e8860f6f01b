#pragma once

// Shape texts of an operation file, "[0ns:C,20ns:N]": the events of an added track.

#include <functional>
#include <string_view>

#include "base/time.h"

enum class ShapeResult { ok, badUnit, badLetter, stopped };

// Takes an event; false ends the reading.
using ShapeEvent = std::function<bool(TIME time, char state)>;

// Reads a shape and hands out its events. The first time always reads as zero, whatever
// it says, and times come out a thousandth of what they say: both kept on purpose, for
// the shapes of existing operation files are written for it. `token` becomes the time
// that was read last. A text that ends early is a bad unit.
ShapeResult readShape(std::string_view shape, const ShapeEvent& onEvent, std::string_view& token);
