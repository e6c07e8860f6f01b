#pragma once

// The verbs as other programs read them: their part of the manual page, and the completion
// of bash. Both are made from the table of verbs and from the options that each verb
// declares, so that nothing is said twice; the build writes them to files.

#include <string>

// Sections of a page in the form of scdoc, the first one "VERBS".
std::string verbManual();

std::string bashCompletion();
