#pragma once

// Files that come with the sources, wherever the tests run.

#include <string>

// The path of a file by its name from the root of the sources.
std::string shippedFile(const std::string& name);
// All of a file that is there.
std::string shippedText(const std::string& name);
