#include "tools/verify.h"
VerifyCounts verifyDatabase(const std::string&, const MessageSink&) { return {}; }
int runVerify(std::span<const std::string>) { return 0; }
