#pragma once

// What the sources of the pin module share: entering records in the tables.

#include <memory>
#include <optional>
#include <string>

#include "pvb/pin.h"

// Enters a pin under its id, and by name and node where it has them; its `number` is
// made from the node. False after a failed insert: it is then in no table.
bool enterPin(PVBpinData& data, PinKind kind, std::unique_ptr<PVBpin> pin);
bool enterColumn(PVBpinData& data, std::unique_ptr<PVBcolumn> column);

// The value of a text that is a plain unsigned number between white space, else -1.
std::int32_t pinNumber(const std::optional<std::string>& node);

// Reads "pvb.p" of the database into empty tables; none is fine. 0 or -2.
int pinDataRead(int database, PVBpinData& data);
