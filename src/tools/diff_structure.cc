#include "tools/diff.h"

DiffResult diffStructures(int, int, const DifferenceSink&, const MessageSink&) { return {}; }
