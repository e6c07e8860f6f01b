#pragma once

// References to environment variables and functions on paths inside texts:
//
//   %NAME%             the variable, in every text that names a directory and,
//                      before the others, in an expanded value
//   $NAME  ${NAME}     the variable
//   ${WORD(ARGUMENT)}  a function of a path: ext, noext, suffix, basename,
//                      notdir, dir; any other word gives the argument
//
// What can't be resolved stays as it is, so nothing here fails. The value of a
// variable isn't scanned again for the form that brought it in. Variables add at
// most kMaxExpansionBytes to a text; from there on references stay.

#include <cstddef>
#include <string>
#include <string_view>

inline constexpr std::size_t kMaxExpansionBytes = std::size_t{1} << 20;

// Replaces each "%NAME%" of an existing variable.
std::string PBexpandEnvironment(std::string_view text);

// Expands all forms, if expansion is in force: the environment variable
// MVK_ENV_VARIABLES_ON exists (looked up once a process) or a program has
// switched it on, and no program has switched it off. MVK_SWALLOWED_EXT, looked
// up at each call, lists the extensions that count as a part of the one before.
void PBexpandValue(std::string& value);

void PBswitchExpansionOn();
// Off until PBendExpansionOff.
void PBswitchExpansionOff();
void PBendExpansionOff();
bool PBexpansionOff();
// As at the start of the process: no switch, the environment not yet looked at.
void PBresetExpansion();
