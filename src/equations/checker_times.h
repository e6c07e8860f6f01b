#pragma once

// Lets the checker bring times that come from equations up to date; a program that checks
// databases calls this at its start.
void installCheckerTimeUpdate();
