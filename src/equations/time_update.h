#pragma once

// Timeplate periods and events that come from an expression, brought up to date from
// the equation data of their database.

// Evaluates the expressions of every event of the open database's timeplates and the
// variables of their periods in the selected set of the selected sheet, and stores the
// times. 0; -2 when an expression failed, with a post for each, which leaves its time
// as it was.
int PVBtimeVariableUpdate(int database);
