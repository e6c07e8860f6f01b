#include "tools/show.h"
int runShow(std::span<const std::string>) { return 0; }
