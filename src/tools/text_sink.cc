#include "tools/text_sink.h"

#include <unistd.h>

bool OutputFile::open(const std::string& path) {
  path_ = path;
  const std::string temporary = path + ".tmp" + std::to_string(getpid());
  stream_ = openStream(temporary, "w");
  if (!stream_) return false;
  file_ = TempFile(temporary);
  return true;
}

bool OutputFile::commit() {
  if (closeStream(std::move(stream_)) != 0) return false;
  if (platform().rename(file_.path().c_str(), path_.c_str()) != 0) return false;
  file_.release();
  return true;
}
